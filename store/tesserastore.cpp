#include "store/tesserastore.h"

#include "diag/config.h"
#include "diag/trace.h"
#include "provider/lunpath.h"
#include "provider/strings.h"
#include "res/orvmsg.h"
#include "store/vdcache.h"

#include "pal/combaseapi.h"
#include "pal/winbase.h"
#include "pal/winuser.h"

#include <cstring>
#include <new>

namespace {

// The resources of one service call: the service object and the three parts of a split path 2,
// released on every exit.
struct CStoreContext
{
    IVSSSupport* pVssSupport = nullptr;
    LPWSTR pszFiler = nullptr;
    LPWSTR pszSourceLunPath = nullptr;
    LPWSTR pszSnapshotName = nullptr;

    CStoreContext() = default;
    CStoreContext(const CStoreContext&) = delete;
    CStoreContext& operator=(const CStoreContext&) = delete;
    ~CStoreContext()
    {
        if (pVssSupport != nullptr)
            pVssSupport->Release();
        CoTaskMemFree(pszFiler);
        CoTaskMemFree(pszSourceLunPath);
        CoTaskMemFree(pszSnapshotName);
    }

    HRESULT Connect()
    {
        HRESULT hr = GetVssSupport(&pVssSupport);
        if (FAILED(hr))
            TRACE(TRACE_LEVEL_ERROR, W("GetVssSupport FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
};

void ReportFailure(IVSSSupport* pVssSupport)
{
    TraceComException(W("Tessera"), pVssSupport, IID_IVSSSupport);
}

// The drives of a set, task-allocated, freed with the holder.
// The two service records that carry the entries' source drives: DRIVE_NAMES holds the strings
// themselves, DRIVE_LIST holds them inside DRIVE_ENTRY elements.
struct DRIVE_NAMES_LAYOUT
{
    using Record = DRIVE_NAMES;
    using Element = LPWSTR;
    static Element*& Array(Record& record) { return record.Names; }
    static LPWSTR& Drive(Element& element) { return element; }
};

struct DRIVE_LIST_LAYOUT
{
    using Record = DRIVE_LIST;
    using Element = DRIVE_ENTRY;
    static Element*& Array(Record& record) { return record.Drives; }
    static LPWSTR& Drive(Element& element) { return element.Drive; }
};

// A task-allocated array with one copy of each entry's source drive, freed with its strings on
// every exit.
template <typename Layout>
class CDriveArray
{
public:
    CDriveArray() { std::memset(&m_record, 0, sizeof(m_record)); }
    ~CDriveArray()
    {
        typename Layout::Element* pElements = Layout::Array(m_record);
        if (pElements != nullptr) {
            for (ULONG i = 0; i < m_record.Count; i++)
                CoTaskMemFree(Layout::Drive(pElements[i]));
            CoTaskMemFree(pElements);
        }
    }
    CDriveArray(const CDriveArray&) = delete;
    CDriveArray& operator=(const CDriveArray&) = delete;

    HRESULT Build(CLinkedList<CSnapshotEntry>* pEntries)
    {
        const ULONG count = pEntries->GetCount();
        const SIZE_T cb = sizeof(typename Layout::Element) * count;
        auto* pElements = static_cast<typename Layout::Element*>(CoTaskMemAlloc(cb));
        if (pElements == nullptr)
            return E_OUTOFMEMORY;
        std::memset(pElements, 0, cb);
        Layout::Array(m_record) = pElements;
        m_record.Count = count;
        ULONG i = 0;
        for (pEntries->MoveFirst(); pEntries->HasCurrent() && i < count; pEntries->MoveNext()) {
            LPWSTR& pszDrive = Layout::Drive(pElements[i]);
            pszDrive = DuplicateString(pEntries->Current()->SourceDrive());
            if (pszDrive == nullptr)
                return E_OUTOFMEMORY;
            i++;
        }
        return S_OK;
    }
    typename Layout::Record* Get() { return &m_record; }

private:
    typename Layout::Record m_record;
};

using CDriveNames = CDriveArray<DRIVE_NAMES_LAYOUT>;
using CDriveListHolder = CDriveArray<DRIVE_LIST_LAYOUT>;

bool IsEmpty(LPCWSTR psz)
{
    return psz == nullptr || psz[0] == 0;
}

} // namespace

CTesseraStoreSubSystem::CTesseraStoreSubSystem() : m_pTessera(nullptr) {}

CTesseraStoreSubSystem::~CTesseraStoreSubSystem()
{
    delete m_pTessera;
    m_pTessera = nullptr;
}

HRESULT CTesseraStoreSubSystem::Initialize()
{
    CTraceScope scope(W("CTesseraStoreSubSystem::Initialize"));
    return S_OK;
}

HRESULT CTesseraStoreSubSystem::PrepareSnapshot(LPCWSTR pszSnapshotName,
                                                CLinkedList<CSnapshotEntry>* pEntries,
                                                LC_PAIR_ARRAY* pLcPairs, DWORD dwCreationKind)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::PrepareSnapshot"));
    if (pEntries->GetCount() == 0)
        return E_INVALIDARG;
    CTesseraHelper* pTessera = new (std::nothrow) CTesseraHelper(CConfig::GetAsyncCreateSnapshot());
    if (pTessera == nullptr)
        return E_INVALIDARG;
    delete m_pTessera;
    m_pTessera = pTessera;

    CDriveNames names;
    HRESULT hr = names.Build(pEntries);
    if (FAILED(hr))
        return hr;
    TRACE(TRACE_LEVEL_INFO, W("Calling m_pTessera->PrepareSnapshot\n"));
    hr = m_pTessera->PrepareSnapshot(names.Get(), pszSnapshotName, pLcPairs, dwCreationKind);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pTessera->PrepareSnapshot FAILED [hr=0x%08x]\n"), hr);
        return ORVPROV_E_PREPARESNAPSHOT_FAILED;
    }
    return S_OK;
}

HRESULT CTesseraStoreSubSystem::CreateSnapshot()
{
    // Nothing was prepared: there is no creation to finish.
    if (m_pTessera == nullptr)
        return E_UNEXPECTED;
    HRESULT hr = m_pTessera->CreateSnapshot();
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pTessera->CreateSnapshot FAILED [hr=0x%08x]\n"), hr);
        return ORVPROV_E_CREATESNAPSHOT_FAILED;
    }
    return hr;
}

