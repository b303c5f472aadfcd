// Trace lines: prefix, indentation by scope depth, levels, assertion and COM error lines.
#include "pal/oaidl.h"
#include "pal/processthreadsapi.h"
#include "pal/winuser.h"
#include "tests/diag/support/tracefixture.h"

#include <regex>
#include <string>
#include <vector>

namespace {

using orvtest::Narrow;
using orvtest::TraceTest;
using TraceLineTest = TraceTest;

std::vector<std::string> Pieces()
{
    std::vector<std::string> pieces;
    for (const auto& piece : pal::TakeDebugOutput())
        pieces.push_back(Narrow(piece));
    return pieces;
}

std::string ExpectedPrefixPattern()
{
    char szId[16];
    wsprintfA(szId, "%06d", GetCurrentThreadId());
    return std::string("\\[") + szId + "\\] \\[03/07 10:20:\\d\\d \\d\\d\\d\\] ";
}

TEST_F(TraceLineTest, FirstLineOfAThreadHasNoPrefixTheNextOneHas)
{
    SetDate(3, 7, 10, 20);
    TraceW(W("first\n"));
    TraceW(W("second "));
    TraceW(W("continued\n"));
    std::vector<std::string> pieces = Pieces();
    ASSERT_EQ(4u, pieces.size());
    EXPECT_EQ("first\n", pieces[0]);
    EXPECT_TRUE(std::regex_match(pieces[1], std::regex(ExpectedPrefixPattern()))) << pieces[1];
    EXPECT_EQ("second ", pieces[2]);
    EXPECT_EQ("continued\n", pieces[3]);
}

TEST_F(TraceLineTest, EmptyTextDoesNotEndALine)
{
    TraceW(W("x\n"));
    TraceW(W(""));
    TraceW(W("y\n"));
    std::vector<std::string> pieces = Pieces();
    ASSERT_EQ(4u, pieces.size()); // "x\n", prefix, "", "y\n": no second prefix
    EXPECT_EQ("", pieces[2]);
    EXPECT_EQ("y\n", pieces[3]);
}

TEST_F(TraceLineTest, NestedScopesIndentByFourUpToOneHundred)
{
    struct Case
    {
        int nDepth;
        size_t cchIndent;
    };
    const Case cases[] = {{1, 4}, {3, 12}, {25, 100}, {26, 100}, {30, 100}};
    for (const Case& c : cases) {
        TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
        TraceW(W("start\n"));
        std::vector<std::unique_ptr<CTraceScope>> scopes;
        for (int i = 0; i < c.nDepth; ++i)
            scopes.push_back(std::make_unique<CTraceScope>(W("Scope")));
        pal::TakeDebugOutput();
        TraceW(W("inner\n"));
        std::vector<std::string> pieces = Pieces();
        ASSERT_EQ(3u, pieces.size()) << c.nDepth;
        EXPECT_EQ(std::string(c.cchIndent, ' '), pieces[1]) << c.nDepth;
        while (!scopes.empty())
            scopes.pop_back();
        TraceW(W("outer\n"));
        EXPECT_EQ(2u, Pieces().size()) << "no indentation left after the scopes";
    }
}

TEST_F(TraceLineTest, ScopeWritesEnteredAndExitedAtLevelFour)
{
    TraceW(W("\n"));
    {
        CTraceScope scope(W("CConfig::Initialize"));
        TraceW(W("body\n"));
    }
    std::vector<std::string> pieces = Pieces();
    // "\n", prefix, entered, prefix, 4 spaces, body, prefix, exited
    ASSERT_EQ(8u, pieces.size());
    EXPECT_EQ("CConfig::Initialize() entered\n", pieces[2]);
    EXPECT_EQ("    ", pieces[4]);
    EXPECT_EQ("body\n", pieces[5]);
    EXPECT_EQ("CConfig::Initialize() exited\n", pieces[7]);
}

TEST_F(TraceLineTest, ScopeBelowLevelFourIndentsSilently)
{
    TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
    TraceW(W("\n"));
    {
        CTraceScope scope(W("Quiet"));
        TRACE(TRACE_LEVEL_INFO, W("progress %d\n"), 7);
        TRACE(TRACE_LEVEL_VERBOSE, W("filtered\n"));
    }
    std::vector<std::string> pieces = Pieces();
    ASSERT_EQ(4u, pieces.size());
    EXPECT_EQ("    ", pieces[2]);
    EXPECT_EQ("progress 7\n", pieces[3]);
}

TEST_F(TraceLineTest, LevelZeroFiltersEveryLevelButUnconditionalLinesStillGoOut)
{
    TraceInit(0, nullptr, nullptr, 0);
    TRACE(TRACE_LEVEL_ERROR, W("failure\n"));
    TraceW(W("unconditional\n"));
    EXPECT_EQ("unconditional\n", pal::TakeDebugOutputText());
}

TEST_F(TraceLineTest, LongLinesAreCutAt1024Characters)
{
    std::u16string text(2000, u'w');
    TraceW(W("%s"), text.c_str());
    std::vector<std::string> pieces = Pieces();
    ASSERT_EQ(1u, pieces.size());
    EXPECT_EQ(1024u, pieces[0].size());
}

TEST_F(TraceLineTest, AssertLineHasTheExactFormat)
{
    TraceAssert("pList != NULL", "core.cpp", 42, 5);
    EXPECT_EQ("ASSERT (pList != NULL) FAILED [File=\"core.cpp\", Line=42, LastError=0x00000005]\n",
              pal::TakeDebugOutputText());
}

// A COM object that can refuse ISupportErrorInfo or fail InterfaceSupportsErrorInfo.
class CTestObject : public ISupportErrorInfo
{
public:
    CTestObject(bool fSupport, HRESULT hrSupports) : m_fSupport(fSupport), m_hr(hrSupports) {}
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        *ppv = nullptr;
        if (IsEqualIID(riid, IID_IUnknown) ||
            (m_fSupport && IsEqualIID(riid, IID_ISupportErrorInfo))) {
            *ppv = this;
            AddRef();
            return S_OK;
        }
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_cRef; }
    STDMETHODIMP_(ULONG) Release() override { return --m_cRef; }
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID) override { return m_hr; }
    ULONG m_cRef = 1;

