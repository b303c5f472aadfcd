// `orvsim sc`: the emulated machine's services with sc.exe's syntax and output. CLI11 selects
// the command; everything after "sc" is sc.exe's own syntax, parsed here ("option= value", the
// blank after '=' included). A failed call prints sc.exe's failure lines and exits with the
// error code, as sc.exe does.
#include "command.h"
#include "sc_format.h"

#include "pal/errhandlingapi.h"
#include "pal/winerror.h"
#include "pal/winsvc.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

namespace orvsim {

namespace {

using sc::Failed;

const char* const kUsage = R"(Syntax (as sc.exe's):
  orvsim sc query|queryex|qc|qdescription NAME
  orvsim sc start NAME [ARGUMENT...]
  orvsim sc stop|pause|continue|interrogate|delete NAME
  orvsim sc control NAME CODE             (128-255, or paramchange, netbindadd, netbindremove,
                                           netbindenable, netbinddisable)
  orvsim sc description NAME TEXT
  orvsim sc create NAME binPath= PATH [type= own|share|interact] [start= demand|auto|disabled]
                   [error= normal|severe|critical|ignore] [DisplayName= TEXT] [group= GROUP]
                   [depend= A/B] [obj= ACCOUNT] [password= PASSWORD]
  orvsim sc reports NAME                  (every status report recorded, oldest first)
)";

std::string Lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    return s;
}

std::u16string Wide(const std::string& s)
{
    return pal::Utf8ToUtf16(s);
}

struct HandleCloser
{
    void operator()(SC_HANDLE__* h) const { CloseServiceHandle(h); }
};
using Handle = std::unique_ptr<SC_HANDLE__, HandleCloser>;

class Sc
{
public:
    // The exit code.
    int Run(const std::vector<std::string>& args);

private:
    using Operation = std::function<int(const std::vector<std::string>&)>;

    // Opens the service (after the manager) with dwAccess; on failure prints sc.exe's line for
    // it (with `openWhat` naming the failed call) and returns the code.
    int Open(const std::string& name, DWORD dwAccess, const std::string& openWhat);
    int Query(const std::string& name, bool fProcess);
    int QueryConfig(const std::string& name);
    int QueryDescription(const std::string& name);
    int SetDescription(const std::string& name, const std::string& text);
    int Start(const std::vector<std::string>& args);
    int Control(const std::string& name, DWORD dwControl);
    int Create(const std::vector<std::string>& args);
    int Delete(const std::string& name);
    int Reports(const std::string& name);

    Handle m_manager;
    Handle m_service;
};

int Sc::Open(const std::string& name, DWORD dwAccess, const std::string& openWhat)
{
    m_manager.reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!m_manager)
        return Failed("OpenSCManager", GetLastError());
    m_service.reset(OpenServiceW(m_manager.get(), Wide(name).c_str(), dwAccess));
    if (!m_service)
        return Failed(openWhat, GetLastError());
    return 0;
}

int Sc::Query(const std::string& name, bool fProcess)
{
    if (int code = Open(name, SERVICE_QUERY_STATUS, "EnumQueryServicesStatus:OpenService"))
        return code;
    SERVICE_STATUS_PROCESS status{};
    DWORD cbNeeded = 0;
    if (!QueryServiceStatusEx(m_service.get(), SC_STATUS_PROCESS_INFO,
                              reinterpret_cast<LPBYTE>(&status), sizeof(status), &cbNeeded))
        return Failed("QueryServiceStatusEx", GetLastError());
    std::cout << sc::FormatStatus(name, status, fProcess);
    return 0;
}

