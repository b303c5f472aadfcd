#include "diag/config.h"
#include "diag/trace.h"
#include "provider/strings.h"
#include "store/tesserastore.h"
#include "store/vdcache.h"

#include "pal/atlbase.h"
#include "pal/combaseapi.h"
#include "pal/regkey.h"
#include "pal/winbase.h"
#include "pal/winuser.h"

#include <memory>
#include <new>

namespace {

constexpr size_t kSaveKeyChars = 256;
constexpr size_t kLoadKeyChars = 264;
constexpr DWORD kMaxRecords = 60;
constexpr DWORD kSubkeyNameChars = 255;
constexpr ULONG kShortValueBytes = 255;
constexpr ULONG kLongValueBytes = 16383;

// The full key path of the record named pszName into szKey (cchKey units); false when it does
// not fit, as a truncated path would name another record.
bool FormatRecordKey(LPWSTR szKey, size_t cchKey, LPCWSTR pszName)
{
    if (static_cast<size_t>(lstrlenW(ORV_MAPPED_TARGET_LUNS_KEY)) + 1 +
            static_cast<size_t>(lstrlenW(pszName)) + 1 >
        cchKey)
        return false;
    wsprintfW(szKey, W("%s\\%s"), ORV_MAPPED_TARGET_LUNS_KEY, pszName);
    return true;
}

struct ValueSpec
{
    LPCWSTR pszName;
    ULONG cbLimit;
};

// Read order; the buffers are sized by the largest limit.
enum ValueIndex
{
    kFilerName,
    kSourceLunPath,
    kSnapshotName,
    kTargetLunPath1,
    kTargetLunPath2,
    kDeviceId,
    kValueCount
};
const ValueSpec kReadOrder[kValueCount] = {
    {W("FilerName"), kShortValueBytes},     {W("SourceLunPath"), kLongValueBytes},
    {W("SnapshotName"), kShortValueBytes},  {W("TargetLunPath1"), kLongValueBytes},
    {W("TargetLunPath2"), kLongValueBytes}, {W("DeviceId"), kLongValueBytes},
};

// The service's answer for one record, freed on every path.
class CTargetLunBlock
{
public:
    CTargetLunBlock() = default;
    ~CTargetLunBlock()
    {
        if (m_p != nullptr) {
            CoTaskMemFree(m_p->lunLocation.filerName);
            CoTaskMemFree(m_p->lunLocation.lunPath);
            CoTaskMemFree(m_p->serialNumber);
            CoTaskMemFree(m_p->vendorId);
            CoTaskMemFree(m_p->productId);
            CoTaskMemFree(m_p->productRevision);
            CoTaskMemFree(m_p);
        }
    }
    CTargetLunBlock(const CTargetLunBlock&) = delete;
    CTargetLunBlock& operator=(const CTargetLunBlock&) = delete;
    TARGET_LUN_INFO** operator&() { return &m_p; }
    TARGET_LUN_INFO* operator->() const { return m_p; }
    TARGET_LUN_INFO* Get() const { return m_p; }

private:
    TARGET_LUN_INFO* m_p = nullptr;
};

// The six values of one record, each within its byte limit.
struct CRecordValues
{
    WCHAR sz[kValueCount][kLongValueBytes / sizeof(WCHAR) + 1];
};

// Fills every field of a new map record with copies; false when one copy fails.
bool FillRecord(CTargetLunInfo& info, const TARGET_LUN_INFO& block, LPCWSTR pszSerial,
                const CRecordValues& values)
{
    LPWSTR pszVendor = DuplicateString(block.vendorId);
    LPWSTR pszProduct = DuplicateString(block.productId);
    LPWSTR pszRevision = DuplicateString(block.productRevision);
    LPWSTR pszSerialNo = DuplicateString(pszSerial);
    LPWSTR pszPath1 = DuplicateString(values.sz[kTargetLunPath1]);
    LPWSTR pszPath2 = DuplicateString(values.sz[kTargetLunPath2]);
    LPWSTR pszFiler = DuplicateString(values.sz[kFilerName]);
    LPWSTR pszSource = DuplicateString(values.sz[kSourceLunPath]);
    LPWSTR pszDevice = DuplicateString(values.sz[kDeviceId]);
    LPWSTR pszSnapshot = DuplicateString(values.sz[kSnapshotName]);
    // The record frees whatever it was given when it is destroyed.
    info.SetVendorId(pszVendor);
    info.SetProductId(pszProduct);
    info.SetProductRevision(pszRevision);
    info.SetSerialNo(pszSerialNo);
    info.SetTargetLunPath1(pszPath1);
    info.SetTargetLunPath2(pszPath2);
    info.SetFilerNameAndSourceLunPath(pszFiler, pszSource);
    info.SetDeviceId(pszDevice);
    info.SetSnapshotName(pszSnapshot);
    return pszVendor && pszProduct && pszRevision && pszSerialNo && pszPath1 && pszPath2 &&
           pszFiler && pszSource && pszDevice && pszSnapshot;
}

} // namespace

