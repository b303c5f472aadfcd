// The provider's interfaces as VSS calls them, with the time each call spends in the
// provider's process added to a process-wide count, so that a benchmark can tell the share of
// a set's time that the provider takes. The objects forward to the proxies they are given and
// live as long as the CLoadedProvider that owns them; their reference counts are not used.
#pragma once

#include "pal/vsprov.h"

#include <chrono>

namespace vsssim::detail {

// Nanoseconds spent in calls to providers by this process so far.
LONGLONG ProviderCallNs();

// Adds the time from its construction to its end to the count.
class CProviderCallTimer
{
public:
    CProviderCallTimer() : m_start(std::chrono::steady_clock::now()) {}
    CProviderCallTimer(const CProviderCallTimer&) = delete;
    CProviderCallTimer& operator=(const CProviderCallTimer&) = delete;
    ~CProviderCallTimer();

private:
    std::chrono::steady_clock::time_point m_start;
};

class CTimedLuns final : public IVssHardwareSnapshotProvider
{
public:
    void Attach(IVssHardwareSnapshotProvider* p) { m_p = p; }

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP AreLunsSupported(LONG lLunCount, LONG lContext, VSS_PWSZ* rgwszDevices,
                                  VDS_LUN_INFORMATION* pLunInformation,
                                  BOOL* pbIsSupported) override;
    STDMETHODIMP FillInLunInfo(VSS_PWSZ wszDeviceName, VDS_LUN_INFORMATION* pLunInfo,
                               BOOL* pbIsSupported) override;
    STDMETHODIMP BeginPrepareSnapshot(VSS_ID SnapshotSetId, VSS_ID SnapshotId, LONG lContext,
                                      LONG lLunCount, VSS_PWSZ* rgDeviceNames,
                                      VDS_LUN_INFORMATION* rgLunInformation) override;
    STDMETHODIMP GetTargetLuns(LONG lLunCount, VSS_PWSZ* rgDeviceNames,
                               VDS_LUN_INFORMATION* rgSourceLuns,
                               VDS_LUN_INFORMATION* rgDestinationLuns) override;
    STDMETHODIMP LocateLuns(LONG lLunCount, VDS_LUN_INFORMATION* rgSourceLuns) override;
    STDMETHODIMP OnLunEmpty(VSS_PWSZ wszDeviceName, VDS_LUN_INFORMATION* pInformation) override;

private:
    IVssHardwareSnapshotProvider* m_p = nullptr;
};

class CTimedSet final : public IVssProviderCreateSnapshotSet
{
public:
    void Attach(IVssProviderCreateSnapshotSet* p) { m_p = p; }

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP EndPrepareSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP PreCommitSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP CommitSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP PostCommitSnapshots(VSS_ID SnapshotSetId, LONG lSnapshotsCount) override;
    STDMETHODIMP PreFinalCommitSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP PostFinalCommitSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP AbortSnapshots(VSS_ID SnapshotSetId) override;

private:
    IVssProviderCreateSnapshotSet* m_p = nullptr;
};

} // namespace vsssim::detail