int Sc::QueryConfig(const std::string& name)
{
    if (int code = Open(name, SERVICE_QUERY_CONFIG, "OpenService"))
        return code;
    DWORD cbNeeded = 0;
    std::vector<BYTE> buffer;
    while (!QueryServiceConfigW(m_service.get(),
                                reinterpret_cast<LPQUERY_SERVICE_CONFIGW>(buffer.data()),
                                static_cast<DWORD>(buffer.size()), &cbNeeded)) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            return Failed("QueryServiceConfig", GetLastError());
        buffer.resize(cbNeeded);
    }
    std::cout << "[SC] QueryServiceConfig SUCCESS\n"
              << sc::FormatConfig(name, *reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data()));
    return 0;
}

int Sc::QueryDescription(const std::string& name)
{
    if (int code = Open(name, SERVICE_QUERY_CONFIG, "OpenService"))
        return code;
    DWORD cbNeeded = 0;
    std::vector<BYTE> buffer(sizeof(SERVICE_DESCRIPTIONW));
    while (!QueryServiceConfig2W(m_service.get(), SERVICE_CONFIG_DESCRIPTION, buffer.data(),
                                 static_cast<DWORD>(buffer.size()), &cbNeeded)) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            return Failed("QueryServiceConfig2", GetLastError());
        buffer.resize(cbNeeded);
    }
    std::cout << "[SC] QueryServiceConfig2 SUCCESS\n\nSERVICE_NAME: " << name << "\nDESCRIPTION:  "
              << sc::Narrow(reinterpret_cast<SERVICE_DESCRIPTIONW*>(buffer.data())->lpDescription)
              << "\n";
    return 0;
}

int Sc::SetDescription(const std::string& name, const std::string& text)
{
    if (int code = Open(name, SERVICE_CHANGE_CONFIG, "OpenService"))
        return code;
    std::u16string description = Wide(text);
    SERVICE_DESCRIPTIONW info{description.data()};
    if (!ChangeServiceConfig2W(m_service.get(), SERVICE_CONFIG_DESCRIPTION, &info))
        return Failed("ChangeServiceConfig2", GetLastError());
    std::cout << "[SC] ChangeServiceConfig2 SUCCESS\n";
    return 0;
}

int Sc::Start(const std::vector<std::string>& args)
{
    if (int code = Open(args[0], SERVICE_START | SERVICE_QUERY_STATUS, "StartService: OpenService"))
        return code;
    std::vector<std::u16string> wide;
    std::vector<LPCWSTR> argv;
    for (size_t i = 1; i < args.size(); ++i)
        wide.push_back(Wide(args[i]));
    for (const std::u16string& w : wide)
        argv.push_back(w.c_str());
    if (!StartServiceW(m_service.get(), static_cast<DWORD>(argv.size()),
                       argv.empty() ? nullptr : argv.data()))
        return Failed("StartService", GetLastError());
    SERVICE_STATUS_PROCESS status{};
    DWORD cbNeeded = 0;
    if (!QueryServiceStatusEx(m_service.get(), SC_STATUS_PROCESS_INFO,
                              reinterpret_cast<LPBYTE>(&status), sizeof(status), &cbNeeded))
        return Failed("QueryServiceStatusEx", GetLastError());
    std::cout << sc::FormatStatus(args[0], status, true);
    return 0;
}

int Sc::Control(const std::string& name, DWORD dwControl)
{
    DWORD dwAccess = SERVICE_PAUSE_CONTINUE;
    if (dwControl == SERVICE_CONTROL_STOP)
        dwAccess = SERVICE_STOP;
    else if (dwControl == SERVICE_CONTROL_INTERROGATE)
        dwAccess = SERVICE_INTERROGATE;
    else if (dwControl >= 128)
        dwAccess = SERVICE_USER_DEFINED_CONTROL;
    if (int code = Open(name, dwAccess, "OpenService"))
        return code;
    SERVICE_STATUS status{};
    if (!ControlService(m_service.get(), dwControl, &status))
        return Failed("ControlService", GetLastError());
    SERVICE_STATUS_PROCESS shown{};
    std::memcpy(&shown, &status, sizeof(status));
    std::cout << sc::FormatStatus(name, shown, false);
    return 0;
}

