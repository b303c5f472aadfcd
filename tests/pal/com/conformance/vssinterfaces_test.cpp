// The VSS provider interfaces and the coordinator's administration interface. VSS reaches a
// provider, and a provider's setup the coordinator, through raw vtable slots, so slot k of each
// interface must hold method k of the published order; built against the SDK, the same source
// proves that the order written here is the published one.
#include "pal/objbase.h"
#include "pal/vsadmin.h"
#include "pal/vsprov.h"
#include "tests/support/conformance.h"

#include <cstddef>
#include <string>

namespace {

using VssInterfaces = orvtest::ConformanceTest;

// What crosses the interfaces by value, and the context bits a provider reads.
static_assert(sizeof(VSS_ID) == 16 && sizeof(*VSS_PWSZ()) == 2 && sizeof(ULONGLONG) == 8);
static_assert(VSS_VOLSNAP_ATTR_TRANSPORTABLE == 0x20 && VSS_VOLSNAP_ATTR_AUTORECOVER == 0x400000 &&
              VSS_VOLSNAP_ATTR_TXF_RECOVERY == 0x2000000);

// clang-format off
// The body of a recorder method, and a row of the slot table below.
#define RECORD override { m_called = __func__; return S_OK; }
#define VSS_METHOD(slot, itf, method) {slot, #method, &Call<decltype(&itf::method)>::Reach<&itf::method>}
// clang-format on

// Implements every interface; each method only records its own name.
class CRecorder : public IVssHardwareSnapshotProviderEx,
                  public IVssProviderCreateSnapshotSet,
                  public IVssProviderNotifications,
                  public IVssAdmin,
                  public IVssEnumObject
{
    using LUN = VDS_LUN_INFORMATION;

public:
    std::string m_called;

    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOTIMPL; }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }

    STDMETHODIMP AreLunsSupported(LONG, LONG, VSS_PWSZ*, LUN*, BOOL*) RECORD;
    STDMETHODIMP FillInLunInfo(VSS_PWSZ, LUN*, BOOL*) RECORD;
    STDMETHODIMP BeginPrepareSnapshot(VSS_ID, VSS_ID, LONG, LONG, VSS_PWSZ*, LUN*) RECORD;
    STDMETHODIMP GetTargetLuns(LONG, VSS_PWSZ*, LUN*, LUN*) RECORD;
    STDMETHODIMP LocateLuns(LONG, LUN*) RECORD;
    STDMETHODIMP OnLunEmpty(VSS_PWSZ, LUN*) RECORD;
    STDMETHODIMP GetProviderCapabilities(ULONGLONG*) RECORD;
    STDMETHODIMP OnLunStateChange(LUN*, LUN*, DWORD, DWORD) RECORD;
    STDMETHODIMP ResyncLuns(LUN*, LUN*, DWORD, IVssAsync**) RECORD;
    STDMETHODIMP OnReuseLuns(LUN*, LUN*, DWORD) RECORD;
    STDMETHODIMP EndPrepareSnapshots(VSS_ID) RECORD;
    STDMETHODIMP PreCommitSnapshots(VSS_ID) RECORD;
    STDMETHODIMP CommitSnapshots(VSS_ID) RECORD;
    STDMETHODIMP PostCommitSnapshots(VSS_ID, LONG) RECORD;
    STDMETHODIMP PreFinalCommitSnapshots(VSS_ID) RECORD;
    STDMETHODIMP PostFinalCommitSnapshots(VSS_ID) RECORD;
    STDMETHODIMP AbortSnapshots(VSS_ID) RECORD;
    STDMETHODIMP OnLoad(IUnknown*) RECORD;
    STDMETHODIMP OnUnload(BOOL) RECORD;
    STDMETHODIMP RegisterProvider(VSS_ID, CLSID, VSS_PWSZ, VSS_PROVIDER_TYPE, VSS_PWSZ,
                                  VSS_ID) RECORD;
    STDMETHODIMP UnregisterProvider(VSS_ID) RECORD;
    STDMETHODIMP QueryProviders(IVssEnumObject**) RECORD;
    STDMETHODIMP AbortAllSnapshotsInProgress() RECORD;
    STDMETHODIMP Next(ULONG, VSS_OBJECT_PROP*, ULONG*) RECORD;
    STDMETHODIMP Skip(ULONG) RECORD;
    STDMETHODIMP Reset() RECORD;
    STDMETHODIMP Clone(IVssEnumObject**) RECORD;
};
#undef RECORD

// Calls one method of Itf with zeroed arguments, by name (slot 0) or through vtable slot `slot`
// taken as a function of the method's own signature, and answers the name of the method reached.
template <class>
struct Call;
template <class Itf, class... A>
struct Call<HRESULT (Itf::*)(A...)>
{
    template <HRESULT (Itf::*method)(A...)>
    static std::string Reach(CRecorder& r, size_t slot)
    {
        using Fn = HRESULT(STDMETHODCALLTYPE*)(Itf*, A...);
        Itf* p = &r;
        r.m_called.clear();
        if (slot == 0)
            (p->*method)(A()...);
        else
            reinterpret_cast<Fn>((*reinterpret_cast<void (***)()>(p))[slot])(p, A()...);
        return r.m_called;
    }
};

