// COrvaneHardwareProvider: the COM object that VSS creates in the service process and drives
// through the phases of a shadow copy. It checks and logs each call, converts the VDS LUN
// records, decides the recovery attribute of each snapshot, and forwards everything that
// touches the snapshot set or the storage system to its provider core.
#pragma once

#include "core/providercore.h"
#include "host/eventlog.h"
#include "provider/orvprov.h"
#include "res/resource.h"

#include "pal/atlcom.h"
#include "pal/sysinfoapi.h"
#include "pal/vsprov.h"
#include "pal/vss.h"

class COrvaneHardwareProvider : public CComObjectRootEx<CComMultiThreadModel>,
                                public IOrvaneHardwareProvider,
                                public IVssProviderNotifications,
                                public IVssProviderCreateSnapshotSet,
                                public IVssHardwareSnapshotProviderEx
{
public:
    COrvaneHardwareProvider();
    ~COrvaneHardwareProvider();

    // The class's keys: the provider's registry script.
    DECLARE_REGISTRY_RESOURCEID(IDR_ORVANEHARDWAREPROVIDER)

    BEGIN_COM_MAP(COrvaneHardwareProvider)
    COM_INTERFACE_ENTRY2(IUnknown, IOrvaneHardwareProvider)
    COM_INTERFACE_ENTRY(IOrvaneHardwareProvider)
    COM_INTERFACE_ENTRY_IID(__uuidof(IVssHardwareSnapshotProvider), IVssHardwareSnapshotProviderEx)
    COM_INTERFACE_ENTRY(IVssHardwareSnapshotProviderEx)
    COM_INTERFACE_ENTRY(IVssProviderNotifications)
    COM_INTERFACE_ENTRY(IVssProviderCreateSnapshotSet)
    END_COM_MAP()

    // Process-wide start and end: the class's event log writer.
    static BOOL InitializeClass();
    static void UninitializeClass();

    // Creates and initialises the provider core once.
    HRESULT Initialize();

    // IOrvaneHardwareProvider
    STDMETHODIMP SetInternalSnapshotName(GUID* pguidVssSnapshotId, BSTR bstrSnapshotName) override;

    // IVssProviderNotifications
    STDMETHODIMP OnLoad(IUnknown* pCallback) override;
    STDMETHODIMP OnUnload(BOOL bForceUnload) override;

    // IVssProviderCreateSnapshotSet
    STDMETHODIMP EndPrepareSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP PreCommitSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP CommitSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP PostCommitSnapshots(VSS_ID SnapshotSetId, LONG lSnapshotsCount) override;
    STDMETHODIMP PreFinalCommitSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP PostFinalCommitSnapshots(VSS_ID SnapshotSetId) override;
    STDMETHODIMP AbortSnapshots(VSS_ID SnapshotSetId) override;

    // IVssHardwareSnapshotProvider
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

    // IVssHardwareSnapshotProviderEx
    STDMETHODIMP GetProviderCapabilities(ULONGLONG* pllOriginalCapabilityMask) override;
    STDMETHODIMP OnLunStateChange(VDS_LUN_INFORMATION* pSnapshotLuns,
                                  VDS_LUN_INFORMATION* pOriginalLuns, DWORD dwCount,
                                  DWORD dwFlags) override;
    STDMETHODIMP ResyncLuns(VDS_LUN_INFORMATION* pSourceLuns, VDS_LUN_INFORMATION* pTargetLuns,
                            DWORD dwCount, IVssAsync** ppAsync) override;
    STDMETHODIMP OnReuseLuns(VDS_LUN_INFORMATION* pSnapshotLuns, VDS_LUN_INFORMATION* pOriginalLuns,
                             DWORD dwCount) override;

    // The provider class's writer; null when it could not be created. Every report of the
    // front is skipped while it is null.
    static CEventLog* m_pEvent;
    // The storage service's version text read by the last version check; empty until read.
    static WCHAR sm_szTesseraVersion[MAX_PATH];
    // The OS version record of the auto-recovery detection; its size marks that the detection
    // has run in this process.
    static OSVERSIONINFOEXW sm_osVersion;
    // The Hyper-V role flag as the storage service reported it.
    static BOOLEAN sm_fHyperVRoleEnabled;

private:
    // Null until a load succeeds. VSS does not use an object whose load failed; should it call
    // one anyway, the operations answer ORVPROV_E_UNEXPECTED_ERROR or do nothing.
    CProviderCore* m_pProvider;
    // 1 once GetTargetLuns has started building the current set's target LUN information.
    LONG m_lTargetLunsInfoBuilt;
    // The record of the last commit on this object.
    DWORD m_dwCommitTime;
    HRESULT m_hrCommit;
    WCHAR m_szSnapshotSetId[64];
    BOOL m_fCommitCalled;
};

// The installed storage service is of a version the provider works with.
BOOL CheckTesseraVersion();
// Auto-recovery snapshots can be offered on this host; detected once per process.
BOOL IsAutoRecoverySupported();