int Sc::Create(const std::vector<std::string>& args)
{
    static const std::map<std::string, DWORD> types = {
        {"own", SERVICE_WIN32_OWN_PROCESS}, {"share", SERVICE_WIN32_SHARE_PROCESS},
        {"kernel", SERVICE_KERNEL_DRIVER},  {"filesys", SERVICE_FILE_SYSTEM_DRIVER},
        {"rec", SERVICE_RECOGNIZER_DRIVER}, {"interact", SERVICE_INTERACTIVE_PROCESS}};
    static const std::map<std::string, DWORD> starts = {{"boot", SERVICE_BOOT_START},
                                                        {"system", SERVICE_SYSTEM_START},
                                                        {"auto", SERVICE_AUTO_START},
                                                        {"demand", SERVICE_DEMAND_START},
                                                        {"disabled", SERVICE_DISABLED}};
    static const std::map<std::string, DWORD> errors = {{"ignore", SERVICE_ERROR_IGNORE},
                                                        {"normal", SERVICE_ERROR_NORMAL},
                                                        {"severe", SERVICE_ERROR_SEVERE},
                                                        {"critical", SERVICE_ERROR_CRITICAL}};
    DWORD dwType = 0, dwStart = SERVICE_DEMAND_START, dwError = SERVICE_ERROR_NORMAL;
    std::map<std::string, std::optional<std::u16string>> text = {
        {"binpath=", {}}, {"displayname=", {}}, {"group=", {}},
        {"depend=", {}},  {"obj=", {}},         {"password=", {}}};
    for (size_t i = 1; i < args.size(); i += 2) {
        const std::string key = Lower(args[i]);
        if (i + 1 >= args.size())
            return -1;
        const std::string value = args[i + 1];
        auto lookup = [&](const std::map<std::string, DWORD>& names, DWORD* pValue) {
            auto it = names.find(Lower(value));
            if (it == names.end())
                return false;
            *pValue = it->second;
            return true;
        };
        DWORD dwValue = 0;
        if (key == "type=" && lookup(types, &dwValue))
            dwType = dwValue == SERVICE_INTERACTIVE_PROCESS
                         ? dwType | dwValue
                         : (dwType & SERVICE_INTERACTIVE_PROCESS) | dwValue;
        else if (key == "start=" && lookup(starts, &dwStart))
            continue;
        else if (key == "error=" && lookup(errors, &dwError))
            continue;
        else if (text.count(key))
            text[key] = Wide(value);
        else
            return -1;
    }
    if (!text["binpath="])
        return -1;
    if ((dwType & ~DWORD(SERVICE_INTERACTIVE_PROCESS)) == 0)
        dwType |= SERVICE_WIN32_OWN_PROCESS;
    // sc.exe's "A/B" is the API's double-NUL list.
    std::u16string dependencies;
    if (text["depend="]) {
        dependencies = *text["depend="];
        std::replace(dependencies.begin(), dependencies.end(), u'/', u'\0');
        dependencies.push_back(u'\0');
    }
    auto ptr = [&](const char* key) { return text[key] ? text[key]->c_str() : nullptr; };
    m_manager.reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (!m_manager)
        return Failed("OpenSCManager", GetLastError());
    m_service.reset(CreateServiceW(
        m_manager.get(), Wide(args[0]).c_str(), ptr("displayname="), SERVICE_ALL_ACCESS, dwType,
        dwStart, dwError, ptr("binpath="), ptr("group="), nullptr,
        text["depend="] ? dependencies.c_str() : nullptr, ptr("obj="), ptr("password=")));
    if (!m_service)
        return Failed("CreateService", GetLastError());
    std::cout << "[SC] CreateService SUCCESS\n";
    return 0;
}

int Sc::Delete(const std::string& name)
{
    if (int code = Open(name, DELETE, "OpenService"))
        return code;
    if (!DeleteService(m_service.get()))
        return Failed("DeleteService", GetLastError());
    std::cout << "[SC] DeleteService SUCCESS\n";
    return 0;
}

