// The fault hook and the handle checks every registry call starts with.
#include "pal/src/registry/call.h"

#include "pal/src/registry/tree.h"

#include "pal/src/base/internal.h"

namespace pal::detail::registry {

bool InjectedFault(const char* api, const std::u16string* path, LONG* pStatus)
{
    DWORD dwError = 0;
    if (!ConsumeFault(api, path ? path->c_str() : nullptr, &dwError))
        return false;
    *pStatus = static_cast<LONG>(dwError);
    return true;
}

LONG CheckKey(Connection& conn, const KeyHandle* pHandle, REGSAM samNeeded)
{
    if (!pHandle)
        return ERROR_INVALID_HANDLE;
    if ((pHandle->samGranted & samNeeded) != samNeeded)
        return ERROR_ACCESS_DENIED;
    if (!KeyExists(conn, pHandle->llKeyId))
        return ERROR_KEY_DELETED;
    return ERROR_SUCCESS;
}

LONG EnterKey(Connection& conn, const char* api, HKEY hKey, REGSAM samNeeded,
              const KeyHandle** ppHandle)
{
    const KeyHandle* pHandle = FindHandle(hKey);
    LONG status = ERROR_SUCCESS;
    if (InjectedFault(api, pHandle ? &pHandle->path : nullptr, &status))
        return status;
    *ppHandle = pHandle;
    return CheckKey(conn, pHandle, samNeeded);
}

} // namespace pal::detail::registry
