// The manager's side of COM's activation of a service.
#include "pal/src/service/startup.h"

#include "pal/src/service/liveness.h"

using namespace pal::detail::service;

DWORD pal::detail::service::StartServiceForActivation(std::u16string_view name,
                                                      const std::vector<std::u16string>& args,
                                                      LONGLONG* pllServiceId)
{
    DWORD dwError = RunCall(false, [&](SqlConnection& conn) -> DWORD {
        std::optional<LONGLONG> id = FindServiceByName(conn, name);
        if (!id)
            return ERROR_SERVICE_DOES_NOT_EXIST;
        *pllServiceId = *id;
        return ERROR_SUCCESS;
    });
    if (dwError != ERROR_SUCCESS)
        return dwError;
    return StartServiceRecord(*pllServiceId, args);
}

DWORD pal::detail::service::ActivatedServiceState(LONGLONG llServiceId)
{
    ServiceRecord record;
    if (ReadCurrentRecord(llServiceId, &record) != ERROR_SUCCESS || record.fRemoved)
        return SERVICE_STOPPED;
    return record.status.dwCurrentState;
}
