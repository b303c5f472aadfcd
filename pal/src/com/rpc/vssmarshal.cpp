// The marshalers of the interfaces of a VSS provider (what Windows' VSS proxy/stub registers):
// IVssHardwareSnapshotProvider(Ex), IVssProviderCreateSnapshotSet and IVssProviderNotifications.
#include "pal/src/com/rpc/vdscoding.h"
#include "pal/vsprov.h"

namespace pal::detail::rpc {

// The pal only declares IVssAsync and has no IID for it, so ResyncLuns's asynchronous object
// does not cross: the stub releases what the provider handed out, and the caller gets the
// provider's HRESULT with *ppAsync null.
template <>
struct Coding<IVssAsync*>
{
    static constexpr size_t kMinBytes = 0;
    static void Put(CWriter&, IVssAsync*) {}
    static HRESULT Get(CReader&, IVssAsync** ppAsync)
    {
        *ppAsync = nullptr;
        return S_OK;
    }
    static void Free(IVssAsync*& pAsync)
    {
        if (pAsync)
            reinterpret_cast<IUnknown*>(pAsync)->Release(); // its first base, as every interface's
        pAsync = nullptr;
    }
};

namespace {

using Lun = VDS_LUN_INFORMATION;
using Provider = IVssHardwareSnapshotProvider;
using ProviderEx = IVssHardwareSnapshotProviderEx;
using SnapshotSet = IVssProviderCreateSnapshotSet;

// IVssHardwareSnapshotProvider's methods, then those of an interface derived from it.
template <class I, const IID* piid, class... More>
using ProviderMethods =
    Interface<I, piid,
              Method<&Provider::AreLunsSupported, In<LONG>, In<LONG>, InArray<VSS_PWSZ, 0>,
                     InOutArray<Lun, 0>, Out<BOOL>>,
              Method<&Provider::FillInLunInfo, In<VSS_PWSZ>, InOut<Lun>, Out<BOOL>>,
              Method<&Provider::BeginPrepareSnapshot, In<VSS_ID>, In<VSS_ID>, In<LONG>, In<LONG>,
                     InArray<VSS_PWSZ, 3>, InOutArray<Lun, 3>>,
              Method<&Provider::GetTargetLuns, In<LONG>, InArray<VSS_PWSZ, 0>, InArray<Lun, 0>,
                     InOutArray<Lun, 0>>,
              Method<&Provider::LocateLuns, In<LONG>, InArray<Lun, 0>>,
              Method<&Provider::OnLunEmpty, In<VSS_PWSZ>, InRef<Lun>>, More...>;

using HardwareProvider = ProviderMethods<Provider, &IID_IVssHardwareSnapshotProvider>;
using HardwareProviderEx = ProviderMethods<
    ProviderEx, &IID_IVssHardwareSnapshotProviderEx,
    Method<&ProviderEx::GetProviderCapabilities, Out<ULONGLONG>>,
    Method<&ProviderEx::OnLunStateChange, InArray<Lun, 2>, InArray<Lun, 2>, In<DWORD>, In<DWORD>>,
    Method<&ProviderEx::ResyncLuns, InArray<Lun, 2>, InArray<Lun, 2>, In<DWORD>, Out<IVssAsync*>>,
    Method<&ProviderEx::OnReuseLuns, InArray<Lun, 2>, InArray<Lun, 2>, In<DWORD>>>;

using CreateSnapshotSet = Interface<SnapshotSet, &IID_IVssProviderCreateSnapshotSet,
                                    Method<&SnapshotSet::EndPrepareSnapshots, In<VSS_ID>>,
                                    Method<&SnapshotSet::PreCommitSnapshots, In<VSS_ID>>,
                                    Method<&SnapshotSet::CommitSnapshots, In<VSS_ID>>,
                                    Method<&SnapshotSet::PostCommitSnapshots, In<VSS_ID>, In<LONG>>,
                                    Method<&SnapshotSet::PreFinalCommitSnapshots, In<VSS_ID>>,
                                    Method<&SnapshotSet::PostFinalCommitSnapshots, In<VSS_ID>>,
                                    Method<&SnapshotSet::AbortSnapshots, In<VSS_ID>>>;

using Notifications = Interface<IVssProviderNotifications, &IID_IVssProviderNotifications,
                                Method<&IVssProviderNotifications::OnLoad, In<IUnknown*>>,
                                Method<&IVssProviderNotifications::OnUnload, In<BOOL>>>;

template <class Methods>
class CProviderProxyT : public CProxyOf<Methods>
{
public:
    using I = typename Methods::Itf;
    using CProxyOf<Methods>::CProxyOf;

