// Reading the configuration: defaults, the key's creation, latches, limits and failures.
#include "pal/winbase.h"
#include "tests/diag/support/diagfixture.h"
#include "tests/support/tracetext.h"

namespace {

using orvtest::ConfigTest;

const std::string KEY_TEXT = "System\\CurrentControlSet\\Services\\Orvhwsvc\\Parameters";

// The numbers and latches read into members: default, a value written and what it reads as.
const struct
{
    LPCWSTR pszName;
    DWORD dwDefault, dwSet, dwRead;
    DWORD (*pfnGet)();
} NUMBERS[] = {
    {W("StoreSubsystemType"), 1, 7, 7, CConfig::GetStoreSubsystemType},
    {W("TraceFileMaxSize"), 10485760, 200000, 200000, CConfig::GetTraceFileMaxSize},
    {W("AsyncCreateSnapshot"), 1, 0, 0, CConfig::GetAsyncCreateSnapshot},
    {W("AutoShutdown"), 1, 0, 0, CConfig::GetAutoShutdown},
    {W("MaxTesseraWait"), 600, 30, 30, CConfig::GetMaxTesseraWait},
    {W("MaxVssWait"), 1200, 45, 45, CConfig::GetMaxVssWait},
    {W("UpdateReplicorOnSnapshot"), 0, 1, 1, CConfig::GetUpdateReplicorOnSnapshot},
    {W("EnableTxfRecovery"), FALSE, 2, TRUE,
     [] { return static_cast<DWORD>(CConfig::IsTxfRecoveryEnabled()); }},
    {W("EnableDatasets"), FALSE, 1, TRUE,
     [] { return static_cast<DWORD>(CConfig::IsDatasetsEnabled()); }},
};

TEST_F(ConfigTest, MissingKeyIsCreatedAndEveryValueKeepsItsDefault)
{
    ASSERT_HR(S_OK, CConfig::ReadRegValues());
    CRegKey key;
    EXPECT_EQ(ERROR_SUCCESS, key.Open(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_READ));
    EXPECT_EQ(1u, CountInOutput("regKey.Open on " + KEY_TEXT + " regkey FAILED [error=2]\n"));
    EXPECT_EQ(10u, CountInOutput("regval [error=13]\n"));
    EXPECT_EQ(1u, CountInOutput("regKey.QueryValue on TraceFile regval [error=13]\n"));
    EXPECT_EQ(0u, CountInOutput("regKey.QueryValue on TraceMask"));
    for (const auto& n : NUMBERS) {
        std::string name = orvtest::Narrow(n.pszName);
        EXPECT_EQ(1u, CountInOutput("regKey.QueryValue on " + name + " regval [error=13]\n"))
            << name;
        EXPECT_EQ(n.dwDefault, n.pfnGet()) << name;
    }
    EXPECT_EQ(4u, CConfig::GetTraceMask());
    EXPECT_EQ(u"orvp", std::u16string(CConfig::GetTraceFile()));
}

TEST_F(ConfigTest, ValuesAreReadIntoTheirMembersAndTraced)
{
    for (const auto& n : NUMBERS)
        SetDword(n.pszName, n.dwSet);
    SetString(W("TraceFile"), u"trc");
    TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
    TraceW(W("\n")); // every line of the read then starts with its prefix and indentation
    orvtest::TakeTraceText();
    ASSERT_HR(S_OK, CConfig::ReadRegValues());
    for (const auto& n : NUMBERS)
        EXPECT_EQ(n.dwRead, n.pfnGet()) << orvtest::Narrow(n.pszName);
    EXPECT_EQ(u"trc", std::u16string(CConfig::GetTraceFile()));
    EXPECT_EQ("    sm_dwTraceMask=4\n"
              "    sm_dwStoreSubsystemType=7\n"
              "    sm_dwTraceFileMaxSize=200000\n"
              "    sm_dwAsyncCreateSnapshot=0\n"
              "    sm_dwAutoShutdown=0\n"
              "    sm_dwMaxTesseraWait=30\n"
              "    sm_dwMaxVssWait=45\n"
              "    sm_dwUpdateReplicorOnSnapshot=1\n"
              "    sm_fTxfRecoveryEnabled=TRUE\n"
              "    sm_szTraceFile=trc\n",
              orvtest::TakeTraceText());
}

TEST_F(ConfigTest, LaterReadsKeepLatchesAndKeepMembersWhoseReadFails)
{
    SetDword(W("EnableTxfRecovery"), 1);
    SetDword(W("EnableDatasets"), 5);
    SetDword(W("MaxVssWait"), 30);
    SetDword(W("MaxTesseraWait"), 90);
    ASSERT_HR(S_OK, CConfig::ReadRegValues());

    SetDword(W("EnableTxfRecovery"), 0);
    EXPECT_EQ(ERROR_SUCCESS, Params().DeleteValue(W("EnableDatasets")));
    EXPECT_EQ(ERROR_SUCCESS, Params().DeleteValue(W("MaxVssWait")));
    SetString(W("MaxTesseraWait"), u"120");
    SetString(W("TraceMask"), u"1");
    ClearOutput();
    ASSERT_HR(S_OK, CConfig::ReadRegValues());
    EXPECT_TRUE(CConfig::IsTxfRecoveryEnabled());
    EXPECT_TRUE(CConfig::IsDatasetsEnabled());
    EXPECT_EQ(30u, CConfig::GetMaxVssWait());
    EXPECT_EQ(90u, CConfig::GetMaxTesseraWait());
    EXPECT_EQ(4u, CConfig::GetTraceMask());
    EXPECT_EQ(1u, CountInOutput("regKey.QueryValue on MaxTesseraWait regval [error=13]\n"));
}

TEST_F(ConfigTest, TraceFilePrefixLimitsAndTypes)
{
    const struct
    {
        std::u16string value; // empty: stored as a 32-bit number instead
        std::u16string expected;
        const char* pszError; // the failure line's error, or nullptr
    } cases[] = {
        {std::u16string(129, u'p'), std::u16string(129, u'p'), nullptr},
        {std::u16string(130, u'p'), u"orvp", "[error=234]"},
        {u"", u"orvp", "[error=13]"},
        {u"mytrace", u"mytrace", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(orvtest::Narrow(c.expected));
        if (c.value.empty())
            SetDword(W("TraceFile"), 17);
        else
            SetString(W("TraceFile"), c.value);
        ClearOutput();
        ASSERT_HR(S_OK, CConfig::ReadRegValues());
        EXPECT_EQ(c.expected, std::u16string(CConfig::GetTraceFile()));
        EXPECT_EQ(c.pszError ? 1u : 0u, CountInOutput("regKey.QueryValue on TraceFile regval "));
        if (c.pszError) {
            EXPECT_EQ(1u, CountInOutput(std::string("TraceFile regval ") + c.pszError + "\n"));
        }
    }
}

TEST_F(ConfigTest, KeyThatCannotBeOpenedOrCreated)
{
    pal::InjectFault("RegOpenKeyExW", ERROR_ACCESS_DENIED);
    pal::InjectFault("RegCreateKeyExW", ERROR_ACCESS_DENIED);
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), CConfig::Initialize());
    EXPECT_EQ(1u, CountInOutput("regKey.Open on " + KEY_TEXT + " regkey FAILED [error=5]\n"));
    EXPECT_EQ(1u, CountInOutput("regKey.Create on " + KEY_TEXT + " regkey FAILED [error=5]\n"));
    EXPECT_EQ(1u, CountInOutput("ReadRegValues FAILED [hr=0x80070005]\n"));
    EXPECT_EQ(u"", std::u16string(CConfig::GetTraceFile()));
    EXPECT_EQ(4u, CConfig::GetTraceMask());

