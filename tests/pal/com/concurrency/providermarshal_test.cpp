// The VSS provider interfaces and IOrvaneHardwareProvider across processes: every method of the
// test provider of the test COM server (program/comserver.cpp) called from here, with what the
// provider says it received, its HRESULT, the [in,out] records it rewrote as they came back, the
// proxies' refusals, and the OnLoad callback called back in this process.
#include "pal/palcontrol.h"
#include "tests/pal/com/com_testing.h"
#include "tests/pal/com/program/echo.h"
#include "tests/pal/com/program/provider.h"
#include "tests/support/pipedchild.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace orvtest::com;
using orvtest::CLunBuilder;
using orvtest::CLunRecord;
using Lun = VDS_LUN_INFORMATION;

// Two records as VSS hands them over: one with every kind of field, one with none.
CLunBuilder SourceLun(int i)
{
    return i ? CLunBuilder()
             : CLunBuilder::OrvaneLun().ProductId("").ProductRevision(nullptr).AddIdentifier(
                   VDSStorageIdCodeSetBinary, VDSStorageIdTypeFCPHName, std::string("\0\x80", 2));
}

struct CLuns
{
    explicit CLuns(int iFirst = 0)
    {
        SourceLun(iFirst).Build(rg[0]);
        SourceLun(1 - iFirst).Build(rg[1]);
    }
    ~CLuns()
    {
        orvtest::FreeLunInformation(rg[0]);
        orvtest::FreeLunInformation(rg[1]);
    }
    Lun rg[2] = {};
};

using ProviderMarshalTest = ComTest;

