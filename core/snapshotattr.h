// The recovery attribute of a snapshot. The front decides it from the VSS context of the set;
// the core only compares it with 0 as a signed number and passes it on to the store.
#pragma once

#include "pal/windef.h"

enum SNAPSHOT_ATTR : LONG
{
    // No recovery for this snapshot (deferred recovery).
    SNAPSHOT_ATTR_NONE = 0,
    // Transportable auto-recovery snapshot.
    SNAPSHOT_ATTR_AUTO_RECOVERY = 1,
    // Transportable TxF recovery snapshot.
    SNAPSHOT_ATTR_TXF_RECOVERY = 2,
};

// A value greater than 0 marks a snapshot that takes part in recovery.
inline bool IsRecoverySnapshot(LONG eSnapshotAttr)
{
    return eSnapshotAttr > 0;
}
