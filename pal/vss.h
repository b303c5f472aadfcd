// The VSS types a hardware provider uses (vss.h): the ids and strings of its interface, the
// snapshot attributes and contexts that VSS passes in a context argument, and the hardware
// options that VSS passes to OnLunStateChange and BreakSnapshotSetEx.
#pragma once

#include "pal/guiddef.h"
#include "pal/unknwn.h"
#include "pal/windef.h"

typedef WCHAR* VSS_PWSZ;
typedef LONGLONG VSS_TIMESTAMP;
typedef GUID VSS_ID;

// Ids are passed by value and timestamps in 64 bits, as on Windows.
static_assert(sizeof(VSS_ID) == 16);
static_assert(sizeof(VSS_TIMESTAMP) == 8);

// The bits of a snapshot's attributes; a context (below) is a combination of them, and VSS may
// add further attributes to the context it passes to a provider.
enum VSS_VOLUME_SNAPSHOT_ATTRIBUTES : int
{
    VSS_VOLSNAP_ATTR_PERSISTENT = 0x1,
    VSS_VOLSNAP_ATTR_NO_AUTORECOVERY = 0x2,
    VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE = 0x4,
    VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE = 0x8,
    VSS_VOLSNAP_ATTR_NO_WRITERS = 0x10,
    VSS_VOLSNAP_ATTR_TRANSPORTABLE = 0x20,
    VSS_VOLSNAP_ATTR_NOT_SURFACED = 0x40,
    VSS_VOLSNAP_ATTR_NOT_TRANSACTED = 0x80,
    VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED = 0x10000,
    VSS_VOLSNAP_ATTR_DIFFERENTIAL = 0x20000,
    VSS_VOLSNAP_ATTR_PLEX = 0x40000,
    VSS_VOLSNAP_ATTR_IMPORTED = 0x80000,
    VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY = 0x100000,
    VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY = 0x200000,
    VSS_VOLSNAP_ATTR_AUTORECOVER = 0x400000,
    VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY = 0x800000,
    VSS_VOLSNAP_ATTR_DELAYED_POSTSNAPSHOT = 0x1000000,
    VSS_VOLSNAP_ATTR_TXF_RECOVERY = 0x2000000,
    VSS_VOLSNAP_ATTR_FILE_SHARE = 0x4000000,
};
typedef VSS_VOLUME_SNAPSHOT_ATTRIBUTES* PVSS_VOLUME_SNAPSHOT_ATTRIBUTES;

enum VSS_SNAPSHOT_CONTEXT : int
{
    VSS_CTX_BACKUP = 0x0,
    VSS_CTX_FILE_SHARE_BACKUP = VSS_VOLSNAP_ATTR_NO_WRITERS,
    VSS_CTX_NAS_ROLLBACK = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE |
                           VSS_VOLSNAP_ATTR_NO_WRITERS,
    VSS_CTX_APP_ROLLBACK = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE,
    VSS_CTX_CLIENT_ACCESSIBLE = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE |
                                VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE | VSS_VOLSNAP_ATTR_NO_WRITERS,
    VSS_CTX_CLIENT_ACCESSIBLE_WRITERS = VSS_VOLSNAP_ATTR_PERSISTENT |
                                        VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE |
                                        VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE,
    // 0xffffffff, which a context argument (a LONG) holds as -1.
    VSS_CTX_ALL = -1,
};
typedef VSS_SNAPSHOT_CONTEXT* PVSS_SNAPSHOT_CONTEXT;

enum VSS_HARDWARE_OPTIONS : int
{
    VSS_BREAKEX_FLAG_MASK_LUNS = 0x1,
    VSS_BREAKEX_FLAG_MAKE_READ_WRITE = 0x2,
    VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL = 0x4,
    VSS_BREAKEX_FLAG_REVERT_IDENTITY_NONE = 0x8,
    VSS_ONLUNSTATECHANGE_NOTIFY_READ_WRITE = 0x100,
    VSS_ONLUNSTATECHANGE_NOTIFY_LUN_PRE_RECOVERY = 0x200,
    VSS_ONLUNSTATECHANGE_NOTIFY_LUN_POST_RECOVERY = 0x400,
    VSS_ONLUNSTATECHANGE_DO_MASK_LUNS = 0x800,
};
typedef VSS_HARDWARE_OPTIONS* PVSS_HARDWARE_OPTIONS;

// The asynchronous operation that a provider's ResyncLuns hands back. Declared for that
// signature only: this layer implements no asynchronous VSS operation.
interface IVssAsync;
