// Forwarding of the provider's interfaces with the time of each call counted.
#include "timedprovider.h"

#include <atomic>

namespace vsssim::detail {

namespace {

std::atomic<LONGLONG> g_llProviderNs{0};

} // namespace

LONGLONG ProviderCallNs()
{
    return g_llProviderNs.load(std::memory_order_relaxed);
}

CProviderCallTimer::~CProviderCallTimer()
{
    g_llProviderNs.fetch_add(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                 std::chrono::steady_clock::now() - m_start)
                                 .count(),
                             std::memory_order_relaxed);
}

STDMETHODIMP CTimedLuns::QueryInterface(REFIID riid, void** ppv)
{
    return m_p->QueryInterface(riid, ppv);
}

STDMETHODIMP CTimedLuns::AreLunsSupported(LONG lLunCount, LONG lContext, VSS_PWSZ* rgwszDevices,
                                          VDS_LUN_INFORMATION* pLunInformation, BOOL* pbIsSupported)
{
    CProviderCallTimer timer;
    return m_p->AreLunsSupported(lLunCount, lContext, rgwszDevices, pLunInformation, pbIsSupported);
}

STDMETHODIMP CTimedLuns::FillInLunInfo(VSS_PWSZ wszDeviceName, VDS_LUN_INFORMATION* pLunInfo,
                                       BOOL* pbIsSupported)
{
    CProviderCallTimer timer;
    return m_p->FillInLunInfo(wszDeviceName, pLunInfo, pbIsSupported);
}

STDMETHODIMP CTimedLuns::BeginPrepareSnapshot(VSS_ID SnapshotSetId, VSS_ID SnapshotId,
                                              LONG lContext, LONG lLunCount,
                                              VSS_PWSZ* rgDeviceNames,
                                              VDS_LUN_INFORMATION* rgLunInformation)
{
    CProviderCallTimer timer;
    return m_p->BeginPrepareSnapshot(SnapshotSetId, SnapshotId, lContext, lLunCount, rgDeviceNames,
                                     rgLunInformation);
}

STDMETHODIMP CTimedLuns::GetTargetLuns(LONG lLunCount, VSS_PWSZ* rgDeviceNames,
                                       VDS_LUN_INFORMATION* rgSourceLuns,
                                       VDS_LUN_INFORMATION* rgDestinationLuns)
{
    CProviderCallTimer timer;
    return m_p->GetTargetLuns(lLunCount, rgDeviceNames, rgSourceLuns, rgDestinationLuns);
}

STDMETHODIMP CTimedLuns::LocateLuns(LONG lLunCount, VDS_LUN_INFORMATION* rgSourceLuns)
{
    CProviderCallTimer timer;
    return m_p->LocateLuns(lLunCount, rgSourceLuns);
}

STDMETHODIMP CTimedLuns::OnLunEmpty(VSS_PWSZ wszDeviceName, VDS_LUN_INFORMATION* pInformation)
{
    CProviderCallTimer timer;
    return m_p->OnLunEmpty(wszDeviceName, pInformation);
}

STDMETHODIMP CTimedSet::QueryInterface(REFIID riid, void** ppv)
{
    return m_p->QueryInterface(riid, ppv);
}

#define ORV_TIMED_SET_CALL(method)                                                                 \
    STDMETHODIMP CTimedSet::method(VSS_ID SnapshotSetId)                                           \
    {                                                                                              \
        CProviderCallTimer timer;                                                                  \
        return m_p->method(SnapshotSetId);                                                         \
    }
ORV_TIMED_SET_CALL(EndPrepareSnapshots)
ORV_TIMED_SET_CALL(PreCommitSnapshots)
ORV_TIMED_SET_CALL(CommitSnapshots)
ORV_TIMED_SET_CALL(PreFinalCommitSnapshots)
ORV_TIMED_SET_CALL(PostFinalCommitSnapshots)
ORV_TIMED_SET_CALL(AbortSnapshots)
#undef ORV_TIMED_SET_CALL

STDMETHODIMP CTimedSet::PostCommitSnapshots(VSS_ID SnapshotSetId, LONG lSnapshotsCount)
{
    CProviderCallTimer timer;
    return m_p->PostCommitSnapshots(SnapshotSetId, lSnapshotsCount);
}

} // namespace vsssim::detail