TEST_F(ProviderMarshalTest, CarriesEveryMethodAndItsRecordsBothWays)
{
    orvtest::CPipedChild server(ORV_COMSERVER_EXE, {"serve", "journal"});
    ASSERT_EQ("ready\n", server.Line());
    CComPtr<IVssHardwareSnapshotProviderEx> p;
    CComPtr<IVssProviderCreateSnapshotSet> pSet;
    CComPtr<IVssProviderNotifications> pNotifications;
    CComPtr<IOrvaneHardwareProvider> pOrvane;
    ASSERT_HR(S_OK, p.CoCreateInstance(CLSID_TestProvider, nullptr, CLSCTX_LOCAL_SERVER));
    ASSERT_HR(S_OK, p.QueryInterface(&pSet));
    ASSERT_HR(S_OK, p.QueryInterface(&pNotifications));
    ASSERT_HR(S_OK, p.QueryInterface(&pOrvane));
    CLuns src, reversed(1), supported, filled, prepared, targets, starved;
    CLunRecord rewritten0(RewrittenLun(0)), rewritten1(RewrittenLun(1));
    VSS_PWSZ names[] = {const_cast<WCHAR*>(W("\\\\?\\disk1")), nullptr};
    WCHAR szEmpty[1] = {};
    VSS_ID set = {1, 2, 3, {4}}, id = {5, 6, 7, {8}};
    BOOL fSupported = FALSE, fFilled = FALSE, fStarved = FALSE;
    ULONGLONG ullMask = 0;
    CComPtr<ITestEcho> pCallback; // an object of this process, for OnLoad
    pCallback.Attach(CEcho::Create());
    auto* pAsync = reinterpret_cast<IVssAsync*>(pCallback.p);
    BSTR bstrName = SysAllocStringLen(W("snap\0shot"), 9), bstrEmpty = SysAllocString(W(""));
    const HRESULT hrNullRef = HRESULT_FROM_WIN32(RPC_X_NULL_REF_POINTER);
    struct
    {
        HRESULT hr;
        std::string line; // empty: the server heard nothing
        std::function<HRESULT()> call;
    } const kRows[] = {
        {S_OK, Line("AreLunsSupported", 2, 5, Texts(names, 2), Texts(supported.rg, 2)),
         [&] { return p->AreLunsSupported(2, 5, names, supported.rg, &fSupported); }},
        {S_OK, Line("FillInLunInfo", names[0], filled.rg[0]),
         [&] { return p->FillInLunInfo(names[0], filled.rg, &fFilled); }},
        {S_OK, Line("FillInLunInfo", names[1], *rewritten0),
         [&] { return p->FillInLunInfo(nullptr, filled.rg, &fFilled); }},
        {VSS_E_PROVIDER_VETO,
         Line("BeginPrepareSnapshot", set, id, 5, 2, Texts(names, 2), Texts(prepared.rg, 2)),
         [&] { return p->BeginPrepareSnapshot(set, id, 5, 2, names, prepared.rg); }},
        {S_OK, Line("GetTargetLuns", 2, Texts(names, 2), Texts(src.rg, 2), Texts(targets.rg, 2)),
         [&] { return p->GetTargetLuns(2, names, src.rg, targets.rg); }},
        {S_OK, Line("LocateLuns", 2, Texts(src.rg, 2)), [&] { return p->LocateLuns(2, src.rg); }},
        {S_OK, Line("OnLunEmpty", szEmpty, src.rg[1]),
         [&] { return p->OnLunEmpty(szEmpty, src.rg + 1); }},
        {S_OK, Line("GetProviderCapabilities"),
         [&] { return p->GetProviderCapabilities(&ullMask); }},
        {S_OK, Line("OnLunStateChange", Texts(src.rg, 2), Texts(reversed.rg, 2), 2, 9),
         [&] { return p->OnLunStateChange(src.rg, reversed.rg, 2, 9); }},
        {S_OK, Line("ResyncLuns", Texts(src.rg, 1), Texts(reversed.rg, 1), 1),
         [&] { return p->ResyncLuns(src.rg, reversed.rg, 1, &pAsync); }},
        {S_OK, Line("OnReuseLuns", Texts(reversed.rg, 2), Texts(src.rg, 2), 2),
         [&] { return p->OnReuseLuns(reversed.rg, src.rg, 2); }},
        {S_OK, Line("EndPrepare", set), [&] { return pSet->EndPrepareSnapshots(set); }},
        {S_OK, Line("PreCommit", set), [&] { return pSet->PreCommitSnapshots(set); }},
        {S_OK, Line("Commit", set), [&] { return pSet->CommitSnapshots(set); }},
        {S_OK, Line("PostCommit", set, 3), [&] { return pSet->PostCommitSnapshots(set, 3); }},
        {S_OK, Line("PreFinal", set), [&] { return pSet->PreFinalCommitSnapshots(set); }},
        {S_OK, Line("PostFinal", set), [&] { return pSet->PostFinalCommitSnapshots(set); }},
        {S_OK, Line("Abort", id), [&] { return pSet->AbortSnapshots(id); }},
        {S_OK, Line("OnLoad", S_OK, W("loaded")),
         [&] { return pNotifications->OnLoad(pCallback); }},
        {S_OK, Line("OnLoad", E_POINTER, names[1]),
         [&] { return pNotifications->OnLoad(nullptr); }},
        {S_OK, Line("OnUnload", TRUE), [&] { return pNotifications->OnUnload(TRUE); }},
        {S_OK, Line("SetInternalSnapshotName", id, BstrText(bstrName)),
         [&] { return pOrvane->SetInternalSnapshotName(&id, bstrName); }},
        {S_OK, Line("SetInternalSnapshotName", id, BstrText(bstrEmpty)),
         [&] { return pOrvane->SetInternalSnapshotName(&id, bstrEmpty); }},
        {S_OK, Line("SetInternalSnapshotName", id, BstrText(nullptr)),
         [&] { return pOrvane->SetInternalSnapshotName(&id, nullptr); }},
        // Refused by the proxy: bad counts, null reference pointers.
        {E_INVALIDARG, "", [&] { return p->LocateLuns(-1, src.rg); }},
        {E_INVALIDARG, "", [&] { return p->OnReuseLuns(src.rg, src.rg, 0x10001); }},
        {hrNullRef, "", [&] { return p->LocateLuns(1, nullptr); }},
        {hrNullRef, "", [&] { return p->FillInLunInfo(names[0], filled.rg, nullptr); }},
        {hrNullRef, "", [&] { return pOrvane->SetInternalSnapshotName(nullptr, bstrName); }},
        // The caller's record stays whole when its rewrite cannot be allocated.
        {E_OUTOFMEMORY, Line("FillInLunInfo", names[0], starved.rg[0]),
         [&] {
             pal::FailTaskAllocAt(1, true);
             return p->FillInLunInfo(names[0], starved.rg, &fStarved);
         }},
    };
    for (const auto& row : kRows) {
        EXPECT_HR(row.hr, row.call()) << row.line;
        if (!row.line.empty()) {
            EXPECT_EQ(row.line + "\n", server.Line());
        }
    }
    for (Lun* pLun : {supported.rg, filled.rg, prepared.rg, targets.rg})
        EXPECT_EQ(Text(*rewritten0), Text(*pLun));
    for (Lun* pLun : {supported.rg + 1, prepared.rg + 1, targets.rg + 1})
        EXPECT_EQ(Text(*rewritten1), Text(*pLun));
    EXPECT_EQ(Texts(CLuns().rg, 2), Texts(src.rg, 2));
    EXPECT_EQ(Texts(CLuns().rg, 2), Texts(starved.rg, 2));
    EXPECT_EQ((std::vector<BOOL>{TRUE, TRUE, FALSE}),
              (std::vector<BOOL>{fSupported, fFilled, fStarved}));
    EXPECT_EQ(0x0123456789ABCDEFull, ullMask);
    EXPECT_EQ(nullptr, pAsync);
    SysFreeString(bstrName);
    SysFreeString(bstrEmpty);
}

