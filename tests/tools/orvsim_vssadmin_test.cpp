// `orvsim vssadmin`: vssadmin's output of the providers this process registered, of a machine
// without shadow copies, and its refusals.
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

TEST_F(OrvsimVssadminTest, AnswersAsVssadminDoes)
{
    const std::string kHardware = "Provider name: 'Orvane Hardware VSS Provider'\n"
                                  "   Provider type: Hardware\n"
                                  "   Provider Id: {d1a2b3c4-abcd-4ef0-9122-334455667788}\n"
                                  "   Version: 3.1.0.2\n\n";
    const std::string kDenied = "Error: You don't have the correct permissions to run this "
                                "command.  Please run this utility from a command window that "
                                "has elevated administrator privileges.\n";
    const std::string kUnexpected = "Error: A Volume Shadow Copy Service component encountered "
                                    "an unexpected error. Check the Application event log for "
                                    "more information.\n";
    const std::string kInvalid = "Error: Invalid command.\n";
    const std::string kNoItems = "No items found that satisfy the query.\n";
    // Each row on a machine of its own; a row that fails prints the banner only.
    const struct
    {
        const char* what;
        std::vector<std::string> words;
        bool fRegister;
        std::vector<std::string> env;
        HRESULT hrFault; // of QueryProviders
        std::string out;
        std::string err;
    } rows[] = {
        {"fresh", {"list", "providers"}, false, {}, S_OK, kBanner + kSystem, ""},
        {"registered", {"List", "PROVIDERS"}, true, {}, S_OK, kBanner + kSystem + kHardware, ""},
        {"user", {"list", "providers"}, false, {"ORVSIM_ACCOUNT=User"}, S_OK, kBanner, kDenied},
        {"user deletes",
         {"delete", "shadows", "/all"},
         false,
         {"ORVSIM_ACCOUNT=User"},
         S_OK,
         kBanner,
         kDenied},
        {"user lists", {"list", "shadows"}, false, {"ORVSIM_ACCOUNT=User"}, S_OK, kBanner, kDenied},
        {"unexpected", {"list", "providers"}, false, {}, VSS_E_UNEXPECTED, kBanner, kUnexpected},
        {"failure",
         {"list", "providers"},
         false,
         {},
         E_OUTOFMEMORY,
         kBanner,
         "Error: Unexpected failure: 0x8007000E.\n"},
        {"other command", {"list", "writers"}, false, {}, S_OK, kBanner, kInvalid},
        {"no shadows", {"list", "shadows"}, false, {}, S_OK, kBanner + kNoItems, ""},
        {"delete none",
         {"Delete", "Shadows", "/All", "/Quiet"},
         false,
         {},
         S_OK,
         kBanner + kNoItems,
         ""},
        {"delete what", {"delete", "shadows", "/quiet"}, false, {}, S_OK, kBanner, kInvalid},
        {"set id",
         {"list", "shadows", "/set=12"},
         false,
         {},
         S_OK,
         kBanner,
         "Error: Invalid option value.\n"},
        {"option",
         {"list", "shadows", "/Oldest"},
         false,
         {},
         S_OK,
         kBanner,
         "Error: Invalid option: '/Oldest'.\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::filesystem::path root = MakeDir(row.what);
        setenv("ORVSIM_ROOT", root.c_str(), 1);
        if (row.fRegister) {
            ASSERT_HR(S_OK, RegisterHardwareProvider());
        }
        if (FAILED(row.hrFault)) {
            ASSERT_HR(S_OK, vsssim::SetFault("QueryProviders", row.hrFault));
        }
        std::vector<std::string> argv{orvtest::registry::OrvsimPath(), "--root", root.string(),
                                      "vssadmin"};
        argv.insert(argv.end(), row.words.begin(), row.words.end());
        ProcessResult r = orvtest::registry::RunProcess(argv, row.env);
        EXPECT_EQ(row.err.empty() ? 0 : 1, r.exitCode);
        EXPECT_EQ(row.out, r.out);
        EXPECT_EQ(row.err, r.err);
    }
}

} // namespace