private:
    bool m_fSupport;
    HRESULT m_hr;
};

void SetThreadError(LPCWSTR pszSource, LPCWSTR pszDescription)
{
    ICreateErrorInfo* pCreate = nullptr;
    ASSERT_EQ(S_OK, CreateErrorInfo(&pCreate));
    pCreate->SetSource(const_cast<LPOLESTR>(pszSource));
    pCreate->SetDescription(const_cast<LPOLESTR>(pszDescription));
    IErrorInfo* pInfo = nullptr;
    pCreate->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&pInfo));
    SetErrorInfo(0, pInfo);
    pInfo->Release();
    pCreate->Release();
}

TEST_F(TraceLineTest, ComExceptionLines)
{
    struct Case
    {
        const char* pszName;
        bool fSupport;
        HRESULT hrSupports;
        LPCWSTR pszErrorSource; // nullptr: no error object on the thread
        LPCWSTR pszDescription;
        std::string expected;
    };
    const Case cases[] = {
        {"no ISupportErrorInfo", false, S_OK, nullptr, nullptr,
         "QueryInterface on IID_ISupportErrorInfo FAILED [hr=0x80004002, "
         "psei=0000000000000000]\n"},
        {"interface not supported", true, E_FAIL, W("src"), W("desc"),
         "InterfaceSupportsErrorInfo FAILED [hr=0x80004005]\n"},
        {"no error object", true, S_OK, nullptr, nullptr,
         "GetErrorInfo FAILED [hr=0x00000001, psei=0000000000000000]\n"},
        {"no description", true, S_FALSE, W("Tessera.Lun"), nullptr,
         "NULL bstrDescp and/or bstrSource\n"},
        {"full", true, S_OK, W("Tessera.Lun"), W("LUN is offline"),
         "**** Tessera COM Exception: source=Tessera.Lun, description=LUN is offline\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszName);
        SetErrorInfo(0, nullptr);
        if (c.pszErrorSource)
            SetThreadError(c.pszErrorSource, c.pszDescription);
        CTestObject object(c.fSupport, c.hrSupports);
        TraceInit(TRACE_LEVEL_ERROR, nullptr, nullptr, 0);
        TraceComException(W("Tessera"), &object, IID_IUnknown);
        EXPECT_EQ(c.expected, pal::TakeDebugOutputText());
        EXPECT_EQ(1u, object.m_cRef) << "every interface released";
    }
    SetErrorInfo(0, nullptr);
}

} // namespace
