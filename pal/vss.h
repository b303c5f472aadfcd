// The VSS types a hardware provider uses (vss.h): the ids and strings of its interface, the
// snapshot attributes and contexts that VSS passes in a context argument, and the hardware
// options that VSS passes to OnLunStateChange and BreakSnapshotSetEx; and what the coordinator's
// queries answer (vsadmin.h): the object records and their enumerator.
#pragma once

#include "pal/guiddef.h"
#include "pal/unknwn.h"
#include "pal/uuidof.h"
#include "pal/windef.h"

#include <cstddef>

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

enum VSS_OBJECT_TYPE : int
{
    VSS_OBJECT_UNKNOWN = 0,
    VSS_OBJECT_NONE = 1,
    VSS_OBJECT_SNAPSHOT_SET = 2,
    VSS_OBJECT_SNAPSHOT = 3,
    VSS_OBJECT_PROVIDER = 4,
    VSS_OBJECT_TYPE_COUNT = 5,
};
typedef VSS_OBJECT_TYPE* PVSS_OBJECT_TYPE;

enum VSS_SNAPSHOT_STATE : int
{
    VSS_SS_UNKNOWN = 0,
    VSS_SS_PREPARING = 1,
    VSS_SS_PROCESSING_PREPARE = 2,
    VSS_SS_PREPARED = 3,
    VSS_SS_PROCESSING_PRECOMMIT = 4,
    VSS_SS_PRECOMMITTED = 5,
    VSS_SS_PROCESSING_COMMIT = 6,
    VSS_SS_COMMITTED = 7,
    VSS_SS_PROCESSING_POSTCOMMIT = 8,
    VSS_SS_PROCESSING_PREFINALCOMMIT = 9,
    VSS_SS_PREFINALCOMMITTED = 10,
    VSS_SS_PROCESSING_POSTFINALCOMMIT = 11,
    VSS_SS_CREATED = 12,
    VSS_SS_ABORTED = 13,
    VSS_SS_DELETED = 14,
    VSS_SS_POSTCOMMITTED = 15,
    VSS_SS_COUNT = 16,
};
typedef VSS_SNAPSHOT_STATE* PVSS_SNAPSHOT_STATE;

enum VSS_PROVIDER_TYPE : int
{
    VSS_PROV_UNKNOWN = 0,
    VSS_PROV_SYSTEM = 1,
    VSS_PROV_SOFTWARE = 2,
    VSS_PROV_HARDWARE = 3,
    VSS_PROV_FILESHARE = 4,
};
typedef VSS_PROVIDER_TYPE* PVSS_PROVIDER_TYPE;

// Every string of a record that VSS hands out is a block of the COM task allocator that the
// receiver frees with CoTaskMemFree.
struct VSS_SNAPSHOT_PROP
{
    VSS_ID m_SnapshotId;
    VSS_ID m_SnapshotSetId;
    LONG m_lSnapshotsCount;
    VSS_PWSZ m_pwszSnapshotDeviceObject;
    VSS_PWSZ m_pwszOriginalVolumeName;
    VSS_PWSZ m_pwszOriginatingMachine;
    VSS_PWSZ m_pwszServiceMachine;
    VSS_PWSZ m_pwszExposedName;
    VSS_PWSZ m_pwszExposedPath;
    VSS_ID m_ProviderId;
    LONG m_lSnapshotAttributes;
    VSS_TIMESTAMP m_tsCreationTimestamp;
    VSS_SNAPSHOT_STATE m_eStatus;
};
typedef VSS_SNAPSHOT_PROP* PVSS_SNAPSHOT_PROP;

struct VSS_PROVIDER_PROP
{
    VSS_ID m_ProviderId;
    VSS_PWSZ m_pwszProviderName;
    VSS_PROVIDER_TYPE m_eProviderType;
    VSS_PWSZ m_pwszProviderVersion;
    VSS_ID m_ProviderVersionId;
    CLSID m_ClassId;
};
typedef VSS_PROVIDER_PROP* PVSS_PROVIDER_PROP;

union VSS_OBJECT_UNION {
    VSS_SNAPSHOT_PROP Snap;
    VSS_PROVIDER_PROP Prov;
};

// One object of a query: Type says which member of Obj holds it.
struct VSS_OBJECT_PROP
{
    VSS_OBJECT_TYPE Type;
    VSS_OBJECT_UNION Obj;
};
typedef VSS_OBJECT_PROP* PVSS_OBJECT_PROP;

// The records cross the coordinator's interface unchanged, so they must match Windows byte for
// byte.
static_assert(sizeof(VSS_OBJECT_TYPE) == 4 && sizeof(VSS_SNAPSHOT_STATE) == 4 &&
              sizeof(VSS_PROVIDER_TYPE) == 4);
static_assert(sizeof(VSS_SNAPSHOT_PROP) == 128);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_SnapshotSetId) == 16);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_lSnapshotsCount) == 32);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_pwszSnapshotDeviceObject) == 40);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_pwszExposedPath) == 80);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_ProviderId) == 88);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_lSnapshotAttributes) == 104);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_tsCreationTimestamp) == 112);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_eStatus) == 120);
static_assert(sizeof(VSS_PROVIDER_PROP) == 72);
static_assert(offsetof(VSS_PROVIDER_PROP, m_pwszProviderName) == 16);
static_assert(offsetof(VSS_PROVIDER_PROP, m_eProviderType) == 24);
static_assert(offsetof(VSS_PROVIDER_PROP, m_pwszProviderVersion) == 32);
static_assert(offsetof(VSS_PROVIDER_PROP, m_ProviderVersionId) == 40);
static_assert(offsetof(VSS_PROVIDER_PROP, m_ClassId) == 56);
static_assert(sizeof(VSS_OBJECT_UNION) == 128);
static_assert(sizeof(VSS_OBJECT_PROP) == 136);
static_assert(offsetof(VSS_OBJECT_PROP, Obj) == 8);

// {AE1C7110-2F60-11D3-8A39-00C04F72D8E3}
inline constexpr IID IID_IVssEnumObject = {
    0xAE1C7110, 0x2F60, 0x11D3, {0x8A, 0x39, 0x00, 0xC0, 0x4F, 0x72, 0xD8, 0xE3}};

// The objects a query found, in the order the coordinator answers them.
interface IVssEnumObject : public IUnknown
{
    // Copies up to celt records into rgelt; S_FALSE when fewer than celt remained.
    STDMETHOD(Next)(ULONG celt, VSS_OBJECT_PROP* rgelt, ULONG* pceltFetched) PURE;
    STDMETHOD(Skip)(ULONG celt) PURE;
    STDMETHOD(Reset)() PURE;
    // A new enumerator at the same position.
    STDMETHOD(Clone)(IVssEnumObject** ppenum) PURE;

protected:
    ~IVssEnumObject() = default;
};

PAL_DEFINE_UUIDOF(IVssEnumObject, IID_IVssEnumObject);