    pal::ClearFaults();
    ClearOutput();
    pal::InjectFault("RegOpenKeyExW", ERROR_FILE_NOT_FOUND, 2);
    Params();
    pal::InjectFault("RegOpenKeyExW", ERROR_ACCESS_DENIED);
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), CConfig::ReadRegValues())
        << "the open after the creation fails too";
    EXPECT_EQ(2u, CountInOutput("regKey.Open on " + KEY_TEXT + " regkey FAILED [error=5]\n"));
}

TEST_F(ConfigTest, WatcherStartFailuresReleaseEverything)
{
    const struct
    {
        const char* pszApi;
        ULONG nth;
        DWORD dwError;
        const char* pszLine;
        const char* pszHr;
    } cases[] = {
        // The first open is the read, the second the notification handle.
        {"RegOpenKeyExW", 2, ERROR_ACCESS_DENIED, "RegOpenKeyEx FAILED [dwError=0x00000005]\n",
         "0x80070005"},
        {"CreateEventW", 0, ERROR_NOT_ENOUGH_MEMORY, "CreateEvent FAILED [dwError=0x00000008]\n",
         "0x80070008"},
        {"CreateThread", 0, ERROR_NOT_ENOUGH_MEMORY, "CreateThread FAILED [dwError=0x00000008]\n",
         "0x80070008"},
    };
    Params();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pszApi);
        ClearOutput();
        pal::ClearFaults();
        pal::InjectFault(c.pszApi, c.dwError, c.nth);
        EXPECT_HR(HRESULT_FROM_WIN32(c.dwError), CConfig::Initialize());
        EXPECT_EQ(1u, CountInOutput(c.pszLine));
        EXPECT_EQ(1u, CountInOutput(std::string("CreateRegThread FAILED [hr=") + c.pszHr + "]\n"));
        // Nothing is left open: a new start succeeds and Terminate finds nothing to close.
        pal::ClearFaults();
        EXPECT_HR(S_OK, CConfig::Initialize());
        EXPECT_HR(S_OK, CConfig::Terminate());
    }
}

