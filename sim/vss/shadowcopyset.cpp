// CreateShadowCopySet: the sequence of calls VSS makes to a hardware provider to make one
// shadow copy set, from choosing the provider to recording the shadow copies, with the writers'
// events, the recovery of a transportable set and the injected faults at each point.
#include "backupdocument.h"
#include "faults.h"
#include "hostdisks.h"
#include "inventory.h"
#include "loadedprovider.h"
#include "lunbuilder.h"
#include "lunencoding.h"
#include "surface.h"
#include "vsssim.h"
#include "writehold.h"

#include "pal/combaseapi.h"
#include "pal/sysinfoapi.h"

#include <chrono>
#include <memory>

namespace vsssim {

namespace {

using detail::CallProvider;
using detail::CLoadedProvider;
using detail::CLunRecords;
using detail::ProviderFailure;

constexpr size_t kMaxVolumes = 64;
// How long VSS lets the volumes' writes be held around the commit.
constexpr ULONGLONG kHoldWritesMs = 10 * 1000;

// Where the recovery of a transportable set writes on each target LUN, and what: the log a
// writer's recovery would replay onto the shadow copy.
constexpr DWORD kRecoveryOffset = 4096;
constexpr char kRecoveryData[] = "VSS recovery";

// The attributes a requester may add to a context, and the contexts without them. VSS adds
// AUTORECOVER and TXF_RECOVERY itself for a writer's components that need them; the caller adds
// them here for the writers the simulation does not have.
constexpr LONG kAddedAttributes = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE |
                                  VSS_VOLSNAP_ATTR_TRANSPORTABLE |
                                  VSS_VOLSNAP_ATTR_NO_AUTORECOVERY |
                                  VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY |
                                  VSS_VOLSNAP_ATTR_AUTORECOVER | VSS_VOLSNAP_ATTR_TXF_RECOVERY;
bool IsKnownContext(LONG lContext)
{
    LONG lBase = lContext & ~kAddedAttributes;
    return lBase == VSS_CTX_BACKUP || lBase == VSS_VOLSNAP_ATTR_NO_WRITERS ||
           lBase == VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE ||
           lBase == (VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE | VSS_VOLSNAP_ATTR_NO_WRITERS);
}

VSS_TIMESTAMP Now()
{
    // FILETIME counts 100 ns intervals from 1601, 11644473600 s before the Unix epoch.
    auto since = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(since).count() / 100 +
           11644473600LL * 10000000LL;
}

struct CVolume
{
    std::string mountPoint;
    size_t iDisk;
    std::u16string device;
    VSS_ID snapshotId;
};

// The set VSS is making: its volumes, their records and the provider doing it.
class CShadowCopySet
{
public:
    CShadowCopySet(std::vector<CVolume> volumes, LONG lContext)
        : m_volumes(std::move(volumes)), m_lContext(lContext), m_sources(m_volumes.size()),
          m_targets(m_volumes.size())
    {
        for (CVolume& volume : m_volumes)
            m_devices.push_back(volume.device.data());
    }

    HRESULT Run(const storagesim::StateView& view, VSS_ID* pSetId, std::string* pDocument);
    std::vector<VSS_ID> SnapshotIds() const
    {
        std::vector<VSS_ID> ids;
        for (const CVolume& volume : m_volumes)
            ids.push_back(volume.snapshotId);
        return ids;
    }

private:
    LONG Count() const { return static_cast<LONG>(m_volumes.size()); }
    bool Recovers() const
    {
        return (m_lContext & VSS_VOLSNAP_ATTR_TRANSPORTABLE) &&
               (m_lContext & (VSS_VOLSNAP_ATTR_AUTORECOVER | VSS_VOLSNAP_ATTR_TXF_RECOVERY)) &&
               !(m_lContext & VSS_VOLSNAP_ATTR_NO_AUTORECOVERY);
    }
    std::vector<std::string> MountPoints() const
    {
        std::vector<std::string> mountPoints;
        for (const CVolume& volume : m_volumes)
            mountPoints.push_back(volume.mountPoint);
        return mountPoints;
    }
    HRESULT ChooseProvider(const storagesim::StateView& view);
    HRESULT Prepare(bool* pfPrepared);
    HRESULT Commit();
    HRESULT Surface();
    HRESULT Recover();
    HRESULT NotifyLunState(DWORD dwFlags);
    HRESULT FinalCommit();
    HRESULT Record(VSS_ID* pSetId, std::string* pDocument);
    void Abort();

