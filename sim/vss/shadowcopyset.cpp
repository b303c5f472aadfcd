// CreateShadowCopySet: the sequence of calls VSS makes to a hardware provider to make one
// shadow copy set, from choosing the provider to recording the shadow copies.
#include "hostdisks.h"
#include "inventory.h"
#include "loadedprovider.h"
#include "lunbuilder.h"
#include "lunencoding.h"
#include "vsssim.h"
#include "writehold.h"

#include "pal/combaseapi.h"
#include "pal/sysinfoapi.h"

#include <chrono>
#include <memory>
#include <set>

namespace vsssim {

namespace {

using detail::CLoadedProvider;
using detail::ProviderFailure;

constexpr size_t kMaxVolumes = 64;
// How long VSS lets the volumes' writes be held around the commit.
constexpr ULONGLONG kHoldWritesMs = 10 * 1000;

// The attributes a requester may add to a context, and the contexts without them.
constexpr LONG kAddedAttributes = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE |
                                  VSS_VOLSNAP_ATTR_TRANSPORTABLE |
                                  VSS_VOLSNAP_ATTR_NO_AUTORECOVERY |
                                  VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY;
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

// The records of a set, one per volume, each freed with the set.
class CLunRecords
{
public:
    explicit CLunRecords(size_t count) : m_luns(count) {}
    CLunRecords(const CLunRecords&) = delete;
    CLunRecords& operator=(const CLunRecords&) = delete;
    ~CLunRecords()
    {
        for (auto& lun : m_luns)
            FreeLunInformation(lun);
    }
    VDS_LUN_INFORMATION& operator[](size_t i) { return m_luns[i]; }
    VDS_LUN_INFORMATION* Data() { return m_luns.data(); }

private:
    std::vector<VDS_LUN_INFORMATION> m_luns;
};

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

    HRESULT Run(const storagesim::StateView& view, VSS_ID* pSetId);
    std::vector<VSS_ID> SnapshotIds() const
    {
        std::vector<VSS_ID> ids;
        for (const CVolume& volume : m_volumes)
            ids.push_back(volume.snapshotId);
        return ids;
    }

private:
    LONG Count() const { return static_cast<LONG>(m_volumes.size()); }
    std::vector<std::string> MountPoints() const
    {
        std::vector<std::string> mountPoints;
        for (const CVolume& volume : m_volumes)
            mountPoints.push_back(volume.mountPoint);
        return mountPoints;
    }
    HRESULT ChooseProvider(const storagesim::StateView& view);
    HRESULT Commit();
    HRESULT Surface();
    HRESULT Record(VSS_ID* pSetId);

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
            hr = m_provider.Luns()->AreLunsSupported(1, m_lContext, &m_devices[i], &m_sources[i],
                                                     &fSupported);
            fAll = SUCCEEDED(hr) && fSupported;
        }
        if (fAll)
            return S_OK;
        m_provider.Unload();
    }
    return VSS_E_VOLUME_NOT_SUPPORTED;
}