HRESULT CTesseraStoreSubSystem::CancelSnapshot(LPCWSTR pszSnapshotName,
                                               CLinkedList<CSnapshotEntry>* pEntries)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::CancelSnapshot"));
    if (m_pTessera != nullptr)
        m_pTessera->CancelSnapshot();
    for (pEntries->MoveFirst(); pEntries->HasCurrent(); pEntries->MoveNext()) {
        const CSnapshotEntry* pEntry = pEntries->Current();
        TRACE(TRACE_LEVEL_INFO, W("lunPath=%s, lunPath2=%s\n"), pEntry->TargetLunPath(),
              pEntry->TargetLunPath2());
        if (!IsEmpty(pEntry->TargetLunPath()) && !IsEmpty(pEntry->TargetLunPath2())) {
            HRESULT hr = DeleteTargetLun(pEntry->TargetLunPath(), pEntry->TargetLunPath2());
            if (SUCCEEDED(hr))
                TRACE(TRACE_LEVEL_INFO, W("DeleteTargetLun succeeded\n"));
            else
                TRACE(TRACE_LEVEL_ERROR, W("DeleteTargetLun FAILED[hr=0x%08x]\n"), hr);
        } else {
            TRACE(TRACE_LEVEL_INFO,
                  W("Empty targetlunpath and targetlunpath2, do DeleteSnapShot\n"));
            DeleteSnapshot(pEntry->Filer(), pEntry->SourcePath(), pszSnapshotName);
        }
    }
    return S_OK;
}