// What no proxy sends is refused by the stub before the object (none here) is called, and a
// count before anything is allocated for it: LocateLuns's array beyond the limit or the bytes, a
// count argument that disagrees with its array, a record cut short or with more identifiers than
// its bytes hold, and a method the interface lacks. Each row counts the stub's allocations.
TEST_F(ProviderMarshalTest, StubRefusesRequestsNoProxySends)
{
    namespace rpc = pal::detail::rpc;
    const uint32_t kNull = 0xFFFFFFFF;
    // Method, then arguments; a record up to its identifiers' count is 14 words.
    const struct
    {
        ULONG cAllocations;
        std::vector<uint32_t> words;
    } kRows[] = {
        {0, {4, 1, 0x10001}},
        {0, {4, 1, 1000}},
        {1, {4, 2, 1, 1, 0, 0, 0, 0, kNull, kNull, kNull, kNull, 0, 0, 0, 0, 0, 0, 0}},
        {1, {4, 1, 1, 1, 0, 0, 0, 0, 100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {1, {4, 1, 1, 1, 0, 0, 0, 0, kNull, kNull, kNull, kNull, 0, 0, 0, 0, 0, 0x8000, 0}},
        {0, {99}},
    };
    for (const auto& row : kRows) {
        rpc::CWriter request, reply;
        for (size_t i = 1; i < row.words.size(); ++i)
            request.PutU32(row.words[i]);
        rpc::CReader reader(request.Bytes(), {});
        pal::FailTaskAllocAt(0xFFFFFFFF, true);
        EXPECT_HR(RPC_E_INVALID_DATA,
                  rpc::FindInterfaceMarshaler(IID_IVssHardwareSnapshotProvider)
                      ->pfnInvoke(nullptr, static_cast<uint16_t>(row.words[0]), reader, reply));
        EXPECT_EQ(row.cAllocations, pal::TaskAllocations()) << row.words.size();
    }
}

} // namespace