    STDMETHODIMP AreLunsSupported(LONG lLunCount, LONG lContext, VSS_PWSZ* rgwszDevices,
                                  Lun* pLunInformation, BOOL* pbIsSupported) override
    {
        return this->template Call<&I::AreLunsSupported>(lLunCount, lContext, rgwszDevices,
                                                         pLunInformation, pbIsSupported);
    }
    STDMETHODIMP FillInLunInfo(VSS_PWSZ wszDeviceName, Lun* pLunInfo, BOOL* pbIsSupported) override
    {
        return this->template Call<&I::FillInLunInfo>(wszDeviceName, pLunInfo, pbIsSupported);
    }
    STDMETHODIMP BeginPrepareSnapshot(VSS_ID SnapshotSetId, VSS_ID SnapshotId, LONG lContext,
                                      LONG lLunCount, VSS_PWSZ* rgDeviceNames,
                                      Lun* rgLunInformation) override
    {
        return this->template Call<&I::BeginPrepareSnapshot>(
            SnapshotSetId, SnapshotId, lContext, lLunCount, rgDeviceNames, rgLunInformation);
    }
    STDMETHODIMP GetTargetLuns(LONG lLunCount, VSS_PWSZ* rgDeviceNames, Lun* rgSourceLuns,
                               Lun* rgDestinationLuns) override
    {
        return this->template Call<&I::GetTargetLuns>(lLunCount, rgDeviceNames, rgSourceLuns,
                                                      rgDestinationLuns);
    }
    STDMETHODIMP LocateLuns(LONG lLunCount, Lun* rgSourceLuns) override
    {
        return this->template Call<&I::LocateLuns>(lLunCount, rgSourceLuns);
    }
    STDMETHODIMP OnLunEmpty(VSS_PWSZ wszDeviceName, Lun* pInformation) override
    {
        return this->template Call<&I::OnLunEmpty>(wszDeviceName, pInformation);
    }
};

class CHardwareProviderProxy final : public CProviderProxyT<HardwareProvider>
{
public:
    using CProviderProxyT::CProviderProxyT;
};

class CHardwareProviderExProxy final : public CProviderProxyT<HardwareProviderEx>
{
public:
    using CProviderProxyT::CProviderProxyT;

    STDMETHODIMP GetProviderCapabilities(ULONGLONG* pllOriginalCapabilityMask) override
    {
        return Call<&I::GetProviderCapabilities>(pllOriginalCapabilityMask);
    }
    STDMETHODIMP OnLunStateChange(Lun* pSnapshotLuns, Lun* pOriginalLuns, DWORD dwCount,
                                  DWORD dwFlags) override
    {
        return Call<&I::OnLunStateChange>(pSnapshotLuns, pOriginalLuns, dwCount, dwFlags);
    }
    STDMETHODIMP ResyncLuns(Lun* pSourceLuns, Lun* pTargetLuns, DWORD dwCount,
                            IVssAsync** ppAsync) override
    {
        return Call<&I::ResyncLuns>(pSourceLuns, pTargetLuns, dwCount, ppAsync);
    }
    STDMETHODIMP OnReuseLuns(Lun* pSnapshotLuns, Lun* pOriginalLuns, DWORD dwCount) override
    {
        return Call<&I::OnReuseLuns>(pSnapshotLuns, pOriginalLuns, dwCount);
    }
};

class CCreateSnapshotSetProxy final : public CProxyOf<CreateSnapshotSet>
{
public:
    using CProxyOf::CProxyOf;

    STDMETHODIMP EndPrepareSnapshots(VSS_ID id) override
    {
        return Call<&I::EndPrepareSnapshots>(id);
    }
    STDMETHODIMP PreCommitSnapshots(VSS_ID id) override { return Call<&I::PreCommitSnapshots>(id); }
    STDMETHODIMP CommitSnapshots(VSS_ID id) override { return Call<&I::CommitSnapshots>(id); }
    STDMETHODIMP PostCommitSnapshots(VSS_ID id, LONG lSnapshotsCount) override
    {
        return Call<&I::PostCommitSnapshots>(id, lSnapshotsCount);
    }
    STDMETHODIMP PreFinalCommitSnapshots(VSS_ID id) override
    {
        return Call<&I::PreFinalCommitSnapshots>(id);
    }
    STDMETHODIMP PostFinalCommitSnapshots(VSS_ID id) override
    {
        return Call<&I::PostFinalCommitSnapshots>(id);
    }
    STDMETHODIMP AbortSnapshots(VSS_ID id) override { return Call<&I::AbortSnapshots>(id); }
};

class CNotificationsProxy final : public CProxyOf<Notifications>
{
public:
    using CProxyOf::CProxyOf;

    STDMETHODIMP OnLoad(IUnknown* pCallback) override { return Call<&I::OnLoad>(pCallback); }
    STDMETHODIMP OnUnload(BOOL bForceUnload) override { return Call<&I::OnUnload>(bForceUnload); }
};

} // namespace

std::span<const InterfaceMarshaler> VssMarshalers()
{
    static const InterfaceMarshaler kMarshalers[] = {
        HardwareProvider::Marshaler<CHardwareProviderProxy>(),
        HardwareProviderEx::Marshaler<CHardwareProviderExProxy>(),
        CreateSnapshotSet::Marshaler<CCreateSnapshotSetProxy>(),
        Notifications::Marshaler<CNotificationsProxy>(),
    };
    return kMarshalers;
}

} // namespace pal::detail::rpc