HRESULT CTesseraStoreSubSystem::GetTargetLunInfo(LPCWSTR pszFiler, LPCWSTR pszSourceLunPath,
                                                 LPCWSTR pszSnapshotName, LONG eSnapshotAttr,
                                                 CTargetLunInfo* pTargetLunInfo)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::GetTargetLunInfo"));
    TRACE(TRACE_LEVEL_INFO, W("pszFiler=%s\n"), pszFiler);
    TRACE(TRACE_LEVEL_INFO, W("pszSourceLunPath=%s\n"), pszSourceLunPath);
    TRACE(TRACE_LEVEL_INFO, W("pszSnapshotName=%s\n"), pszSnapshotName);
    CStoreContext c;
    HRESULT hr = c.Connect();
    if (FAILED(hr))
        return hr;
    TRACE(TRACE_LEVEL_INFO, W("Calling c.pVssSupport->GetTargetLunInfo\n"));
    LUN_LOCATION source{const_cast<LPWSTR>(pszFiler), const_cast<LPWSTR>(pszSourceLunPath)};
    TARGET_LUN_INFO* pInfo = nullptr;
    hr = c.pVssSupport->GetTargetLunInfo(&source, pszSnapshotName, 1, eSnapshotAttr > 0 ? 1 : 0,
                                         &pInfo);
    if (FAILED(hr) || pInfo == nullptr) {
        TRACE(TRACE_LEVEL_ERROR,
              W("c.pVssSupport->GetTargetLunInfo FAILED [pTargetLunInfo=0x%08x, hr=0x%08x]\n"),
              static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(pInfo)), hr);
        ReportFailure(c.pVssSupport);
        return ORVPROV_E_GETTARGETLUNINFO_FAILED;
    }
    TRACE(TRACE_LEVEL_INFO, W("pTargetLunInfo->serialNumber=%s\n"), pInfo->serialNumber);
    TRACE(TRACE_LEVEL_INFO, W("pTargetLunInfo->vendorId=%s\n"), pInfo->vendorId);
    TRACE(TRACE_LEVEL_INFO, W("pTargetLunInfo->productId=%s\n"), pInfo->productId);
    TRACE(TRACE_LEVEL_INFO, W("pTargetLunInfo->productRevision=%s\n"), pInfo->productRevision);
    TRACE(TRACE_LEVEL_INFO, W("pTargetLunInfo->lunLocation.lunPath=%s\n"),
          pInfo->lunLocation.lunPath);
    pTargetLunInfo->SetSerialNo(pInfo->serialNumber);
    pTargetLunInfo->SetVendorId(pInfo->vendorId);
    pTargetLunInfo->SetProductId(pInfo->productId);
    pTargetLunInfo->SetProductRevision(pInfo->productRevision);
    pTargetLunInfo->SetTargetLunPath1(pInfo->lunLocation.lunPath);
    CoTaskMemFree(pInfo->lunLocation.filerName);
    CoTaskMemFree(pInfo);

    const size_t cch =
        lstrlenW(pszFiler) + lstrlenW(pszSourceLunPath) + lstrlenW(pszSnapshotName) + 3;
    LPWSTR pszPath2 = static_cast<LPWSTR>(CoTaskMemAlloc(cch * sizeof(WCHAR)));
    if (pszPath2 == nullptr)
        return E_OUTOFMEMORY;
    wsprintfW(pszPath2, W("%s:%s:%s"), pszFiler, pszSourceLunPath, pszSnapshotName);
    pTargetLunInfo->SetTargetLunPath2(pszPath2);
    TRACE(TRACE_LEVEL_INFO, W("pTgtLunInfo->GetLunPath2()=%s\n"), pszPath2);
    return S_OK;
}