int Sc::Reports(const std::string& name)
{
    std::vector<pal::ServiceStatusReport> reports;
    if (DWORD dwError = pal::ServiceStatusReports(Wide(name), &reports))
        return Failed("ServiceStatusReports", dwError);
    for (const pal::ServiceStatusReport& report : reports)
        std::cout << sc::FormatReport(report);
    return 0;
}

int Sc::Run(const std::vector<std::string>& all)
{
    if (all.size() < 2)
        return -1;
    const std::string op = Lower(all[0]);
    const std::vector<std::string> args(all.begin() + 1, all.end());
    const std::string& name = args[0];
    const std::map<std::string, std::pair<size_t, Operation>> operations = {
        {"query", {1, [&](auto&) { return Query(name, false); }}},
        {"queryex", {1, [&](auto&) { return Query(name, true); }}},
        {"qc", {1, [&](auto&) { return QueryConfig(name); }}},
        {"qdescription", {1, [&](auto&) { return QueryDescription(name); }}},
        {"description", {2, [&](auto& a) { return SetDescription(name, a[1]); }}},
        {"start", {0, [&](auto& a) { return Start(a); }}},
        {"stop", {1, [&](auto&) { return Control(name, SERVICE_CONTROL_STOP); }}},
        {"pause", {1, [&](auto&) { return Control(name, SERVICE_CONTROL_PAUSE); }}},
        {"continue", {1, [&](auto&) { return Control(name, SERVICE_CONTROL_CONTINUE); }}},
        {"interrogate", {1, [&](auto&) { return Control(name, SERVICE_CONTROL_INTERROGATE); }}},
        {"create", {0, [&](auto& a) { return Create(a); }}},
        {"delete", {1, [&](auto&) { return Delete(name); }}},
        {"reports", {1, [&](auto&) { return Reports(name); }}},
        {"control",
         {2,
          [&](auto& a) {
              static const std::map<std::string, DWORD> named = {
                  {"paramchange", SERVICE_CONTROL_PARAMCHANGE},
                  {"netbindadd", SERVICE_CONTROL_NETBINDADD},
                  {"netbindremove", SERVICE_CONTROL_NETBINDREMOVE},
                  {"netbindenable", SERVICE_CONTROL_NETBINDENABLE},
                  {"netbinddisable", SERVICE_CONTROL_NETBINDDISABLE}};
              auto it = named.find(Lower(a[1]));
              char* end = nullptr;
              unsigned long code = std::strtoul(a[1].c_str(), &end, 10);
              if (it == named.end() && (*end || a[1].empty()))
                  return -1;
              return Control(name, it != named.end() ? it->second : static_cast<DWORD>(code));
          }}},
    };
    auto it = operations.find(op);
    // A count of 0 takes any number of arguments after the name.
    if (it == operations.end() || (it->second.first != 0 && args.size() != it->second.first))
        return -1;
    return it->second.second(args);
}

class ScCommand : public Command
{
public:
    explicit ScCommand(CLI::App& app)
    {
        m_pSc = app.add_subcommand("sc", "Create, configure, start, control, query and delete "
                                         "services, with sc.exe's syntax and output");
        // sc.exe's "binPath= X" style is not CLI11's: everything after "sc" is left for Sc.
        m_pSc->prefix_command();
        m_pSc->footer(std::string("\n") + kUsage);
    }

    bool Selected() const override { return m_pSc->parsed(); }

    int Run() override
    {
        int code = Sc().Run(m_pSc->remaining());
        if (code >= 0)
            return code;
        std::cerr << "ERROR: Invalid syntax. Type \"orvsim sc --help\" for usage.\n";
        return 1;
    }

private:
    CLI::App* m_pSc = nullptr;
};

} // namespace

std::unique_ptr<Command> AddScCommand(CLI::App& app)
{
    return std::make_unique<ScCommand>(app);
}

} // namespace orvsim
