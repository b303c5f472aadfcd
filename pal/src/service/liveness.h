// What the manager notices on its own: a service process that ended without reporting
// SERVICE_STOPPED, and a deleted service that can go.
#pragma once

#include "pal/src/service/store.h"

namespace pal::detail::service {

// In a write transaction: when the service's process has ended without reporting
// SERVICE_STOPPED, records the manager's report that it stopped with ERROR_PROCESS_ABORTED and
// removes it if it was marked for deletion (RemoveIfUnused). True when it did.
bool NoticeDeath(SqlConnection& conn, ServiceRecord* pRecord);
// In a write transaction: removes a marked, stopped service to which this process has no handle.
void RemoveIfUnused(SqlConnection& conn, ServiceRecord* pRecord);
// The service's record as it stands, a death noticed: a read transaction, and a write one only
// when there is a death to record.
DWORD ReadCurrentRecord(LONGLONG llServiceId, ServiceRecord* pRecord);

} // namespace pal::detail::service