HRESULT CTesseraStoreSubSystem::MapTargetLun(LPCWSTR pszSnapshotName,
                                             CTargetLunInfo* pTargetLunInfo)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::MapTargetLun"));
    CStoreContext c;
    HRESULT hr = c.Connect();
    if (FAILED(hr))
        return hr;
    LUN_LOCATION source{const_cast<LPWSTR>(pTargetLunInfo->FilerName()),
                        const_cast<LPWSTR>(pTargetLunInfo->SourceLunPath())};
    TARGET_LUN_INFO target{{const_cast<LPWSTR>(pTargetLunInfo->FilerName()),
                            const_cast<LPWSTR>(pTargetLunInfo->TargetLunPath1())},
                           const_cast<LPWSTR>(pTargetLunInfo->SerialNo()),
                           const_cast<LPWSTR>(pTargetLunInfo->VendorId()),
                           const_cast<LPWSTR>(pTargetLunInfo->ProductId()),
                           const_cast<LPWSTR>(pTargetLunInfo->ProductRevision())};
    TRACE(TRACE_LEVEL_INFO, W("Calling c.pVssSupport->CreateTargetLun\n"));
    TRACE(TRACE_LEVEL_INFO, W("lunLocation.filerName=%s\n"), source.filerName);
    TRACE(TRACE_LEVEL_INFO, W("lunLocation.lunPath=%s\n"), source.lunPath);
    TRACE(TRACE_LEVEL_INFO, W("targetLunInfo.serialNumber=%s\n"), target.serialNumber);
    TRACE(TRACE_LEVEL_INFO, W("targetLunInfo.vendorId=%s\n"), target.vendorId);
    TRACE(TRACE_LEVEL_INFO, W("targetLunInfo.productId=%s\n"), target.productId);
    TRACE(TRACE_LEVEL_INFO, W("targetLunInfo.productRevision=%s\n"), target.productRevision);
    TRACE(TRACE_LEVEL_INFO, W("targetLunInfo.lunLocation.filerName=%s\n"),
          target.lunLocation.filerName);
    TRACE(TRACE_LEVEL_INFO, W("targetLunInfo.lunLocation.lunPath=%s\n"),
          target.lunLocation.lunPath);
    hr = c.pVssSupport->CreateTargetLun(&source, pszSnapshotName, &target);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("c.pVssSupport->CreateTargetLun FAILED [hr=0x%08x]\n"), hr);
        ReportFailure(c.pVssSupport);
        return ORVPROV_E_MAPTARGETLUN_FAILED;
    }
    return S_OK;
}

HRESULT CTesseraStoreSubSystem::RemoveTargetLun(LPCWSTR pszTargetLunPath, LPCWSTR pszTargetLunPath2,
                                                BOOL fDeleteSnapshot)
{
    TRACE(TRACE_LEVEL_INFO, W("pszTargetLunPath=%s\n"), pszTargetLunPath);
    TRACE(TRACE_LEVEL_INFO, W("pszTargetLunPath2=%s\n"), pszTargetLunPath2);
    CStoreContext c;
    HRESULT hr =
        CrackLunPath2(pszTargetLunPath2, &c.pszFiler, &c.pszSourceLunPath, &c.pszSnapshotName);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("CrackLunPath2 FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    TRACE(TRACE_LEVEL_INFO, W("pszFiler=%s\n"), c.pszFiler);
    TRACE(TRACE_LEVEL_INFO, W("pszSourceLunPath=%s\n"), c.pszSourceLunPath);
    TRACE(TRACE_LEVEL_INFO, W("pszSnapshotName=%s\n"), c.pszSnapshotName);
    hr = c.Connect();
    if (FAILED(hr))
        return hr;
    TRACE(TRACE_LEVEL_INFO, W("Calling pVssSupport->DeleteTargetLun\n"));
    LUN_LOCATION target{c.pszFiler, const_cast<LPWSTR>(pszTargetLunPath)};
    hr = c.pVssSupport->DeleteTargetLun(&target);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("c.pVssSupport->DeleteTargetLun FAILED [hr=0x%08x]\n"), hr);
        ReportFailure(c.pVssSupport);
    }
    if (fDeleteSnapshot) {
        TRACE(TRACE_LEVEL_INFO, W("Calling DeleteSnapShot\n"));
        hr = DeleteSnapshot(c.pszFiler, c.pszSourceLunPath, c.pszSnapshotName);
        if (FAILED(hr))
            TRACE(TRACE_LEVEL_ERROR, W("DeleteSnapShot FAILED, hr=0x%08x]\n"), hr);
    }
    return S_OK;
}

