// Reading the configuration: defaults, the key's creation, latches, limits and failures.
#include "pal/errhandlingapi.h"
#include "pal/winbase.h"
#include "tests/diag/support/configfixture.h"

namespace {

using orvtest::ConfigTest;
using orvtest::Narrow;

const std::string KEY_TEXT = "System\\CurrentControlSet\\Services\\Orvhwsvc\\Parameters";
const char* const NUMBER_NAMES[] = {
    "StoreSubsystemType", "TraceFileMaxSize", "AsyncCreateSnapshot",      "AutoShutdown",
    "MaxTesseraWait",     "MaxVssWait",       "UpdateReplicorOnSnapshot", "EnableTxfRecovery",
    "EnableDatasets",     "TraceFile"};

TEST_F(ConfigTest, MissingKeyIsCreatedAndEveryValueKeepsItsDefault)
{
    ASSERT_HR(S_OK, CConfig::ReadRegValues());

    CRegKey key;
    EXPECT_EQ(ERROR_SUCCESS, key.Open(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_READ));
    EXPECT_EQ(1u, CountInOutput("regKey.Open on " + KEY_TEXT + " regkey FAILED [error=2]\n"));
    EXPECT_EQ(10u, CountInOutput("regval [error=13]\n"));
    for (const char* pszName : NUMBER_NAMES)
        EXPECT_EQ(1u, CountInOutput(std::string("regKey.QueryValue on ") + pszName +
                                    " regval [error=13]\n"))
            << pszName;
    EXPECT_EQ(0u, CountInOutput("regKey.QueryValue on TraceMask"));

    EXPECT_EQ(4u, CConfig::GetTraceMask());
    EXPECT_EQ(1u, CConfig::GetStoreSubsystemType());
    EXPECT_EQ(10485760u, CConfig::GetTraceFileMaxSize());
    EXPECT_EQ(1u, CConfig::GetAsyncCreateSnapshot());
    EXPECT_EQ(1u, CConfig::GetAutoShutdown());
    EXPECT_EQ(600u, CConfig::GetMaxTesseraWait());
    EXPECT_EQ(1200u, CConfig::GetMaxVssWait());
    EXPECT_EQ(0u, CConfig::GetUpdateReplicorOnSnapshot());
    EXPECT_FALSE(CConfig::IsTxfRecoveryEnabled());
    EXPECT_FALSE(CConfig::IsDatasetsEnabled());
    EXPECT_EQ(u"orvp", std::u16string(CConfig::GetTraceFile()));
}

TEST_F(ConfigTest, ValuesAreReadIntoTheirMembersAndTraced)
{
    TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
    SetDword(W("StoreSubsystemType"), 7);
    SetDword(W("TraceFileMaxSize"), 200000);
    SetDword(W("AsyncCreateSnapshot"), 0);
    SetDword(W("AutoShutdown"), 0);
    SetDword(W("MaxTesseraWait"), 30);
    SetDword(W("MaxVssWait"), 45);
    SetDword(W("UpdateReplicorOnSnapshot"), 1);
    SetDword(W("EnableTxfRecovery"), 2);
    SetDword(W("EnableDatasets"), 1);
    SetString(W("TraceFile"), u"trc");
    ASSERT_HR(S_OK, CConfig::ReadRegValues());

    EXPECT_EQ(7u, CConfig::GetStoreSubsystemType());
    EXPECT_EQ(200000u, CConfig::GetTraceFileMaxSize());
    EXPECT_EQ(0u, CConfig::GetAsyncCreateSnapshot());
    EXPECT_EQ(0u, CConfig::GetAutoShutdown());
    EXPECT_EQ(30u, CConfig::GetMaxTesseraWait());
    EXPECT_EQ(45u, CConfig::GetMaxVssWait());
    EXPECT_EQ(1u, CConfig::GetUpdateReplicorOnSnapshot());
    EXPECT_TRUE(CConfig::IsTxfRecoveryEnabled());
    EXPECT_TRUE(CConfig::IsDatasetsEnabled());
    EXPECT_EQ(u"trc", std::u16string(CConfig::GetTraceFile()));

    const char* const lines[] = {
        "sm_dwTraceMask=4\n",
        "sm_dwStoreSubsystemType=7\n",
        "sm_dwTraceFileMaxSize=200000\n",
        "sm_dwAsyncCreateSnapshot=0\n",
        "sm_dwAutoShutdown=0\n",
        "sm_dwMaxTesseraWait=30\n",
        "sm_dwMaxVssWait=45\n",
        "sm_dwUpdateReplicorOnSnapshot=1\n",
        "sm_fTxfRecoveryEnabled=TRUE\n",
        "sm_szTraceFile=trc\n",
    };
    size_t at = 0;
    for (const char* pszLine : lines) {
        size_t found = Output().find(pszLine, at);
        ASSERT_NE(std::string::npos, found) << "in order: " << pszLine;
        at = found;
    }
    EXPECT_EQ(std::string::npos, Output().find("regval [error="));
    EXPECT_EQ(std::string::npos, Output().find("Datasets="));
}

TEST_F(ConfigTest, LatchesAndKeptValuesSurviveLaterReads)
{
    SetDword(W("EnableTxfRecovery"), 1);
    SetDword(W("EnableDatasets"), 5);
    SetDword(W("MaxVssWait"), 30);
    ASSERT_HR(S_OK, CConfig::ReadRegValues());

    SetDword(W("EnableTxfRecovery"), 0);
    DeleteValue(W("EnableDatasets"));
    DeleteValue(W("MaxVssWait"));
    ASSERT_HR(S_OK, CConfig::ReadRegValues());
    EXPECT_TRUE(CConfig::IsTxfRecoveryEnabled());
    EXPECT_TRUE(CConfig::IsDatasetsEnabled());
    EXPECT_EQ(30u, CConfig::GetMaxVssWait());
}

TEST_F(ConfigTest, TraceFilePrefixLimitsAndTypes)
{
    struct Case
    {
        const char* pszName;
        std::u16string value; // empty: stored as a 32-bit number instead
        std::u16string expected;
        const char* pszError; // expected failure line's error, or nullptr
    };
    const Case cases[] = {
        {"129 characters", std::u16string(129, u'p'), std::u16string(129, u'p'), nullptr},
        {"130 characters", std::u16string(130, u'p'), u"orvp", "[error=234]"},
        {"wrong type", u"", u"orvp", "[error=13]"},
        {"ordinary", u"mytrace", u"mytrace", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszName);
        if (c.value.empty())
            SetDword(W("TraceFile"), 17);
        else
            SetString(W("TraceFile"), c.value);
        Output();
        ASSERT_HR(S_OK, CConfig::ReadRegValues());
        EXPECT_EQ(c.expected, std::u16string(CConfig::GetTraceFile()));
        size_t failures = CountInOutput("regKey.QueryValue on TraceFile regval ");
        EXPECT_EQ(c.pszError ? 1u : 0u, failures);
        if (c.pszError) {
            EXPECT_NE(std::string::npos,
                      Output().find(std::string("TraceFile regval ") + c.pszError));
        }
        pal::TakeDebugOutput();
        const_cast<std::string&>(Output()).clear();
    }
}

TEST_F(ConfigTest, WrongTypeOfANumberLeavesTheMember)
{
    SetDword(W("MaxTesseraWait"), 90);
    ASSERT_HR(S_OK, CConfig::ReadRegValues());
    SetString(W("MaxTesseraWait"), u"120");
    SetString(W("TraceMask"), u"1");
    ASSERT_HR(S_OK, CConfig::ReadRegValues());
    EXPECT_EQ(90u, CConfig::GetMaxTesseraWait());
    EXPECT_EQ(4u, CConfig::GetTraceMask());
    EXPECT_EQ(1u, CountInOutput("regKey.QueryValue on MaxTesseraWait regval [error=13]\n"));
}

TEST_F(ConfigTest, KeyNeitherOpenableNorCreatableFailsInitialize)
{
    pal::InjectFault("RegOpenKeyExW", ERROR_ACCESS_DENIED);
    pal::InjectFault("RegCreateKeyExW", ERROR_ACCESS_DENIED);
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), CConfig::Initialize());
    EXPECT_EQ(1u, CountInOutput("regKey.Open on " + KEY_TEXT + " regkey FAILED [error=5]\n"));
    EXPECT_EQ(1u, CountInOutput("regKey.Create on " + KEY_TEXT + " regkey FAILED [error=5]\n"));
    EXPECT_EQ(1u, CountInOutput("ReadRegValues FAILED [hr=0x80070005]\n"));
    EXPECT_EQ(u"", std::u16string(CConfig::GetTraceFile()));
    EXPECT_EQ(4u, CConfig::GetTraceMask());
}