    std::vector<CVolume> m_volumes;
    LONG m_lContext;
    std::vector<VSS_PWSZ> m_devices;
    CLunRecords m_sources;
    CLunRecords m_targets;
    std::vector<std::u16string> m_disks; // the disk each target LUN appeared as
    CLoadedProvider m_provider;
    VSS_ID m_setId = GUID_NULL;
    VSS_TIMESTAMP m_tsCommit = 0;
};

HRESULT CShadowCopySet::ChooseProvider(const storagesim::StateView& view)
{
    std::vector<detail::ProviderRecord> providers;
    HRESULT hr = detail::ReadProviders(nullptr, &providers);
    if (FAILED(hr))
        return hr;
    for (const detail::ProviderRecord& provider : providers) {
        if (provider.type != VSS_PROV_HARDWARE || FAILED(m_provider.Load(provider)))
            continue;
        // The records as the disks report them, each asked about alone: a volume is one LUN.
        bool fAll = true;
        for (size_t i = 0; fAll && i < m_volumes.size(); ++i) {
            FreeLunInformation(m_sources[i]);
            hr = BuildDiskLunInformation(view.disks[m_volumes[i].iDisk], &m_sources[i]);
            if (FAILED(hr))
                return hr;
            BOOL fSupported = FALSE;
            hr = CallProvider("AreLunsSupported", [&] {
                return m_provider.Luns()->AreLunsSupported(1, m_lContext, &m_devices[i],
                                                           &m_sources[i], &fSupported);
            });
            fAll = SUCCEEDED(hr) && fSupported;
        }
        if (fAll)
            return S_OK;
        m_provider.Unload();
    }
    return VSS_E_VOLUME_NOT_SUPPORTED;
}

// A writer's veto at one of its events: the set is aborted, the requester sees its code.
HRESULT WriterEvent(const char* event)
{
    detail::EndProcessIfInjected(event);
    return detail::InjectedFault(event);
}

HRESULT CShadowCopySet::Prepare(bool* pfPrepared)
{
    HRESULT hr = S_OK;
    for (size_t i = 0; SUCCEEDED(hr) && i < m_volumes.size(); ++i) {
        if (FAILED(hr = CoCreateGuid(&m_volumes[i].snapshotId)))
            return hr;
        *pfPrepared = true;
        hr = CallProvider("BeginPrepareSnapshot", [&] {
            return m_provider.Luns()->BeginPrepareSnapshot(
                m_setId, m_volumes[i].snapshotId, m_lContext, 1, &m_devices[i], &m_sources[i]);
        });
        hr = FAILED(hr) ? ProviderFailure(hr) : hr;
    }
    return hr;
}

HRESULT CShadowCopySet::Commit()
{
    IVssProviderCreateSnapshotSet* pSet = m_provider.Set();
    HRESULT hr = WriterEvent("Writer:PrepareForSnapshot");
    if (FAILED(hr))
        return hr;
    hr = CallProvider("EndPrepareSnapshots", [&] { return pSet->EndPrepareSnapshots(m_setId); });
    if (FAILED(hr))
        return ProviderFailure(hr);
    if (FAILED(hr = WriterEvent("Writer:Freeze")))
        return hr;
    hr = CallProvider("PreCommitSnapshots", [&] { return pSet->PreCommitSnapshots(m_setId); });
    if (FAILED(hr))
        return ProviderFailure(hr);
    // The volumes' writes are flushed (at once: the simulated volumes cache nothing) and held
    // until the provider has committed.
    detail::CWriteHold hold;
    if (FAILED(hr = hold.Hold(MountPoints())))
        return hr;
    ULONGLONG ullHeld = GetTickCount64();
    m_tsCommit = Now();
    hr = CallProvider("CommitSnapshots", [&] { return pSet->CommitSnapshots(m_setId); });
    hold.Release();
    if (FAILED(hr))
        return ProviderFailure(hr);
    if (FAILED(hr = detail::InjectedFault("HoldWrites")))
        return hr;
    if (GetTickCount64() - ullHeld > kHoldWritesMs)
        return VSS_E_HOLD_WRITES_TIMEOUT;
    hr = CallProvider("PostCommitSnapshots",
                      [&] { return pSet->PostCommitSnapshots(m_setId, Count()); });
    if (FAILED(hr))
        return ProviderFailure(hr);
    return WriterEvent("Writer:Thaw");
}

HRESULT CShadowCopySet::Surface()
{
    // Each destination starts as its source's record. Its identifiers are left out: the
    // provider gives the target LUN a descriptor of its own.
    for (LONG i = 0; i < Count(); ++i) {
        HRESULT hr = CopyLunInformation(m_sources[i], &m_targets[i]);
        if (FAILED(hr))
            return hr;
        VDS_STORAGE_DEVICE_ID_DESCRIPTOR& descriptor = m_targets[i].m_deviceIdDescriptor;
        for (ULONG j = 0; j < descriptor.m_cIdentifiers; ++j)
            CoTaskMemFree(descriptor.m_rgIdentifiers[j].m_rgbIdentifier);
        CoTaskMemFree(descriptor.m_rgIdentifiers);
        descriptor.m_rgIdentifiers = nullptr;
        descriptor.m_cIdentifiers = 0;
    }
    HRESULT hr = CallProvider("GetTargetLuns", [&] {
        return m_provider.Luns()->GetTargetLuns(Count(), m_devices.data(), m_sources.Data(),
                                                m_targets.Data());
    });
    if (FAILED(hr))
        return ProviderFailure(hr);
    m_disks.assign(m_volumes.size(), std::u16string());
    // A transportable shadow copy stays on the storage system until it is imported, unless
    // it is recovered first.
    if ((m_lContext & VSS_VOLSNAP_ATTR_TRANSPORTABLE) && !Recovers())
        return S_OK;
    return detail::SurfaceTargetLuns(m_provider, Count(), m_targets.Data(), &m_disks);
}

HRESULT CShadowCopySet::NotifyLunState(DWORD dwFlags)
{
    // One call per shadow copy volume, with the LUNs that make it up.
    for (LONG i = 0; i < Count(); ++i) {
        HRESULT hr = CallProvider("OnLunStateChange", [&] {
            return m_provider.Luns()->OnLunStateChange(&m_targets[i], &m_sources[i], 1, dwFlags);
        });
        if (FAILED(hr))
            return ProviderFailure(hr);
    }
    return S_OK;
}

HRESULT CShadowCopySet::Recover()
{
    // The surfaced LUNs are made writable for the recovery only, then read-only again.
    HRESULT hr = NotifyLunState(VSS_ONLUNSTATECHANGE_NOTIFY_LUN_PRE_RECOVERY);
    if (FAILED(hr))
        return hr;
    storagesim::StateView view;
    if (FAILED(storagesim::ReadState(&view)))
        return VSS_E_UNEXPECTED;
    for (LONG i = 0; i < Count(); ++i)
        for (const storagesim::DiskInfo& disk : view.disks)
            if (m_targets[i].m_szSerialNumber && disk.serial == m_targets[i].m_szSerialNumber &&
                FAILED(storagesim::WriteLunData(disk.filer, disk.path, kRecoveryOffset,
                                                kRecoveryData)))
                return VSS_E_UNEXPECTED;
    return NotifyLunState(VSS_ONLUNSTATECHANGE_NOTIFY_LUN_POST_RECOVERY);
}

HRESULT CShadowCopySet::FinalCommit()
{
    // The recovery writes between the two: the provider may prepare for it, and may keep what
    // it made once the volumes are read-only for good.
    IVssProviderCreateSnapshotSet* pSet = m_provider.Set();
    HRESULT hr = CallProvider("PreFinalCommitSnapshots",
                              [&] { return pSet->PreFinalCommitSnapshots(m_setId); });
    if (FAILED(hr))
        return ProviderFailure(hr);
    if (Recovers() && FAILED(hr = Recover()))
        return hr;
    hr = CallProvider("PostFinalCommitSnapshots",
                      [&] { return pSet->PostFinalCommitSnapshots(m_setId); });
    if (FAILED(hr))
        return ProviderFailure(hr);
    if (!Recovers())
        return S_OK;
    // A transportable set leaves this host: its LUNs are masked, not deleted.
    if (FAILED(hr = NotifyLunState(VSS_ONLUNSTATECHANGE_DO_MASK_LUNS)))
        return hr;
    m_disks.assign(m_volumes.size(), std::u16string());
    return S_OK;
}

void CShadowCopySet::Abort()
{
    // Whatever the provider made is undone: the set, then the target LUNs that appeared.
    CallProvider("AbortSnapshots", [&] { return m_provider.Set()->AbortSnapshots(m_setId); });
    for (size_t i = 0; i < m_disks.size(); ++i)
        if (!m_disks[i].empty())
            CallProvider("OnLunEmpty", [&] {
                return m_provider.Luns()->OnLunEmpty(m_disks[i].data(), &m_targets[i]);
            });
}

HRESULT CShadowCopySet::Record(VSS_ID* pSetId, std::string* pDocument)
{
    std::vector<ShadowCopyInfo> copies;
    for (size_t i = 0; i < m_volumes.size(); ++i) {
        std::u16string volume(m_volumes[i].mountPoint.begin(), m_volumes[i].mountPoint.end());
        copies.push_back({m_volumes[i].snapshotId, m_setId, m_provider.Id(), m_lContext,
                          m_lContext | VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, volume, std::u16string(),
                          m_disks[i], m_tsCommit, EncodeLunInformation(m_sources[i]),
                          EncodeLunInformation(m_targets[i]), std::u16string()});
    }
    HRESULT hr = detail::AddShadowCopies(copies);
    if (FAILED(hr))
        return hr;
    *pSetId = m_setId;
    if (pDocument && (m_lContext & VSS_VOLSNAP_ATTR_TRANSPORTABLE))
        *pDocument = detail::WriteBackupComponentsDocument(copies);
    return S_OK;
}

HRESULT CShadowCopySet::Run(const storagesim::StateView& view, VSS_ID* pSetId,
                            std::string* pDocument)
{
    HRESULT hr = ChooseProvider(view);
    if (FAILED(hr))
        return hr;
    if (FAILED(hr = CoCreateGuid(&m_setId)))
        return hr;
    bool fPrepared = false;
    hr = Prepare(&fPrepared);
    if (SUCCEEDED(hr))
        hr = Commit();
    if (SUCCEEDED(hr))
        hr = Surface();
    if (SUCCEEDED(hr))
        hr = FinalCommit();
    if (SUCCEEDED(hr))
        hr = Record(pSetId, pDocument);
    if (FAILED(hr) && fPrepared)
        Abort();
    return hr;
}

} // namespace

HRESULT CreateShadowCopySet(const std::vector<std::u16string>& volumes, LONG lContext,
                            VSS_ID* pSetId, std::vector<VSS_ID>* pSnapshotIds)
{
    return CreateShadowCopySet(volumes, lContext, pSetId, pSnapshotIds, nullptr);
}

HRESULT CreateShadowCopySet(const std::vector<std::u16string>& volumes, LONG lContext,
                            VSS_ID* pSetId, std::vector<VSS_ID>* pSnapshotIds,
                            std::string* pBackupComponentsDocument)
{
    if (!pSetId || !pSnapshotIds)
        return E_INVALIDARG;
    *pSetId = GUID_NULL;
    pSnapshotIds->clear();
    if (pBackupComponentsDocument)
        pBackupComponentsDocument->clear();
    if (volumes.empty() || !IsKnownContext(lContext))
        return E_INVALIDARG;
    if (volumes.size() > kMaxVolumes)
        return VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED;
    try {
        storagesim::StateView view;
        if (FAILED(storagesim::ReadState(&view)))
            return VSS_E_UNEXPECTED;
        std::vector<CVolume> set;
        for (const std::u16string& name : volumes) {
            CVolume volume{VolumeMountPoint(name), 0, {}, GUID_NULL};
            if (!FindVolumeDisk(view, volume.mountPoint, &volume.iDisk))
                return VSS_E_OBJECT_NOT_FOUND;
            for (const CVolume& other : set)
                if (other.mountPoint == volume.mountPoint)
                    return VSS_E_OBJECT_ALREADY_EXISTS;
            volume.device = DiskDeviceName(volume.iDisk);
            set.push_back(std::move(volume));
        }
        auto pSet = std::make_unique<CShadowCopySet>(set, lContext);
        const auto start = std::chrono::steady_clock::now();
        const LONGLONG llProviderNs = detail::ProviderCallNs();
        HRESULT hr = pSet->Run(view, pSetId, pBackupComponentsDocument);
        detail::RecordSet(std::chrono::duration_cast<std::chrono::nanoseconds>(
                              std::chrono::steady_clock::now() - start)
                              .count(),
                          detail::ProviderCallNs() - llProviderNs);
        if (SUCCEEDED(hr))
            *pSnapshotIds = pSet->SnapshotIds();
        return hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace vsssim