HRESULT CTesseraStoreSubSystem::DeleteTargetLun(LPCWSTR pszTargetLunPath, LPCWSTR pszTargetLunPath2)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::DeleteTargetLun"));
    return RemoveTargetLun(pszTargetLunPath, pszTargetLunPath2, TRUE);
}

HRESULT CTesseraStoreSubSystem::UnmapTargetLun(LPCWSTR pszTargetLunPath, LPCWSTR pszTargetLunPath2)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::UnmapTargetLun"));
    return RemoveTargetLun(pszTargetLunPath, pszTargetLunPath2, FALSE);
}

HRESULT CTesseraStoreSubSystem::VerifyLun(LPWSTR* ppszSerial, DWORD dwFlags, LPWSTR* ppszLunPath,
                                          LPWSTR* ppszFiler, LPWSTR* ppszDrive)
{
    return ::VerifyLun(ppszSerial, dwFlags, ppszLunPath, ppszFiler, ppszDrive);
}

HRESULT CTesseraStoreSubSystem::DeleteSnapshot(LPCWSTR pszFiler, LPCWSTR pszSourceLunPath,
                                               LPCWSTR pszSnapshotName)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::DeleteSnapshot"));
    TRACE(TRACE_LEVEL_INFO, W("pszFiler=%s, pszSourceLunPath=%s, pszSnapshotName=%s\n"), pszFiler,
          pszSourceLunPath, pszSnapshotName);
    if (pszFiler == nullptr || pszSourceLunPath == nullptr || pszSnapshotName == nullptr) {
        TRACE(TRACE_LEVEL_WARNING, W("Empty param(s), skipping DeleteSnapShot\n"));
        return S_OK;
    }
    CStoreContext c;
    HRESULT hr = c.Connect();
    if (FAILED(hr))
        return hr;
    TRACE(TRACE_LEVEL_INFO, W("Calling c.pVssSupport->DeleteSnapShot\n"));
    LUN_LOCATION source{const_cast<LPWSTR>(pszFiler), const_cast<LPWSTR>(pszSourceLunPath)};
    hr = c.pVssSupport->DeleteSnapShot(&source, pszSnapshotName);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("c.pVssSupport->DeleteSnapShot FAILED, hr=0x%08x]\n"), hr);
        ReportFailure(c.pVssSupport);
    }
    return S_OK;
}

HRESULT CTesseraStoreSubSystem::SetDatasetAttrib(LPCWSTR pszSnapshotSetId,
                                                 CLinkedList<CSnapshotEntry>* pEntries)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::SetDatasetAttrib"));
    CDriveListHolder drives;
    HRESULT hr = drives.Build(pEntries);
    if (FAILED(hr))
        return hr;
    CStoreContext c;
    hr = c.Connect();
    if (FAILED(hr))
        return hr;
    TRACE(TRACE_LEVEL_INFO, W("Calling c.pVssSupport->SetDatasetAttrib\n"));
    hr = c.pVssSupport->SetDatasetAttrib(pszSnapshotSetId, drives.Get());
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("c.pVssSupport->SetDatasetAttrib FAILED, hr=0x%08x]\n"), hr);
        ReportFailure(c.pVssSupport);
    } else {
        TRACE(TRACE_LEVEL_INFO, W("Call c.pVssSupport->SetDatasetAttrib return S_OK\n"));
    }
    return hr;
}

HRESULT CTesseraStoreSubSystem::IsUnlockedCloneSupported(LPCWSTR pszFiler, BOOLEAN* pfSupported)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::IsUnlockedCloneSupported"));
    CStoreContext c;
    HRESULT hr = c.Connect();
    if (FAILED(hr))
        return hr;
    TRACE(TRACE_LEVEL_INFO, W("Getting unlocked clone support for %s\n"), pszFiler);
    hr = c.pVssSupport->IsUnlockedCloneSupported(pszFiler, pfSupported);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("c.pVssSupport->IsUnlockedCloneSupported FAILED, hr=0x%08x]\n"),
              hr);
        ReportFailure(c.pVssSupport);
    }
    return hr;
}
