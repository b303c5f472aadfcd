#include "store/vdcache.h"

#include "diag/trace.h"
#include "provider/strings.h"
#include "res/orvmsg.h"

#include "pal/combaseapi.h"
#include "pal/winbase.h"

#include <cstring>

namespace {

// The cache lives for the whole process: the front and the core verify LUNs one VSS call at a
// time, so it takes no lock.
VD_INFO_LIST* g_pVDCache = nullptr;
bool g_fVDCacheValid = false;

constexpr SIZE_T kSerialBufferBytes = 13;
constexpr size_t kSerialChars = 12;

void FreeDisk(VD_INFO& disk)
{
    CoTaskMemFree(disk.ExtraString1);
    CoTaskMemFree(disk.Filer);
    CoTaskMemFree(disk.FilerPath);
    CoTaskMemFree(disk.ExtraString2);
    CoTaskMemFree(disk.SnapshotName);
    CoTaskMemFree(disk.SerialNumber);
    if (disk.MountPoint != nullptr) {
        for (ULONG i = 0; i < disk.MountPointCount; i++)
            CoTaskMemFree(disk.MountPoint[i]);
        CoTaskMemFree(disk.MountPoint);
    }
}

// The service's own list as EnumVirtualDisks filled it; freed once copied or on failure.
class CEnumResult
{
public:
    CEnumResult() { std::memset(&m_list, 0, sizeof(m_list)); }
    ~CEnumResult() { Free(); }
    CEnumResult(const CEnumResult&) = delete;
    CEnumResult& operator=(const CEnumResult&) = delete;

    VD_INFO_LIST* Get() { return &m_list; }
    void Free()
    {
        if (m_list.Disks != nullptr) {
            for (ULONG i = 0; i < m_list.Count; i++)
                FreeDisk(m_list.Disks[i]);
            CoTaskMemFree(m_list.Disks);
        }
        std::memset(&m_list, 0, sizeof(m_list));
    }

private:
    VD_INFO_LIST m_list;
};

// The state of one VerifyLun call. A failed verification must not leave a cache behind that
// may be the reason it failed, nor half-made results.
struct CVerifyContext
{
    HRESULT hr = E_FAIL;
    CEnumResult enumResult;
    IVSSSupport* pVssSupport = nullptr;
    LPSTR pszSerialAnsi = nullptr;
    LPWSTR pszFiler = nullptr;
    LPWSTR pszLunPath = nullptr;
    LPWSTR pszDrive = nullptr;