TEST_F(VssInterfaces, EachSlotReachesTheMethodOfThePublishedOrder)
{
    const struct
    {
        size_t slot;
        const char* name;
        std::string (*reach)(CRecorder&, size_t);
    } methods[] = {
        // IVssHardwareSnapshotProviderEx's vtable is its base's, extended.
        VSS_METHOD(3, IVssHardwareSnapshotProvider, AreLunsSupported),
        VSS_METHOD(4, IVssHardwareSnapshotProvider, FillInLunInfo),
        VSS_METHOD(5, IVssHardwareSnapshotProvider, BeginPrepareSnapshot),
        VSS_METHOD(6, IVssHardwareSnapshotProvider, GetTargetLuns),
        VSS_METHOD(7, IVssHardwareSnapshotProvider, LocateLuns),
        VSS_METHOD(8, IVssHardwareSnapshotProvider, OnLunEmpty),
        VSS_METHOD(9, IVssHardwareSnapshotProviderEx, GetProviderCapabilities),
        VSS_METHOD(10, IVssHardwareSnapshotProviderEx, OnLunStateChange),
        VSS_METHOD(11, IVssHardwareSnapshotProviderEx, ResyncLuns),
        VSS_METHOD(12, IVssHardwareSnapshotProviderEx, OnReuseLuns),
        VSS_METHOD(3, IVssProviderCreateSnapshotSet, EndPrepareSnapshots),
        VSS_METHOD(4, IVssProviderCreateSnapshotSet, PreCommitSnapshots),
        VSS_METHOD(5, IVssProviderCreateSnapshotSet, CommitSnapshots),
        VSS_METHOD(6, IVssProviderCreateSnapshotSet, PostCommitSnapshots),
        VSS_METHOD(7, IVssProviderCreateSnapshotSet, PreFinalCommitSnapshots),
        VSS_METHOD(8, IVssProviderCreateSnapshotSet, PostFinalCommitSnapshots),
        VSS_METHOD(9, IVssProviderCreateSnapshotSet, AbortSnapshots),
        VSS_METHOD(3, IVssProviderNotifications, OnLoad),
        VSS_METHOD(4, IVssProviderNotifications, OnUnload),
        VSS_METHOD(3, IVssAdmin, RegisterProvider),
        VSS_METHOD(4, IVssAdmin, UnregisterProvider),
        VSS_METHOD(5, IVssAdmin, QueryProviders),
        VSS_METHOD(6, IVssAdmin, AbortAllSnapshotsInProgress),
        VSS_METHOD(3, IVssEnumObject, Next),
        VSS_METHOD(4, IVssEnumObject, Skip),
        VSS_METHOD(5, IVssEnumObject, Reset),
        VSS_METHOD(6, IVssEnumObject, Clone),
    };
    CRecorder recorder;
    for (const auto& m : methods) {
        SCOPED_TRACE(m.name);
        EXPECT_EQ(m.name, m.reach(recorder, 0));
        EXPECT_EQ(m.name, m.reach(recorder, m.slot));
    }
}

TEST_F(VssInterfaces, UuidOfNamesThePublishedIid)
{
    const struct
    {
        IID iid;
        IID uuidof;
        const char* text;
    } cases[] = {
        {IID_IVssHardwareSnapshotProvider, __uuidof(IVssHardwareSnapshotProvider),
         "{9593A157-44E9-4344-BBEB-44FBF9B06B10}"},
        {IID_IVssHardwareSnapshotProviderEx, __uuidof(IVssHardwareSnapshotProviderEx),
         "{7F5BA925-CDB1-4D11-A71F-339EB7E709FD}"},
        {IID_IVssProviderCreateSnapshotSet, __uuidof(IVssProviderCreateSnapshotSet),
         "{5F894E5B-1E39-4778-8E23-9ABAD9F0E08C}"},
        {IID_IVssProviderNotifications, __uuidof(IVssProviderNotifications),
         "{E561901F-03A5-4AFE-86D0-72BAEECE7004}"},
        {IID_IVssAdmin, __uuidof(IVssAdmin), "{77ED5996-2F63-11D3-8A39-00C04F72D8E3}"},
        {IID_IVssEnumObject, __uuidof(IVssEnumObject), "{AE1C7110-2F60-11D3-8A39-00C04F72D8E3}"},
        {CLSID_VSSCoordinator, CLSID_VSSCoordinator, "{E579AB5F-1CC4-44B4-BED9-DE0991FF0623}"},
    };
    for (const auto& c : cases) {
        WCHAR sz[39];
        ASSERT_EQ(39, StringFromGUID2(c.iid, sz, 39));
        EXPECT_EQ(c.text, orvtest::Narrow(sz));
        EXPECT_TRUE(IsEqualIID(c.iid, c.uuidof)) << c.text;
    }
}

} // namespace