HRESULT CTesseraStoreSubSystem::SaveMappedLunDetails(LPCWSTR pszFiler, LPCWSTR pszSourceLunPath,
                                                     LPCWSTR pszSnapshotName, LPCWSTR pszSerialNo,
                                                     LPCWSTR pszTargetLunPath1,
                                                     LPCWSTR pszTargetLunPath2, LPCWSTR pszDeviceId)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::SaveMappedLunDetails"));
    CRegKey baseKey;
    LONG lError = baseKey.Create(HKEY_LOCAL_MACHINE, ORV_MAPPED_TARGET_LUNS_KEY, KEY_ALL_ACCESS);
    if (lError != ERROR_SUCCESS) {
        TraceW(W("regKey.Open on %s regkey FAILED [error=%d]\n"), ORV_MAPPED_TARGET_LUNS_KEY,
               lError);
        return HRESULT_FROM_WIN32(lError);
    }
    WCHAR szKey[kSaveKeyChars];
    if (!FormatRecordKey(szKey, kSaveKeyChars, pszSerialNo))
        return E_INVALIDARG;
    CRegKey recordKey;
    lError = recordKey.Create(HKEY_LOCAL_MACHINE, szKey, KEY_ALL_ACCESS);
    if (lError != ERROR_SUCCESS) {
        TraceW(W("regKey.Create or Count setting on %s regkey FAILED [error=%d]\n"),
               ORV_MAPPED_TARGET_LUNS_KEY, lError);
        return HRESULT_FROM_WIN32(lError);
    }
    recordKey.Close();

    const struct
    {
        LPCWSTR pszName;
        LPCWSTR pszValue;
    } values[] = {
        {W("FilerName"), pszFiler},
        {W("SourceLunPath"), pszSourceLunPath},
        {W("SnapshotName"), pszSnapshotName},
        {W("DeviceId"), pszDeviceId},
        {W("TargetLunPath1"), pszTargetLunPath1},
        {W("TargetLunPath2"), pszTargetLunPath2},
    };
    for (const auto& value : values) {
        CRegKey key;
        lError = key.Create(HKEY_LOCAL_MACHINE, szKey, KEY_ALL_ACCESS);
        if (lError == ERROR_SUCCESS)
            lError = key.SetStringValue(value.pszName,
                                        value.pszValue != nullptr ? value.pszValue : W(""));
        if (lError != ERROR_SUCCESS) {
            TraceW(W("regKey.SetValue in %s regkey FAILED [error=%d]\n"),
                   ORV_MAPPED_TARGET_LUNS_KEY, lError);
            return HRESULT_FROM_WIN32(lError);
        }
    }
    TraceW(W("Successfully updated registry with values for %s \n"), szKey);
    return S_OK;
}

HRESULT CTesseraStoreSubSystem::DeleteMappedLunDetails(LPCWSTR pszSerialNo)
{
    CTraceScope scope(W("CTesseraStoreSubSystem::DeleteMappedLunDetails"));
    WCHAR szKey[kSaveKeyChars];
    if (!FormatRecordKey(szKey, kSaveKeyChars, pszSerialNo))
        return E_INVALIDARG;
    LONG lError = RegDeleteKeyW(HKEY_LOCAL_MACHINE, szKey);
    if (lError != ERROR_SUCCESS) {
        TraceW(W("regKey.DeleteSubKey of regkey %s FAILED [error=%d]\n"),
               ORV_MAPPED_TARGET_LUNS_KEY, lError);
        return HRESULT_FROM_WIN32(lError);
    }
    return S_OK;
}

