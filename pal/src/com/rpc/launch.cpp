#include "pal/src/com/rpc/launch.h"

#include "pal/shellapi.h"
#include "pal/src/base/accounts.h"
#include "pal/src/base/internal.h"
#include "pal/src/com/rpc/remote.h"
#include "pal/src/service/imagepath.h"
#include "pal/src/service/runfiles.h"
#include "pal/src/service/spawn.h"
#include "pal/src/service/startup.h"
#include "pal/winbase.h"
#include "pal/winreg.h"
#include "pal/winsvc.h"

#include <filesystem>
#include <string>
#include <vector>

namespace pal::detail::rpc {
namespace {

class CKey
{
public:
    CKey(const std::u16string& path)
    {
        if (RegOpenKeyExW(HKEY_CLASSES_ROOT, reinterpret_cast<LPCWSTR>(path.c_str()), 0, KEY_READ,
                          &m_hKey) != ERROR_SUCCESS)
            m_hKey = nullptr;
    }
    ~CKey()
    {
        if (m_hKey)
            RegCloseKey(m_hKey);
    }
    CKey(const CKey&) = delete;
    CKey& operator=(const CKey&) = delete;

    // A string value; false when the key or value is missing or is not a string.
    bool String(const char16_t* pszName, std::u16string* pValue) const
    {
        if (!m_hKey)
            return false;
        DWORD dwType = 0;
        DWORD cb = 0;
        auto pszValue = reinterpret_cast<LPCWSTR>(pszName);
        if (RegQueryValueExW(m_hKey, pszValue, nullptr, &dwType, nullptr, &cb) != ERROR_SUCCESS ||
            (dwType != REG_SZ && dwType != REG_EXPAND_SZ))
            return false;
        std::u16string value(cb / sizeof(char16_t) + 1, u'\0');
        if (RegQueryValueExW(m_hKey, pszValue, nullptr, nullptr,
                             reinterpret_cast<LPBYTE>(value.data()), &cb) != ERROR_SUCCESS)
            return false;
        value.resize(std::char_traits<char16_t>::length(value.c_str()));
        *pValue = std::move(value);
        return true;
    }

private:
    HKEY m_hKey = nullptr;
};

std::u16string GuidText(REFGUID guid)
{
    WCHAR sz[40] = {};
    StringFromGUID2(guid, sz, 40);
    return reinterpret_cast<const char16_t*>(sz);
}

std::vector<std::u16string> SplitParameters(const std::u16string& text)
{
    std::vector<std::u16string> args;
    if (text.find_first_not_of(u" \t") == std::u16string::npos)
        return args;
    int cArgs = 0;
    LPWSTR* ppszArgs = CommandLineToArgvW(reinterpret_cast<LPCWSTR>(text.c_str()), &cArgs);
    if (!ppszArgs)
        return args;
    for (int i = 0; i < cArgs; ++i)
        args.emplace_back(reinterpret_cast<const char16_t*>(ppszArgs[i]));
    LocalFree(ppszArgs);
    return args;
}

} // namespace

HRESULT CServerLaunch::Start(REFCLSID rclsid)
{
    std::u16string clsidKey = u"CLSID\\" + GuidText(rclsid);
    std::u16string appId;
    std::u16string serviceName;
    if (CKey(clsidKey).String(u"AppID", &appId) &&
        CKey(u"AppID\\" + appId).String(u"LocalService", &serviceName)) {
        std::u16string parameters;
        CKey(u"AppID\\" + appId).String(u"ServiceParameters", &parameters);
        m_fService = true;
        DWORD dwError = service::StartServiceForActivation(serviceName, SplitParameters(parameters),
                                                           &m_llServiceId);
        if (dwError == ERROR_SERVICE_ALREADY_RUNNING)
            return S_OK;
        m_fStartedHere = dwError == ERROR_SUCCESS;
        return HRESULT_FROM_WIN32(dwError);
    }
    std::u16string commandLine;
    if (!CKey(clsidKey + u"\\LocalServer32").String(nullptr, &commandLine))
        return REGDB_E_CLASSNOTREG;
    service::SpawnRequest request;
    if (DWORD dwError = service::ResolveImagePath(commandLine + u" -Embedding", &request.program,
                                                  &request.args))
        return HRESULT_FROM_WIN32(dwError);
    // Without a RunAs of its own, a local server runs as the user who activated it.
    request.extraEnv = {"ORVSIM_ROOT=" + service::AbsoluteMachineRoot(),
                        "ORVSIM_ACCOUNT=" + ToUtf8(ProcessAccount().pszName)};
    std::error_code ec;
    std::filesystem::create_directories(ComFolder(), ec);
    request.outputPath = ComFolder() + "/localserver.log";
    if (DWORD dwError = service::SpawnService(request, &m_pid))
        return HRESULT_FROM_WIN32(dwError);
    m_fStartedHere = true;
    return S_OK;
}

bool CServerLaunch::Ended() const
{
    if (m_fService)
        return service::ActivatedServiceState(m_llServiceId) == SERVICE_STOPPED;
    return m_pid > 0 && !service::ChildRunning(m_pid);
}

} // namespace pal::detail::rpc
