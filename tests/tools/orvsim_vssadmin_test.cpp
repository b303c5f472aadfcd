// `orvsim vssadmin list providers`: vssadmin's output of what this process registered, and its
// refusals.
#include "sim/vss/vsssim.h"
#include "tests/pal/registry/registry_testing.h"

#include "pal/atlbase.h"
#include "pal/objbase.h"

namespace {

using orvtest::registry::ProcessResult;

const std::string kBanner = "vssadmin 1.1 - Volume Shadow Copy Service administrative "
                            "command-line tool\n(C) Copyright 2001-2013 Microsoft Corp.\n\n";
const std::string kSystem = "Provider name: 'Microsoft Software Shadow Copy provider 1.0'\n"
                            "   Provider type: System\n"
                            "   Provider Id: {b5946137-7b9f-4925-af80-51abd60b20d5}\n"
                            "   Version: 1.0.0.7\n\n";

// Registers a hardware provider through the coordinator served in this process.
HRESULT RegisterHardwareProvider()
{
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return E_UNEXPECTED;
    HRESULT hr = E_UNEXPECTED;
    {
        vsssim::CVssCoordinator coordinator;
        CComPtr<IVssAdmin> pAdmin;
        if (SUCCEEDED(coordinator.Start()) &&
            SUCCEEDED(pAdmin.CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL)))
            hr = pAdmin->RegisterProvider(
                {0xD1A2B3C4, 0xABCD, 0x4EF0, {0x91, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}},
                GUID_NULL, const_cast<WCHAR*>(W("Orvane Hardware VSS Provider")), VSS_PROV_HARDWARE,
                const_cast<WCHAR*>(W("3.1.0.2")), GUID_NULL);
    }
    CoUninitialize();
    return hr;
}

using OrvsimVssadminTest = orvtest::PalTest;

TEST_F(OrvsimVssadminTest, ListsProvidersAsVssadminDoes)
{
    const struct
    {
        const char* what;
        std::vector<std::string> args;
        const char* env;
        bool fRegister;
        const char* fault;
        HRESULT hrFault;
        int exitCode;
        std::string out;
        std::string err;
    } rows[] = {
        {"a fresh machine", {"list", "providers"}, "", false, "", S_OK, 0, kBanner + kSystem, ""},
        {"a provider registered by another process",
         {"List", "PROVIDERS"},
         "",
         true,
         "",
         S_OK,
         0,
         kBanner + kSystem +
             "Provider name: 'Orvane Hardware VSS Provider'\n   Provider type: Hardware\n"
             "   Provider Id: {d1a2b3c4-abcd-4ef0-9122-334455667788}\n   Version: 3.1.0.2\n\n",
         ""},
        {"a plain user",
         {"list", "providers"},
         "ORVSIM_ACCOUNT=User",
         false,
         "",
         S_OK,
         1,
         kBanner,
         "Error: You don't have the correct permissions to run this command.  Please run this "
         "utility from a command window that has elevated administrator privileges.\n"},
        {"the coordinator's unexpected error",
         {"list", "providers"},
         "",
         false,
         "QueryProviders",
         VSS_E_UNEXPECTED,
         1,
         kBanner,
         "Error: A Volume Shadow Copy Service component encountered an unexpected error. Check "
         "the Application event log for more information.\n"},
        {"another failure",
         {"list", "providers"},
         "",
         false,
         "QueryProviders",
         E_OUTOFMEMORY,
         1,
         kBanner,
         "Error: Unexpected failure: 0x8007000E.\n"},
        {"another command",
         {"list", "shadows"},
         "",
         false,
         "",
         S_OK,
         1,
         kBanner,
         "Error: Invalid command.\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::filesystem::path root = MakeDir(row.what);
        setenv("ORVSIM_ROOT", root.c_str(), 1);
        if (row.fRegister) {
            ASSERT_HR(S_OK, RegisterHardwareProvider());
        }
        if (*row.fault) {
            ASSERT_HR(S_OK, vsssim::SetFault(row.fault, row.hrFault));
        }
        std::vector<std::string> argv{orvtest::registry::OrvsimPath(), "--root", root.string(),
                                      "vssadmin"};
        argv.insert(argv.end(), row.args.begin(), row.args.end());
        ProcessResult r = orvtest::registry::RunProcess(
            argv, *row.env ? std::vector<std::string>{row.env} : std::vector<std::string>{});
        EXPECT_EQ(row.exitCode, r.exitCode);
        EXPECT_EQ(row.out, r.out);
        EXPECT_EQ(row.err, r.err);
    }
}

} // namespace