    CVerifyContext() = default;
    CVerifyContext(const CVerifyContext&) = delete;
    CVerifyContext& operator=(const CVerifyContext&) = delete;
    ~CVerifyContext()
    {
        if (FAILED(hr)) {
            SetVDCacheFalse();
            CoTaskMemFree(pszFiler);
            CoTaskMemFree(pszLunPath);
            CoTaskMemFree(pszDrive);
        }
        CoTaskMemFree(pszSerialAnsi);
        if (pVssSupport != nullptr)
            pVssSupport->Release();
    }
};

// A copy of a service string; a missing one becomes the empty string.
HRESULT CopyString(LPCWSTR pszSource, LPWSTR* ppszCopy)
{
    *ppszCopy = DuplicateString(pszSource);
    return *ppszCopy != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT CopyDisk(const VD_INFO& source, VD_INFO& target)
{
    HRESULT hr = CopyString(source.ExtraString1, &target.ExtraString1);
    if (SUCCEEDED(hr))
        hr = CopyString(source.Filer, &target.Filer);
    if (SUCCEEDED(hr))
        hr = CopyString(source.FilerPath, &target.FilerPath);
    if (SUCCEEDED(hr))
        hr = CopyString(source.ExtraString2, &target.ExtraString2);
    if (SUCCEEDED(hr))
        hr = CopyString(source.SnapshotName, &target.SnapshotName);
    if (FAILED(hr))
        return hr;
    if (source.SerialNumber != nullptr) {
        target.SerialNumber = static_cast<LPSTR>(CoTaskMemAlloc(kSerialBufferBytes));
        if (target.SerialNumber == nullptr)
            return E_OUTOFMEMORY;
        std::memset(target.SerialNumber, 0, kSerialBufferBytes);
        std::strncpy(target.SerialNumber, source.SerialNumber, kSerialChars);
    }
    target.ExtraDword1 = source.ExtraDword1;
    target.BackedBySnapshot = source.BackedBySnapshot;
    target.ExtraFlag1 = source.ExtraFlag1;
    target.Shared = source.Shared;
    target.ExtraFlag2 = source.ExtraFlag2;
    target.ExtraByte1 = source.ExtraByte1;
    target.ExtraByte2 = source.ExtraByte2;
    target.SCSIPort = source.SCSIPort;
    target.Bus = source.Bus;
    target.Target = source.Target;
    target.LUN = source.LUN;
    target.Readonly = source.Readonly;
    target.Size = source.Size;
    target.ExtraDword2 = source.ExtraDword2;
    target.ExtraDword3 = source.ExtraDword3;
    target.ExtraDword4 = source.ExtraDword4;
    target.MountPointCount = source.MountPointCount;
    if (source.MountPointCount > 0) {
        const SIZE_T cb = sizeof(LPWSTR) * source.MountPointCount;
        target.MountPoint = static_cast<LPWSTR*>(CoTaskMemAlloc(cb));
        if (target.MountPoint == nullptr)
            return E_OUTOFMEMORY;
        std::memset(target.MountPoint, 0, cb);
        for (ULONG i = 0; i < source.MountPointCount; i++) {
            LPCWSTR pszSource = source.MountPoint != nullptr ? source.MountPoint[i] : nullptr;
            const size_t cch = pszSource != nullptr ? lstrlenW(pszSource) : 0;
            target.MountPoint[i] = static_cast<LPWSTR>(CoTaskMemAlloc((cch + 1) * sizeof(WCHAR)));
            if (target.MountPoint[i] == nullptr)
                return E_OUTOFMEMORY;
            if (cch > 0)
                std::memcpy(target.MountPoint[i], pszSource, cch * sizeof(WCHAR));
            target.MountPoint[i][cch] = 0;
        }
    }
    return S_OK;
}

// Copies the enumeration into the cache header. A partial copy stays in the header, where
// SetVDCacheFalse frees it.
HRESULT FillCache(const VD_INFO_LIST& list)
{
    // An empty enumeration still gets its (empty) block, as the task allocator hands one out
    // for zero bytes.
    const SIZE_T cb = sizeof(VD_INFO) * static_cast<SIZE_T>(list.Count);
    VD_INFO* pDisks = static_cast<VD_INFO*>(CoTaskMemAlloc(cb));
    if (pDisks == nullptr)
        return E_OUTOFMEMORY;
    std::memset(pDisks, 0, cb);
    g_pVDCache->Disks = pDisks;
    g_pVDCache->Count = list.Count;
    for (ULONG i = 0; i < list.Count; i++) {
        HRESULT hr = CopyDisk(list.Disks[i], pDisks[i]);
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

bool HasMountPoint(const VD_INFO& disk)
{
    return disk.MountPointCount > 0 && disk.MountPoint != nullptr;
}

// Copies into c the names VerifyLun answers of the disk it found: the drive the disk is mounted
// at, its LUN path when fLunPath (a lookup by path has it already), and its filer.
HRESULT CopyFoundNames(const VD_INFO& disk, bool fLunPath, CVerifyContext& c)
{
    if (!HasMountPoint(disk)) {
        TRACE(TRACE_LEVEL_ERROR, W("Source lun does not have mounted drive\n"));
        return E_INVALIDARG;
    }
    c.pszDrive = DuplicateString(disk.MountPoint[0]);
    if (c.pszDrive == nullptr)
        return E_OUTOFMEMORY;
    if (fLunPath) {
        c.pszLunPath = DuplicateString(disk.FilerPath);
        if (c.pszLunPath == nullptr)
            return E_OUTOFMEMORY;
    }
    c.pszFiler = DuplicateString(disk.Filer);
    return c.pszFiler != nullptr ? S_OK : E_OUTOFMEMORY;
}

} // namespace

HRESULT GetVssSupport(IVSSSupport** ppVssSupport)
{
    CTraceScope scope(W("GetVssSupport"));
    HRESULT hr = CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER, IID_IVSSSupport,
                                  reinterpret_cast<void**>(ppVssSupport));
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("CoCreateInstance for IVSSSupport FAILED [hr=0x%08x]\n"), hr);
        *ppVssSupport = nullptr;
        return hr;
    }
    return S_OK;
}