TEST_F(ConfigTest, ReopenAfterCreationCanFail)
{
    pal::InjectFault("RegOpenKeyExW", ERROR_FILE_NOT_FOUND, 2);
    CreateParametersKey();
    pal::InjectFault("RegOpenKeyExW", ERROR_ACCESS_DENIED);
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), CConfig::ReadRegValues());
    EXPECT_EQ(2u, CountInOutput("regKey.Open on " + KEY_TEXT + " regkey FAILED [error=5]\n"));
}

TEST_F(ConfigTest, WatcherStartFailuresReleaseEverything)
{
    struct Case
    {
        const char* pszApi;
        ULONG nth;
        DWORD dwError;
        std::string line;
    };
    const Case cases[] = {
        // The first open is the read, the second the notification handle.
        {"RegOpenKeyExW", 2, ERROR_ACCESS_DENIED, "RegOpenKeyEx FAILED [dwError=0x00000005]\n"},
        {"CreateEventW", 0, ERROR_NOT_ENOUGH_MEMORY, "CreateEvent FAILED [dwError=0x00000008]\n"},
        {"CreateThread", 0, ERROR_NOT_ENOUGH_MEMORY, "CreateThread FAILED [dwError=0x00000008]\n"},
    };
    CreateParametersKey();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszApi);
        pal::ClearFaults();
        pal::InjectFault(c.pszApi, c.dwError, c.nth);
        EXPECT_HR(HRESULT_FROM_WIN32(c.dwError), CConfig::Initialize());
        EXPECT_EQ(1u, CountInOutput(c.line));
        EXPECT_NE(std::string::npos, Output().find("CreateRegThread FAILED [hr=0x8007"));
        // Nothing is left open: a new start succeeds and Terminate finds nothing to close.
        pal::ClearFaults();
        EXPECT_HR(S_OK, CConfig::Initialize());
        EXPECT_HR(S_OK, CConfig::Terminate());
        pal::TakeDebugOutput();
        const_cast<std::string&>(Output()).clear();
    }
}

TEST_F(ConfigTest, SecondInitializeFindsItAlreadyDoneAndTerminateStartsAfresh)
{
    TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
    ASSERT_HR(S_OK, CConfig::Initialize());
    EXPECT_HR(S_OK, CConfig::Initialize());
    EXPECT_EQ(1u, CountInOutput("Already initialized\n"));
    EXPECT_HR(S_OK, CConfig::Terminate());
    EXPECT_EQ(1u, CountInOutput("Waiting for RegThread to exit\n"));
    EXPECT_EQ(1u, CountInOutput("**** RegThread exits\n"));
    EXPECT_HR(S_OK, CConfig::Initialize());
    EXPECT_EQ(1u, CountInOutput("Already initialized\n"));
}

TEST_F(ConfigTest, TerminateWithoutAWatcherJustClearsTheFlags)
{
    EXPECT_HR(S_OK, CConfig::Terminate());
    EXPECT_EQ(0u, CountInOutput("Waiting for RegThread"));
    EXPECT_HR(S_OK, CConfig::Initialize());
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
