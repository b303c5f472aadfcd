// CrackLunPath2: "filer:LUN path:snapshot name" split at the first two ':', with no partial
// result on any failure.
#include "diag/trace.h"
#include "pal/combaseapi.h"
#include "pal/winerror.h"
#include "provider/lunpath.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include <string>
#include <vector>

namespace {

using orvtest::Narrow;
using orvtest::TakeTraceText;

class CrackLunPath2Test : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
    }
};

// Values the out-parameters hold before the call, to see that a failure leaves them alone.
LPWSTR Sentinel(int i)
{
    return reinterpret_cast<LPWSTR>(static_cast<UINT_PTR>(0x1000 + i * 0x10));
}

struct Parts
{
    LPWSTR pszFiler = Sentinel(1);
    LPWSTR pszLunPath = Sentinel(2);
    LPWSTR pszSnapshot = Sentinel(3);

    HRESULT Crack(LPCWSTR pszPath2)
    {
        return CrackLunPath2(pszPath2, &pszFiler, &pszLunPath, &pszSnapshot);
    }
    bool Untouched() const
    {
        return pszFiler == Sentinel(1) && pszLunPath == Sentinel(2) && pszSnapshot == Sentinel(3);
    }
    std::vector<std::string> Texts() const
    {
        return {Narrow(pszFiler), Narrow(pszLunPath), Narrow(pszSnapshot)};
    }
    void Free()
    {
        CoTaskMemFree(pszFiler);
        CoTaskMemFree(pszLunPath);
        CoTaskMemFree(pszSnapshot);
    }
};

TEST_F(CrackLunPath2Test, SplitsAtTheFirstTwoSeparators)
{
    const struct
    {
        std::u16string path2;
        std::vector<std::string> parts;
    } cases[] = {
        {u"f1:/v1/lun1:snap:1", {"f1", "/v1/lun1", "snap:1"}},
        {u"::", {"", "", ""}},
        {u"f1:/vol/vol1/lun1:orvsnap_{0a1b}", {"f1", "/vol/vol1/lun1", "orvsnap_{0a1b}"}},
        {u"f1:/v1/lun1:", {"f1", "/v1/lun1", ""}},
        {u":/v1/lun1:s", {"", "/v1/lun1", "s"}},
        {u"f1::s", {"f1", "", "s"}},
        {u"a:b:c:d:e", {"a", "b", "c:d:e"}},
        {u":::", {"", "", ":"}},
    };
    for (const auto& c : cases) {
        std::u16string input = c.path2;
        Parts parts;
        ASSERT_HR(S_OK, parts.Crack(input.c_str())) << Narrow(c.path2);
        EXPECT_EQ(c.parts, parts.Texts());
        EXPECT_EQ(c.path2, input) << "the input is not changed";
        parts.Free();
    }
}

TEST_F(CrackLunPath2Test, BadArgumentsLeaveTheOutputsAloneAndAllocateNothing)
{
    pal::FailTaskAllocAt(1000);
    for (LPCWSTR pszPath2 :
         {LPCWSTR(nullptr), W(""), W("f1"), W("f1:/v1/lun1"), W(":"), W("f1:")}) {
        Parts parts;
        EXPECT_HR(E_INVALIDARG, parts.Crack(pszPath2))
            << (pszPath2 ? Narrow(pszPath2) : std::string("NULL"));
        EXPECT_TRUE(parts.Untouched());
    }
    LPWSTR psz1 = nullptr;
    LPWSTR psz2 = nullptr;
    EXPECT_HR(E_POINTER, CrackLunPath2(W("a:b:c"), nullptr, &psz1, &psz2));
    EXPECT_HR(E_POINTER, CrackLunPath2(W("a:b:c"), &psz1, nullptr, &psz2));
    EXPECT_HR(E_POINTER, CrackLunPath2(W("a:b:c"), &psz1, &psz2, nullptr));
    EXPECT_EQ(nullptr, psz1);
    EXPECT_EQ(nullptr, psz2);
    EXPECT_EQ(0u, pal::TaskAllocations());
}

TEST_F(CrackLunPath2Test, AllocationFailureSweepGivesOutOfMemoryAndNoPartialResult)
{
    ULONG n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 10u) << "the operation never succeeded";
        Parts parts;
        pal::FailTaskAllocAt(n);
        HRESULT hr = parts.Crack(W("f1:/v1/lun1:snap:1"));
        pal::FailTaskAllocAt(0);
        if (hr == S_OK) {
            EXPECT_EQ((std::vector<std::string>{"f1", "/v1/lun1", "snap:1"}), parts.Texts());
            parts.Free();
            break;
        }
        EXPECT_HR(E_OUTOFMEMORY, hr) << "n=" << n;
        EXPECT_TRUE(parts.Untouched()) << "n=" << n;
    }
    EXPECT_EQ(4u, n) << "one allocation per part";
}

TEST_F(CrackLunPath2Test, RunsInsideItsTraceScope)
{
    TraceSetLevel(TRACE_LEVEL_VERBOSE);
    Parts parts;
    ASSERT_HR(S_OK, parts.Crack(W("a:b:c")));
    parts.Free();
    EXPECT_HR(E_INVALIDARG, parts.Crack(W("a")));
    EXPECT_EQ("CrackLunPath2() entered\nCrackLunPath2() exited\n"
              "CrackLunPath2() entered\nCrackLunPath2() exited\n",
              TakeTraceText());
    TraceSetLevel(TRACE_LEVEL_INFO);
    EXPECT_HR(E_INVALIDARG, parts.Crack(W("a")));
    EXPECT_EQ("", TakeTraceText());
}

} // namespace
