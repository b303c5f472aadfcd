// Trace lines: prefix, indentation by scope depth, levels, assertion and COM error lines.
#include "pal/oaidl.h"
#include "pal/processthreadsapi.h"
#include "pal/winuser.h"
#include "tests/diag/support/diagfixture.h"

#include <regex>
#include <string>
#include <vector>

namespace {

using TraceLineTest = orvtest::TraceTest;
using Pieces = std::vector<std::string>;

// The separate writes sent to the debugger output since the last call.
Pieces TakePieces()
{
    Pieces pieces;
    for (const auto& piece : pal::TakeDebugOutput())
        pieces.push_back(orvtest::Narrow(piece));
    return pieces;
}

TEST_F(TraceLineTest, FirstLineOfAThreadHasNoPrefixTheNextOneHas)
{
    SetDate(3, 7, 10, 20);
    TraceW(W("first\n"));
    TraceW(W("second "));
    TraceW(W("continued\n"));
    TraceW(W(""));
    TraceW(W("third\n"));
    Pieces pieces = TakePieces();
    // An empty text does not end a line: no prefix before "third".
    ASSERT_EQ(7u, pieces.size());
    char szId[16];
    wsprintfA(szId, "%06d", GetCurrentThreadId());
    const std::regex prefix(std::string("\\[") + szId + "\\] \\[03/07 10:20:\\d\\d \\d\\d\\d\\] ");
    EXPECT_EQ("first\n", pieces[0]);
    EXPECT_TRUE(std::regex_match(pieces[1], prefix)) << pieces[1];
    EXPECT_EQ((Pieces{"second ", "continued\n"}), Pieces(pieces.begin() + 2, pieces.begin() + 4));
    EXPECT_TRUE(std::regex_match(pieces[4], prefix)) << pieces[4];
    EXPECT_EQ((Pieces{"", "third\n"}), Pieces(pieces.begin() + 5, pieces.end()));
}

TEST_F(TraceLineTest, NestedScopesIndentByFourUpToOneHundred)
{
    const struct
    {
        int nDepth;
        size_t cchIndent;
    } cases[] = {{1, 4}, {3, 12}, {25, 100}, {26, 100}, {30, 100}};
    for (const auto& c : cases) {
        TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
        TraceW(W("start\n"));
        std::vector<std::unique_ptr<CTraceScope>> scopes;
        for (int i = 0; i < c.nDepth; ++i)
            scopes.push_back(std::make_unique<CTraceScope>(W("Scope")));
        pal::TakeDebugOutput();
        TraceW(W("inner\n"));
        Pieces pieces = TakePieces();
        ASSERT_EQ(3u, pieces.size()) << c.nDepth;
        EXPECT_EQ(std::string(c.cchIndent, ' '), pieces[1]) << c.nDepth;
        scopes.clear();
        TraceW(W("outer\n"));
        EXPECT_EQ(2u, TakePieces().size()) << "no indentation left after the scopes";
    }
}

TEST_F(TraceLineTest, ScopeWritesEnteredAndExitedAtLevelFourAndIndentsSilentlyBelow)
{
    TraceW(W("\n"));
    {
        CTraceScope scope(W("CConfig::Initialize"));
        TraceW(W("body\n"));
    }
    Pieces pieces = TakePieces();
    // "\n", prefix, entered, prefix, 4 spaces, body, prefix, exited
    ASSERT_EQ(8u, pieces.size());
    EXPECT_EQ("CConfig::Initialize() entered\n", pieces[2]);
    EXPECT_EQ("    ", pieces[4]);
    EXPECT_EQ("body\n", pieces[5]);
    EXPECT_EQ("CConfig::Initialize() exited\n", pieces[7]);

    TraceSetLevel(TRACE_LEVEL_INFO);
    {
        CTraceScope scope(W("Quiet"));
        TRACE(TRACE_LEVEL_INFO, W("progress %d\n"), 7);
        TRACE(TRACE_LEVEL_VERBOSE, W("filtered\n"));
    }
    pieces = TakePieces();
    ASSERT_EQ(3u, pieces.size());
    EXPECT_EQ("    ", pieces[1]);
    EXPECT_EQ("progress 7\n", pieces[2]);
}

TEST_F(TraceLineTest, LevelsLineLengthAndTheAssertLine)
{
    TraceInit(0, nullptr, nullptr, 0);
    TRACE(TRACE_LEVEL_ERROR, W("failure\n"));
    TraceW(W("unconditional\n"));
    EXPECT_EQ("unconditional\n", pal::TakeDebugOutputText()) << "level 0 filters every level";

    TraceInit(TRACE_LEVEL_ERROR, nullptr, nullptr, 0);
    TraceW(W("%s"), std::u16string(2000, u'w').c_str());
    Pieces pieces = TakePieces();
    ASSERT_EQ(1u, pieces.size());
    EXPECT_EQ(1024u, pieces[0].size()) << "a line is cut at 1024 characters";

    TraceInit(TRACE_LEVEL_ERROR, nullptr, nullptr, 0);
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

TEST_F(TraceLineTest, ComExceptionLines)
{
    const struct
    {
        bool fSupport;
        HRESULT hrSupports;
        LPCWSTR pszErrorSource; // nullptr: no error object on the thread
        LPCWSTR pszDescription;
        std::string expected;
    } cases[] = {
        {false, S_OK, nullptr, nullptr,
         "QueryInterface on IID_ISupportErrorInfo FAILED [hr=0x80004002, "
         "psei=0000000000000000]\n"},
        {true, E_FAIL, W("src"), W("desc"), "InterfaceSupportsErrorInfo FAILED [hr=0x80004005]\n"},
        {true, S_OK, nullptr, nullptr,
         "GetErrorInfo FAILED [hr=0x00000001, psei=0000000000000000]\n"},
        {true, S_FALSE, W("Tessera.Lun"), nullptr, "NULL bstrDescp and/or bstrSource\n"},
        {true, S_OK, W("Tessera.Lun"), W("LUN is offline"),
         "**** Tessera COM Exception: source=Tessera.Lun, description=LUN is offline\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        SetErrorInfo(0, nullptr);
        if (c.pszErrorSource) {
            ICreateErrorInfo* pCreate = nullptr;
            ASSERT_EQ(S_OK, CreateErrorInfo(&pCreate));
            pCreate->SetSource(const_cast<LPOLESTR>(c.pszErrorSource));
            pCreate->SetDescription(const_cast<LPOLESTR>(c.pszDescription));
            IErrorInfo* pInfo = nullptr;
            pCreate->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&pInfo));
            SetErrorInfo(0, pInfo);
            pInfo->Release();
            pCreate->Release();
        }
        CTestObject object(c.fSupport, c.hrSupports);
        TraceInit(TRACE_LEVEL_ERROR, nullptr, nullptr, 0);
        TraceComException(W("Tessera"), &object, IID_IUnknown);
        EXPECT_EQ(c.expected, pal::TakeDebugOutputText());
        EXPECT_EQ(1u, object.m_cRef) << "every interface released";
    }
    SetErrorInfo(0, nullptr);
}

} // namespace
