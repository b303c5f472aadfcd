// A service's configuration: QueryServiceConfigW, and the description through
// ChangeServiceConfig2W and QueryServiceConfig2W. Strings are packed after the structure in the
// caller's buffer, as Windows packs them.
#include "pal/src/service/call.h"
#include "pal/src/service/store.h"

#include <cstring>

using namespace pal::detail::service;

namespace {

// Writes strings one after the other from `p`.
class StringPacker
{
public:
    explicit StringPacker(BYTE* p) : m_p(reinterpret_cast<WCHAR*>(p)) {}
    LPWSTR Put(std::u16string_view s)
    {
        LPWSTR start = m_p;
        std::memcpy(m_p, s.data(), s.size() * sizeof(WCHAR));
        m_p += s.size();
        *m_p++ = 0;
        return start;
    }

private:
    WCHAR* m_p;
};

// A double-NUL list as one string that holds its inner NULs.
std::u16string JoinList(const std::vector<std::u16string>& items)
{
    std::u16string joined;
    for (const std::u16string& item : items) {
        joined += item;
        joined.push_back(0);
    }
    return joined;
}

DWORD ReadRecord(const ScHandle& handle, ServiceRecord* pRecord)
{
    return RunCall(false, [&](SqlConnection& conn) -> DWORD {
        return LoadService(conn, handle.llServiceId, pRecord) ? ERROR_SUCCESS
                                                              : ERROR_SERVICE_DOES_NOT_EXIST;
    });
}

} // namespace

BOOL WINAPI QueryServiceConfigW(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGW lpServiceConfig,
                                DWORD cbBufSize, LPDWORD pcbBytesNeeded)
{
    ScHandle handle;
    if (!EnterService("QueryServiceConfigW", hService, SERVICE_QUERY_CONFIG, &handle))
        return FALSE;
    if (!pcbBytesNeeded)
        return Finish(ERROR_INVALID_ADDRESS);
    ServiceRecord record;
    if (DWORD dwError = ReadRecord(handle, &record))
        return Finish(dwError);
    const std::u16string dependencies = JoinList(record.dependencies);
    const std::u16string_view strings[] = {record.imagePath, record.loadOrderGroup, dependencies,
                                           record.account, record.display};
    size_t cch = 0;
    for (std::u16string_view s : strings)
        cch += s.size() + 1;
    const DWORD cbNeeded = static_cast<DWORD>(sizeof(QUERY_SERVICE_CONFIGW) + cch * sizeof(WCHAR));
    if (!lpServiceConfig || cbBufSize < cbNeeded) {
        *pcbBytesNeeded = cbNeeded;
        return Finish(ERROR_INSUFFICIENT_BUFFER);
    }
    QUERY_SERVICE_CONFIGW& config = *lpServiceConfig;
    StringPacker packer(reinterpret_cast<BYTE*>(lpServiceConfig + 1));
    config.dwServiceType = record.dwType;
    config.dwStartType = record.dwStartType;
    config.dwErrorControl = record.dwErrorControl;
    config.lpBinaryPathName = packer.Put(strings[0]);
    config.lpLoadOrderGroup = packer.Put(strings[1]);
    config.dwTagId = 0;
    // The list's last item ends with a NUL of its own: the packer's makes the list's end.
    config.lpDependencies = packer.Put(strings[2]);
    config.lpServiceStartName = packer.Put(strings[3]);
    config.lpDisplayName = packer.Put(strings[4]);
    return TRUE;
}

BOOL WINAPI ChangeServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPVOID lpInfo)
{
    ScHandle handle;
    if (!EnterService("ChangeServiceConfig2W", hService, SERVICE_CHANGE_CONFIG, &handle))
        return FALSE;
    if (dwInfoLevel != SERVICE_CONFIG_DESCRIPTION)
        return Finish(ERROR_INVALID_LEVEL);
    if (!lpInfo)
        return Finish(ERROR_INVALID_PARAMETER);
    const WCHAR* pszDescription = static_cast<SERVICE_DESCRIPTIONW*>(lpInfo)->lpDescription;
    return Finish(RunCall(true, [&](SqlConnection& conn) -> DWORD {
        ServiceRecord record;
        if (!LoadService(conn, handle.llServiceId, &record) || record.fMarked)
            return ERROR_SERVICE_MARKED_FOR_DELETE;
        if (pszDescription)
            StoreDescription(conn, record.llId,
                             *pszDescription ? std::optional<std::u16string>(pszDescription)
                                             : std::nullopt);
        return ERROR_SUCCESS;
    }));
}

BOOL WINAPI QueryServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPBYTE lpBuffer,
                                 DWORD cbBufSize, LPDWORD pcbBytesNeeded)
{
    ScHandle handle;
    if (!EnterService("QueryServiceConfig2W", hService, SERVICE_QUERY_CONFIG, &handle))
        return FALSE;
    if (dwInfoLevel != SERVICE_CONFIG_DESCRIPTION)
        return Finish(ERROR_INVALID_LEVEL);
    if (!pcbBytesNeeded)
        return Finish(ERROR_INVALID_ADDRESS);
    ServiceRecord record;
    if (DWORD dwError = ReadRecord(handle, &record))
        return Finish(dwError);
    const DWORD cbNeeded = static_cast<DWORD>(
        sizeof(SERVICE_DESCRIPTIONW) +
        (record.description ? (record.description->size() + 1) * sizeof(WCHAR) : 0));
    if (!lpBuffer || cbBufSize < cbNeeded) {
        *pcbBytesNeeded = cbNeeded;
        return Finish(ERROR_INSUFFICIENT_BUFFER);
    }
    auto* pDescription = reinterpret_cast<SERVICE_DESCRIPTIONW*>(lpBuffer);
    StringPacker packer(lpBuffer + sizeof(SERVICE_DESCRIPTIONW));
    pDescription->lpDescription = record.description ? packer.Put(*record.description) : nullptr;
    return TRUE;
}
