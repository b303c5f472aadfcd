// The interfaces a VSS hardware provider implements (vsprov.h). VSS calls them through their
// vtables, so each declares its methods in the published slot order with the published
// signatures; the records they pass are those of pal/vds.h and pal/vss.h.
#pragma once

#include "pal/unknwn.h"
#include "pal/uuidof.h"
#include "pal/vds.h"
#include "pal/vss.h"
#include "pal/windef.h"

// {9593A157-44E9-4344-BBEB-44FBF9B06B10}
inline constexpr IID IID_IVssHardwareSnapshotProvider = {
    0x9593A157, 0x44E9, 0x4344, {0xBB, 0xEB, 0x44, 0xFB, 0xF9, 0xB0, 0x6B, 0x10}};
// {7F5BA925-CDB1-4D11-A71F-339EB7E709FD}
inline constexpr IID IID_IVssHardwareSnapshotProviderEx = {
    0x7F5BA925, 0xCDB1, 0x4D11, {0xA7, 0x1F, 0x33, 0x9E, 0xB7, 0xE7, 0x09, 0xFD}};
// {5F894E5B-1E39-4778-8E23-9ABAD9F0E08C}
inline constexpr IID IID_IVssProviderCreateSnapshotSet = {
    0x5F894E5B, 0x1E39, 0x4778, {0x8E, 0x23, 0x9A, 0xBA, 0xD9, 0xF0, 0xE0, 0x8C}};
// {E561901F-03A5-4AFE-86D0-72BAEECE7004}
inline constexpr IID IID_IVssProviderNotifications = {
    0xE561901F, 0x03A5, 0x4AFE, {0x86, 0xD0, 0x72, 0xBA, 0xEE, 0xCE, 0x70, 0x04}};

// The LUN operations. Every LUN record is VSS's memory; a provider may rewrite the records VSS
// hands it to fill in (destination records, a LUN that appeared on the host), replacing their
// strings with memory of the COM task allocator.
interface IVssHardwareSnapshotProvider : public IUnknown
{
    // Whether the provider can snapshot all lLunCount LUNs together in context lContext.
    STDMETHOD(AreLunsSupported)
    (LONG lLunCount, LONG lContext, VSS_PWSZ* rgwszDevices, VDS_LUN_INFORMATION* pLunInformation,
     BOOL* pbIsSupported) PURE;
    // Completes the record of a LUN that appeared on the host and says whether it is one of the
    // provider's snapshot LUNs.
    STDMETHOD(FillInLunInfo)
    (VSS_PWSZ wszDeviceName, VDS_LUN_INFORMATION* pLunInfo, BOOL* pbIsSupported) PURE;
    STDMETHOD(BeginPrepareSnapshot)
    (VSS_ID SnapshotSetId, VSS_ID SnapshotId, LONG lContext, LONG lLunCount,
     VSS_PWSZ* rgDeviceNames, VDS_LUN_INFORMATION* rgLunInformation) PURE;
    // Fills rgDestinationLuns[i] with the LUN that holds the snapshot of rgSourceLuns[i].
    STDMETHOD(GetTargetLuns)
    (LONG lLunCount, VSS_PWSZ* rgDeviceNames, VDS_LUN_INFORMATION* rgSourceLuns,
     VDS_LUN_INFORMATION* rgDestinationLuns) PURE;
    // Exposes the snapshot LUNs on this host.
    STDMETHOD(LocateLuns)(LONG lLunCount, VDS_LUN_INFORMATION* rgSourceLuns) PURE;
    // A snapshot LUN is no longer needed.
    STDMETHOD(OnLunEmpty)(VSS_PWSZ wszDeviceName, VDS_LUN_INFORMATION* pInformation) PURE;

protected:
    ~IVssHardwareSnapshotProvider() = default;
};

interface IVssHardwareSnapshotProviderEx : public IVssHardwareSnapshotProvider
{
    STDMETHOD(GetProviderCapabilities)(ULONGLONG* pllOriginalCapabilityMask) PURE;
    // dwFlags: VSS_ONLUNSTATECHANGE_* of VSS_HARDWARE_OPTIONS.
    STDMETHOD(OnLunStateChange)
    (VDS_LUN_INFORMATION* pSnapshotLuns, VDS_LUN_INFORMATION* pOriginalLuns, DWORD dwCount,
     DWORD dwFlags) PURE;
    STDMETHOD(ResyncLuns)
    (VDS_LUN_INFORMATION* pSourceLuns, VDS_LUN_INFORMATION* pTargetLuns, DWORD dwCount,
     IVssAsync** ppAsync) PURE;
    STDMETHOD(OnReuseLuns)
    (VDS_LUN_INFORMATION* pSnapshotLuns, VDS_LUN_INFORMATION* pOriginalLuns, DWORD dwCount) PURE;

protected:
    ~IVssHardwareSnapshotProviderEx() = default;
};

// The phases of a snapshot set after its snapshots were added, in the order VSS calls them;
// AbortSnapshots replaces the rest after a failure.
interface IVssProviderCreateSnapshotSet : public IUnknown
{
    STDMETHOD(EndPrepareSnapshots)(VSS_ID SnapshotSetId) PURE;
    STDMETHOD(PreCommitSnapshots)(VSS_ID SnapshotSetId) PURE;
    // Runs while VSS holds the writes of the volumes frozen.
    STDMETHOD(CommitSnapshots)(VSS_ID SnapshotSetId) PURE;
    STDMETHOD(PostCommitSnapshots)(VSS_ID SnapshotSetId, LONG lSnapshotsCount) PURE;
    STDMETHOD(PreFinalCommitSnapshots)(VSS_ID SnapshotSetId) PURE;
    STDMETHOD(PostFinalCommitSnapshots)(VSS_ID SnapshotSetId) PURE;
    STDMETHOD(AbortSnapshots)(VSS_ID SnapshotSetId) PURE;

protected:
    ~IVssProviderCreateSnapshotSet() = default;
};

interface IVssProviderNotifications : public IUnknown
{
    STDMETHOD(OnLoad)(IUnknown* pCallback) PURE;
    STDMETHOD(OnUnload)(BOOL bForceUnload) PURE;

protected:
    ~IVssProviderNotifications() = default;
};

PAL_DEFINE_UUIDOF(IVssHardwareSnapshotProvider, IID_IVssHardwareSnapshotProvider);
PAL_DEFINE_UUIDOF(IVssHardwareSnapshotProviderEx, IID_IVssHardwareSnapshotProviderEx);
PAL_DEFINE_UUIDOF(IVssProviderCreateSnapshotSet, IID_IVssProviderCreateSnapshotSet);
PAL_DEFINE_UUIDOF(IVssProviderNotifications, IID_IVssProviderNotifications);