HRESULT CShadowCopySet::Commit()
{
    IVssProviderCreateSnapshotSet* pSet = m_provider.Set();
    HRESULT hr = pSet->EndPrepareSnapshots(m_setId);
    // Writers would freeze here.
    if (SUCCEEDED(hr))
        hr = pSet->PreCommitSnapshots(m_setId);
    if (FAILED(hr))
        return ProviderFailure(hr);
    // The volumes' writes are flushed (at once: the simulated volumes cache nothing) and held
    // until the provider has committed.
    detail::CWriteHold hold;
    if (FAILED(hr = hold.Hold(MountPoints())))
        return hr;
    ULONGLONG ullHeld = GetTickCount64();
    m_tsCommit = Now();
    hr = pSet->CommitSnapshots(m_setId);
    hold.Release();
    if (FAILED(hr))
        return ProviderFailure(hr);
    if (GetTickCount64() - ullHeld > kHoldWritesMs)
        return VSS_E_HOLD_WRITES_TIMEOUT;
    hr = pSet->PostCommitSnapshots(m_setId, Count());
    // Writers would thaw here.
    return FAILED(hr) ? ProviderFailure(hr) : S_OK;
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
    HRESULT hr = m_provider.Luns()->GetTargetLuns(Count(), m_devices.data(), m_sources.Data(),
                                                  m_targets.Data());
    if (FAILED(hr))
        return ProviderFailure(hr);
    m_disks.assign(m_volumes.size(), std::u16string());
    // A transportable shadow copy stays on the storage system until it is imported.
    if (m_lContext & VSS_VOLSNAP_ATTR_TRANSPORTABLE)
        return S_OK;

    storagesim::StateView before;
    if (FAILED(hr = storagesim::ReadState(&before)))
        return VSS_E_UNEXPECTED;
    hr = m_provider.Luns()->LocateLuns(Count(), m_targets.Data());
    if (FAILED(hr))
        return ProviderFailure(hr);
    // The host rescans: each disk that was not there is described and offered to the provider,
    // and the ones it completes are matched to the destinations by serial number.
    storagesim::StateView after;
    if (FAILED(hr = storagesim::ReadState(&after)))
        return VSS_E_UNEXPECTED;
    std::set<std::string> known;
    for (const auto& disk : before.disks)
        known.insert(disk.filer + ":" + disk.path + ":" + disk.serial);
    for (size_t iDisk = 0; iDisk < after.disks.size(); ++iDisk) {
        const storagesim::DiskInfo& disk = after.disks[iDisk];
        if (known.count(disk.filer + ":" + disk.path + ":" + disk.serial))
            continue;
        VDS_LUN_INFORMATION lun;
        if (FAILED(hr = BuildDiskLunInformation(disk, &lun)))
            return hr;
        std::u16string device = DiskDeviceName(iDisk);
        BOOL fSupported = FALSE;
        hr = m_provider.Luns()->FillInLunInfo(device.data(), &lun, &fSupported);
        for (LONG i = 0; SUCCEEDED(hr) && fSupported && i < Count(); ++i)
            if (m_targets[i].m_szSerialNumber && lun.m_szSerialNumber &&
                std::string(m_targets[i].m_szSerialNumber) == lun.m_szSerialNumber)
                m_disks[i] = device;
        FreeLunInformation(lun);
        if (FAILED(hr))
            return ProviderFailure(hr);
    }
    for (const std::u16string& disk : m_disks)
        if (disk.empty())
            return VSS_E_UNEXPECTED_PROVIDER_ERROR;
    return S_OK;
}

HRESULT CShadowCopySet::Record(VSS_ID* pSetId)
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
    if (SUCCEEDED(hr))
        *pSetId = m_setId;
    return hr;
}

HRESULT CShadowCopySet::Run(const storagesim::StateView& view, VSS_ID* pSetId)
{
    HRESULT hr = ChooseProvider(view);
    if (FAILED(hr))
        return hr;
    if (FAILED(hr = CoCreateGuid(&m_setId)))
        return hr;
    bool fPrepared = false;
    for (size_t i = 0; SUCCEEDED(hr) && i < m_volumes.size(); ++i) {
        hr = CoCreateGuid(&m_volumes[i].snapshotId);
        if (SUCCEEDED(hr)) {
            fPrepared = true;
            hr = m_provider.Luns()->BeginPrepareSnapshot(
                m_setId, m_volumes[i].snapshotId, m_lContext, 1, &m_devices[i], &m_sources[i]);
            hr = FAILED(hr) ? ProviderFailure(hr) : hr;
        }
    }
    if (SUCCEEDED(hr))
        hr = Commit();
    if (SUCCEEDED(hr))
        hr = Surface();
    if (SUCCEEDED(hr)) {
        HRESULT hrFinal = m_provider.Set()->PreFinalCommitSnapshots(m_setId);
        if (SUCCEEDED(hrFinal))
            hrFinal = m_provider.Set()->PostFinalCommitSnapshots(m_setId);
        hr = FAILED(hrFinal) ? ProviderFailure(hrFinal) : hr;
    }
    if (SUCCEEDED(hr))
        hr = Record(pSetId);
    if (FAILED(hr) && fPrepared) {
        // Whatever the provider made is undone: the set, then the target LUNs that appeared.
        m_provider.Set()->AbortSnapshots(m_setId);
        for (size_t i = 0; i < m_disks.size(); ++i)
            if (!m_disks[i].empty())
                m_provider.Luns()->OnLunEmpty(m_disks[i].data(), &m_targets[i]);
    }
    return hr;
}

} // namespace

HRESULT CreateShadowCopySet(const std::vector<std::u16string>& volumes, LONG lContext,
                            VSS_ID* pSetId, std::vector<VSS_ID>* pSnapshotIds)
{
    if (!pSetId || !pSnapshotIds)
        return E_INVALIDARG;
    *pSetId = GUID_NULL;
    pSnapshotIds->clear();
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
        HRESULT hr = pSet->Run(view, pSetId);
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