TEST_F(ConfigTest, InitializeOnceTerminateStartsAfresh)
{
    TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
    EXPECT_HR(S_OK, CConfig::Terminate());
    EXPECT_EQ(0u, CountInOutput("Waiting for RegThread")) << "no watcher to wait for";
    ASSERT_HR(S_OK, CConfig::Initialize());
    EXPECT_HR(S_OK, CConfig::Initialize());
    EXPECT_EQ(1u, CountInOutput("Already initialized\n"));
    EXPECT_HR(S_OK, CConfig::Terminate());
    EXPECT_EQ(1u, CountInOutput("Waiting for RegThread to exit\n"));
    EXPECT_EQ(1u, CountInOutput("**** RegThread exits\n"));
    EXPECT_HR(S_OK, CConfig::Initialize());
    EXPECT_EQ(1u, CountInOutput("Already initialized\n"));
}

TEST_F(ConfigTest, TraceStartsFromTheRegistryOrFromDefaults)
{
    std::u16string exe = orvtest::Wide(m_dir.string() + "/orvhwsvc");
    pal::SetModuleFileNameForTest(exe.c_str());
    SetDate(3, 7);
    const std::string dirLine = "szTraceFileDir=" + m_dir.string() + "/\n";

    lstrcpynW(CConfig::sm_szTraceFile, W("orvp"), MAX_PATH);
    InitializeTraceFromRegistry();
    EXPECT_EQ(dirLine + "Trace is initialized with default value. TraceMask=4.\n",
              pal::TakeDebugOutputText());
    EXPECT_NE(nullptr, g_trace.pFile);
    EXPECT_EQ(10485760u, g_trace.dwMaxFileSize);

    SetDword(W("TraceMask"), 0);
    InitializeTraceFromRegistry();
    // This time the thread is at the start of a line, so the first line has its prefix.
    std::string output = pal::TakeDebugOutputText();
    const std::string expected = dirLine + "Trace is initialized from registry. TraceMask=0.\n";
    ASSERT_GT(output.size(), expected.size());
    EXPECT_EQ(expected, output.substr(output.size() - expected.size()));
    EXPECT_EQ(0u, output.find("["));
    EXPECT_EQ(0u, CConfig::GetTraceMask());
    EXPECT_EQ(nullptr, g_trace.pFile);
}

} // namespace