HRESULT CTesseraStoreSubSystem::UpdateMappedTargetLuns(CLinkedList<CTargetLunInfo>* pTargetLunMap)
{
    CTraceScope scope(W("UpdateMappedTargetLuns"));
    CRegKey baseKey;
    LONG lError = baseKey.Open(HKEY_LOCAL_MACHINE, ORV_MAPPED_TARGET_LUNS_KEY, KEY_READ);
    if (lError != ERROR_SUCCESS) {
        TraceW(W("regKey.Open on %s regkey FAILED [error=%d]\n"), ORV_MAPPED_TARGET_LUNS_KEY,
               lError);
        return HRESULT_FROM_WIN32(lError);
    }
    DWORD cSubKeys = 0;
    if (RegQueryInfoKeyW(baseKey, nullptr, nullptr, nullptr, &cSubKeys, nullptr, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
        cSubKeys = 0;
    WCHAR szNames[kMaxRecords][kSubkeyNameChars];
    DWORD cNames = 0;
    for (; cNames < cSubKeys && cNames < kMaxRecords; cNames++) {
        DWORD cchName = kSubkeyNameChars;
        if (RegEnumKeyExW(baseKey, cNames, szNames[cNames], &cchName, nullptr, nullptr, nullptr,
                          nullptr) != ERROR_SUCCESS)
            break;
    }
    baseKey.Close();

    CComPtr<IVSSSupport> pVssSupport;
    HRESULT hr = GetVssSupport(&pVssSupport);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("GetVssSupport FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }

    CRecordValues* pValues = new (std::nothrow) CRecordValues;
    if (pValues == nullptr)
        return E_OUTOFMEMORY;
    std::unique_ptr<CRecordValues> values(pValues);
    for (DWORD i = 0; i < cNames; i++) {
        LPCWSTR pszName = szNames[i];
        WCHAR szKey[kLoadKeyChars];
        // A name this long was not written by this system: not one of its records.
        if (!FormatRecordKey(szKey, kLoadKeyChars, pszName))
            continue;
        CRegKey recordKey;
        lError = recordKey.Open(HKEY_LOCAL_MACHINE, szKey, KEY_READ);
        for (int v = 0; v < kValueCount && lError == ERROR_SUCCESS; v++)
            lError = CConfig::ReadString(recordKey, kReadOrder[v].pszName, values->sz[v],
                                         kReadOrder[v].cbLimit);
        if (lError != ERROR_SUCCESS) {
            TraceW(W("regKey.Open on %s regkey FAILED [error=%d]\n"), szKey, lError);
            return HRESULT_FROM_WIN32(lError);
        }
        recordKey.Close();

        bool fKnown = false;
        for (pTargetLunMap->MoveFirst(); pTargetLunMap->HasCurrent(); pTargetLunMap->MoveNext()) {
            const CTargetLunInfo* pKnown = pTargetLunMap->Current();
            if (pKnown->SerialNo() != nullptr && lstrcmpW(pKnown->SerialNo(), pszName) == 0) {
                TRACE(TRACE_LEVEL_INFO, W("LUN %s with serial no %s already exists in the cache\n"),
                      pKnown->TargetLunPath1(), pKnown->SerialNo());
                TRACE(TRACE_LEVEL_INFO, W("Skipping the update from regsitry for this LUN\n"));
                fKnown = true;
                break;
            }
        }
        if (fKnown)
            continue;

        std::unique_ptr<CTargetLunInfo> pInfo(new (std::nothrow) CTargetLunInfo);
        if (!pInfo)
            return E_OUTOFMEMORY;
        TRACE(TRACE_LEVEL_INFO, W("pszFiler=%s\n"), values->sz[kFilerName]);
        TRACE(TRACE_LEVEL_INFO, W("pszSourceLunPath=%s\n"), values->sz[kSourceLunPath]);
        TRACE(TRACE_LEVEL_INFO, W("pszSnapshotName=%s\n"), values->sz[kSnapshotName]);
        TRACE(TRACE_LEVEL_INFO, W("Calling c.pVssSupport->GetTargetLunInfo\n"));
        LUN_LOCATION location{values->sz[kFilerName], values->sz[kSourceLunPath]};
        CTargetLunBlock block;
        hr = pVssSupport->GetTargetLunInfo(&location, values->sz[kSnapshotName], 0, 0, &block);
        if (SUCCEEDED(hr) && block.Get() != nullptr && block->vendorId != nullptr) {
            if (!FillRecord(*pInfo, *block.Get(), pszName, *values))
                return E_OUTOFMEMORY;
            pTargetLunMap->AddTail(pInfo.release());
            continue;
        }
        TraceW(W("Failed calling GetTargetLunInfo(%s,%s,%s,pTgtLuninfo)\n"), values->sz[kFilerName],
               values->sz[kSourceLunPath], values->sz[kSnapshotName]);
        DeleteMappedLunDetails(pszName);
    }
    return S_OK;
}