HRESULT GetHyperVSupport(IHyperVSupport** ppHyperVSupport)
{
    CTraceScope scope(W("GetHyperVSupport"));
    HRESULT hr = CoCreateInstance(CLSID_HyperVSupport, nullptr, CLSCTX_LOCAL_SERVER,
                                  IID_IHyperVSupport, reinterpret_cast<void**>(ppHyperVSupport));
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("CoCreateInstance for IHyperVSupport FAILED [hr=0x%08x]\n"), hr);
        *ppHyperVSupport = nullptr;
        return hr;
    }
    return S_OK;
}

void SetVDCacheFalse()
{
    CTraceScope scope(W("SetVDCacheFalse"));
    g_fVDCacheValid = false;
    if (g_pVDCache == nullptr)
        return;
    if (g_pVDCache->Disks != nullptr) {
        TraceW(W("Free'ing VD_INFO buffer.... \n"));
        try {
            for (ULONG i = 0; i < g_pVDCache->Count; i++)
                FreeDisk(g_pVDCache->Disks[i]);
            CoTaskMemFree(g_pVDCache->Disks);
        } catch (...) {
            TraceW(W("Freed mountinfo buffer failed with exception.\n"));
        }
        g_pVDCache->Disks = nullptr;
    }
    TraceW(W("Freed mountinfo buffer succesfully.\n"));
    CoTaskMemFree(g_pVDCache);
    g_pVDCache = nullptr;
}

void DumpVirtualDiskInfo(const VD_INFO& info)
{
    if (!TraceIsOn(TRACE_LEVEL_INFO))
        return;
    TraceW(W("VirtualDiskInfo:\n"));
    CTraceIndent indent;
    TraceW(W("FilerPath=%s\n"), info.FilerPath);
    TraceA("SerialNumber=%s\n", info.SerialNumber);
    TraceW(W("BackedBySnapshot=%s\n"),
           info.BackedBySnapshot && info.SnapshotName != nullptr ? info.SnapshotName : W(""));
    TraceW(W("Shared=%d\n"), info.Shared);
    TraceW(W("SCSIPort=%d\n"), info.SCSIPort);
    TraceW(W("Bus=%d\n"), info.Bus);
    TraceW(W("Target=%d\n"), info.Target);
    TraceW(W("LUN=%d\n"), info.LUN);
    TraceW(W("Readonly=%d\n"), info.Readonly);
    TraceW(W("Size=%d\n"), static_cast<INT>(static_cast<DWORD>(info.Size)));
    if (info.MountPoint != nullptr) {
        for (ULONG i = 0; i < info.MountPointCount; i++)
            TraceW(W("MountPoint=%s\n"), info.MountPoint[i]);
    }
}

