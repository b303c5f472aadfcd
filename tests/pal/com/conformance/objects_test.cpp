// Interface ids and their text, and the thread's error object.
#include "tests/pal/com/com_testing.h"

#include <string>

namespace {

using ComIds = orvtest::ConformanceTest;
using ErrorInfoTest = orvtest::com::ComTest;

TEST_F(ComIds, UuidOfNamesTheIidAndPublicIdsAreThePublishedOnes)
{
    const struct
    {
        IID iid;
        IID uuidof;
        const char* text; // null for ids of no other program's concern
    } cases[] = {
        {IID_IUnknown, __uuidof(IUnknown), nullptr},
        {IID_IClassFactory, __uuidof(IClassFactory), "{00000001-0000-0000-C000-000000000046}"},
        {IID_ICallFactory, __uuidof(ICallFactory), "{1C733A30-2A1C-11CE-ADE5-00AA0044773D}"},
        {IID_IConnectionPointContainer, __uuidof(IConnectionPointContainer),
         "{B196B284-BAB4-101A-B69C-00AA00341D07}"},
        {IID_IEnumConnectionPoints, __uuidof(IEnumConnectionPoints),
         "{B196B285-BAB4-101A-B69C-00AA00341D07}"},
        {IID_IConnectionPoint, __uuidof(IConnectionPoint),
         "{B196B286-BAB4-101A-B69C-00AA00341D07}"},
        {IID_IEnumConnections, __uuidof(IEnumConnections),
         "{B196B287-BAB4-101A-B69C-00AA00341D07}"},
        {IID_ISupportErrorInfo, __uuidof(ISupportErrorInfo),
         "{DF0B3D60-548F-101B-8E65-08002B2BD119}"},
        {IID_IErrorInfo, __uuidof(IErrorInfo), nullptr},
        {orvtest::com::IID_IWidget, __uuidof(IWidget), nullptr},
    };
    for (const auto& c : cases) {
        WCHAR sz[39];
        StringFromGUID2(c.iid, sz, 39);
        SCOPED_TRACE(orvtest::Narrow(sz));
        EXPECT_TRUE(IsEqualIID(c.iid, c.uuidof));
        if (c.text) {
            EXPECT_EQ(c.text, orvtest::Narrow(sz));
        }
    }
}

TEST_F(ErrorInfoTest, ErrorObjectIsTakenOnceAndReplaced)
{
    ICreateErrorInfo* pCreate = nullptr;
    ASSERT_HR(S_OK, CreateErrorInfo(&pCreate));
    WCHAR szDescription[] = W("first");
    EXPECT_HR(S_OK, pCreate->SetDescription(szDescription));
    IErrorInfo* pInfo = nullptr;
    ASSERT_HR(S_OK, pCreate->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&pInfo)));
    EXPECT_HR(S_OK, SetErrorInfo(0, pInfo));
    IErrorInfo* pTaken = nullptr;
    EXPECT_HR(S_OK, GetErrorInfo(0, &pTaken));
    EXPECT_EQ(pInfo, pTaken);
    pTaken->Release();
    EXPECT_HR(S_FALSE, GetErrorInfo(0, &pTaken));
    EXPECT_EQ(nullptr, pTaken);
    // SetErrorInfo(NULL) clears what was left.
    EXPECT_HR(S_OK, SetErrorInfo(0, pInfo));
    EXPECT_HR(S_OK, SetErrorInfo(0, nullptr));
    EXPECT_HR(S_FALSE, GetErrorInfo(0, &pTaken));
    EXPECT_HR(E_INVALIDARG, GetErrorInfo(1, &pTaken));
    EXPECT_HR(E_INVALIDARG, SetErrorInfo(1, pInfo));
    pInfo->Release();
    EXPECT_EQ(0u, pCreate->Release());
}

} // namespace