HRESULT VerifyLun(LPWSTR* ppszSerial, DWORD dwFlags, LPWSTR* ppszLunPath, LPWSTR* ppszFiler,
                  LPWSTR* ppszDrive)
{
    CTraceScope scope(W("VerifyLun"));
    CVerifyContext c;

    const bool fBySerial = ppszSerial != nullptr && *ppszSerial != nullptr;
    if (fBySerial) {
        c.pszSerialAnsi = UnicodeToAnsi(*ppszSerial);
        if (c.pszSerialAnsi == nullptr)
            return c.hr = E_OUTOFMEMORY;
    } else if (ppszLunPath != nullptr && *ppszLunPath != nullptr) {
        // A failed copy still fills the cache; only the lookup is skipped.
        c.pszLunPath = DuplicateString(*ppszLunPath);
    } else {
        return c.hr = E_INVALIDARG;
    }

    if (g_pVDCache == nullptr) {
        g_pVDCache = static_cast<VD_INFO_LIST*>(CoTaskMemAlloc(sizeof(VD_INFO_LIST)));
        if (g_pVDCache == nullptr)
            return c.hr = E_OUTOFMEMORY;
        g_pVDCache->Count = 0;
        g_pVDCache->Disks = nullptr;
        g_fVDCacheValid = false;
    }

    if (g_fVDCacheValid) {
        TRACE(TRACE_LEVEL_INFO, W("Fetching Enumerated values from cache...\n"));
    } else {
        c.hr = GetVssSupport(&c.pVssSupport);
        if (FAILED(c.hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("GetVssSupport FAILED [hr=0x%08x]\n"), c.hr);
            return c.hr;
        }
        TRACE(TRACE_LEVEL_INFO, W("Calling pVssSupport->EnumVirtualDisks\n"));
        c.hr = c.pVssSupport->EnumVirtualDisks(c.enumResult.Get(), dwFlags);
        if (FAILED(c.hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("pVssSupport->EnumVirtualDisks FAILED [hr=0x%08x]\n"), c.hr);
            return c.hr = ORVPROV_E_ENUMVDISK_FAILED;
        }
        c.hr = FillCache(*c.enumResult.Get());
        if (FAILED(c.hr))
            return c.hr;
        c.enumResult.Free();
        g_fVDCacheValid = true;
    }
    // The path could not be copied: nothing to look for, and the caller's outputs stay as they
    // are.
    if (!fBySerial && c.pszLunPath == nullptr)
        return c.hr = S_OK;

    if (fBySerial) {
        TRACE(TRACE_LEVEL_INFO, W("Looking for LUN with serial#=%s\n"), *ppszSerial);
        for (ULONG i = 0; i < g_pVDCache->Count; i++) {
            const VD_INFO& disk = g_pVDCache->Disks[i];
            if (disk.SerialNumber == nullptr || lstrcmpA(disk.SerialNumber, c.pszSerialAnsi) != 0)
                continue;
            DumpVirtualDiskInfo(disk);
            if (HRESULT hr = CopyFoundNames(disk, true, c); FAILED(hr))
                return c.hr = hr;
            break;
        }
        *ppszFiler = c.pszFiler;
        *ppszLunPath = c.pszLunPath;
        *ppszDrive = c.pszDrive;
        c.pszFiler = c.pszLunPath = c.pszDrive = nullptr;
        return c.hr = S_OK;
    }

    TRACE(TRACE_LEVEL_INFO, W("Looking for LUN with LunPath=%s\n"), c.pszLunPath);
    for (ULONG i = 0; i < g_pVDCache->Count; i++) {
        const VD_INFO& disk = g_pVDCache->Disks[i];
        if (lstrcmpW(disk.FilerPath, c.pszLunPath) != 0)
            continue;
        DumpVirtualDiskInfo(disk);
        if (ppszSerial != nullptr)
            *ppszSerial = AnsiToUnicode(disk.SerialNumber);
        if (HRESULT hr = CopyFoundNames(disk, false, c); FAILED(hr))
            return c.hr = hr;
        break;
    }
    *ppszFiler = c.pszFiler;
    *ppszDrive = c.pszDrive;
    c.pszFiler = c.pszDrive = nullptr;
    CoTaskMemFree(c.pszLunPath);
    c.pszLunPath = nullptr;
    return c.hr = S_OK;
}
