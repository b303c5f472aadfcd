#include "store/tesserahelper.h"

#include "core/setname.h"
#include "diag/config.h"
#include "diag/trace.h"
#include "provider/strings.h"

#include "pal/combaseapi.h"
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/objidl.h"
#include "pal/synchapi.h"
#include "pal/sysinfoapi.h"
#include "pal/winbase.h"
#include "pal/winuser.h"

#include <cstring>

namespace {

constexpr DWORD kCreationKindBackup = 4;
constexpr size_t kEventNameChars = 64;

template <typename T>
void ReleaseInterface(T*& p)
{
    if (p != nullptr) {
        p->Release();
        p = nullptr;
    }
}

// A named auto-reset event; the name lets the sink open its own handle.
HRESULT CreateNamedEvent(LPWSTR pszName, HANDLE* phEvent)
{
    GUID guid;
    HRESULT hr = CoCreateGuid(&guid);
    if (FAILED(hr))
        return hr;
    FormatGuidName(guid, pszName);
    *phEvent = CreateEventW(nullptr, FALSE, FALSE, pszName);
    if (*phEvent == nullptr) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("CreateEvent FAILED [dwError=0x%08x]\n"), dwError);
        return HRESULT_FROM_WIN32(dwError);
    }
    return S_OK;
}

void ReportFailure(IUnknown* pUnk, REFIID riid)
{
    TraceComException(W("Tessera"), pUnk, riid);
}

} // namespace

CTesseraHelper::CTesseraHelper(DWORD dwAsync)
    : m_dwAsync(dwAsync), m_pSnapShot(nullptr), m_pAsyncVssSupport(nullptr), m_pVssSupport(nullptr),
      m_pSinkObject(nullptr), m_pDriveList(nullptr), m_pLcPairs(nullptr),
      m_hContinuePrepareEvent(nullptr), m_hContinueCreateEvent(nullptr), m_pszSnapshotName(nullptr),
      m_pszBackupSnapshotName(nullptr)
{}

CTesseraHelper::~CTesseraHelper()
{
    Cleanup();
}

HRESULT CTesseraHelper::Initialize()
{
    CTraceScope scope(W("CTesseraHelper::Initialize"));
    HRESULT hr = S_OK;
    if (m_dwAsync) {
        WCHAR szPrepareEvent[kEventNameChars];
        WCHAR szCreateEvent[kEventNameChars];
        hr = CreateNamedEvent(szPrepareEvent, &m_hContinuePrepareEvent);
        if (SUCCEEDED(hr))
            hr = CreateNamedEvent(szCreateEvent, &m_hContinueCreateEvent);
        if (FAILED(hr)) {
            Cleanup();
            return hr;
        }
        hr = CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER, IID_IVSSSupport,
                              reinterpret_cast<void**>(&m_pVssSupport));
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("CoCreateInstance for IVSSSupport FAILED [hr=0x%08x]\n"),
                  hr);
            m_pVssSupport = nullptr;
            Cleanup();
            return hr;
        }
        ICallFactory* pCallFactory = nullptr;
        hr = m_pVssSupport->QueryInterface(IID_ICallFactory,
                                           reinterpret_cast<void**>(&pCallFactory));
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR,
                  W("m_pVssSupport->QueryInterface for ICallFactory FAILED [hr=0x%08x, ")
                      W("pCallFactory=0x%08p]\n"),
                  hr, pCallFactory);
            ReportFailure(m_pVssSupport, IID_IVSSSupport);
            Cleanup();
            return hr;
        }
        IUnknown* pCall = nullptr;
        hr = pCallFactory->CreateCall(IID_AsyncIVSSSupport, nullptr, IID_AsyncIVSSSupport, &pCall);
        pCallFactory->Release();
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("pCallFactory->CreateCall FAILED [hr=0x%08x]\n"), hr);
            Cleanup();
            return hr;
        }
        m_pAsyncVssSupport = static_cast<AsyncIVSSSupport*>(pCall);
        hr = CComObject<CSnapshotEventSink>::CreateInstance(&m_pSinkObject);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR,
                  W("CComObject<CSnapshotEventSink>::CreateInstance FAILED [hr=0x%08x]\n"), hr);
            m_pSinkObject = nullptr;
            Cleanup();
            return hr;
        }
        ULONG cRef = m_pSinkObject->AddRef();
        TRACE(TRACE_LEVEL_INFO, W("Sink object refcount=%d\n"), cRef);
        hr = m_pSinkObject->Connect(m_pVssSupport, szPrepareEvent, szCreateEvent);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pSink->Register FAILED [hr=0x%08x]\n"), hr);
            Cleanup();
            return hr;
        }
    } else {
        hr = CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER, IID_ISnapShot,
                              reinterpret_cast<void**>(&m_pSnapShot));
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("CoCreateInstance for ISnapShot FAILED [hr=0x%08x]\n"), hr);
            m_pSnapShot = nullptr;
            Cleanup();
            return hr;
        }
    }
    return S_OK;
}

HRESULT CTesseraHelper::PrepareSnapshot(const DRIVE_NAMES* pDriveNames, LPCWSTR pszSnapshotName,
                                        LC_PAIR_ARRAY* pLcPairs, DWORD dwCreationKind)
{
    CTraceScope scope(W("CTesseraHelper::PrepareSnapshot"));
    TRACE(TRACE_LEVEL_INFO,
          m_dwAsync ? W("**** Async CreateSnapshot mode\n") : W("**** Sync CreateSnapshot mode\n"));
    HRESULT hr = Initialize();
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("Initialize FAILED [hr=0x%08x]\n"), hr);
        Cleanup();
        return hr;
    }

    LPWSTR pszName = DuplicateString(pszSnapshotName);
    if (pszName == nullptr) {
        Cleanup();
        return E_OUTOFMEMORY;
    }
    if (dwCreationKind == kCreationKindBackup)
        m_pszBackupSnapshotName = pszName;
    else
        m_pszSnapshotName = pszName;

    m_pDriveList = static_cast<DRIVE_LIST*>(CoTaskMemAlloc(sizeof(DRIVE_LIST)));
    if (m_pDriveList == nullptr) {
        Cleanup();
        return E_OUTOFMEMORY;
    }
    std::memset(m_pDriveList, 0, sizeof(DRIVE_LIST));
    m_pLcPairs = static_cast<LC_PAIR_ARRAY*>(CoTaskMemAlloc(sizeof(LC_PAIR_ARRAY)));
    if (m_pLcPairs == nullptr) {
        Cleanup();
        return E_OUTOFMEMORY;
    }
    m_pLcPairs->Count = pLcPairs->Count;
    m_pLcPairs->Pairs = pLcPairs->Pairs;

    // From here a failure hands the pairs back to the caller before cleaning up.
    auto fail = [this](HRESULT hrFailure) {
        m_pLcPairs->Count = 0;
        m_pLcPairs->Pairs = nullptr;
        Cleanup();
        return hrFailure;
    };

    m_pDriveList->Flag1 = 0;
    m_pDriveList->Flag2 = 0;
    m_pDriveList->Count = pDriveNames->Count;
    if (pDriveNames->Count > 0) {
        const SIZE_T cb = sizeof(DRIVE_ENTRY) * pDriveNames->Count;
        m_pDriveList->Drives = static_cast<DRIVE_ENTRY*>(CoTaskMemAlloc(cb));
        if (m_pDriveList->Drives == nullptr) {
            TraceW(W("CoTaskMemAlloc FAILED\n"));
            m_pDriveList->Count = 0;
            return fail(E_OUTOFMEMORY);
        }
        std::memset(m_pDriveList->Drives, 0, cb);
    }
    for (ULONG i = 0; i < pDriveNames->Count; i++) {
        const size_t cch = lstrlenW(pDriveNames->Names[i]);
        LPWSTR pszDrive = static_cast<LPWSTR>(CoTaskMemAlloc((cch + 1) * sizeof(WCHAR)));
        if (pszDrive == nullptr) {
            TraceW(W("CoTaskMemAlloc FAILED\n"));
            return fail(E_OUTOFMEMORY);
        }
        std::memcpy(pszDrive, pDriveNames->Names[i], (cch + 1) * sizeof(WCHAR));
        m_pDriveList->Drives[i].Drive = pszDrive;
    }

    if (!m_dwAsync)
        return S_OK;

    LPWSTR pszExclude = DuplicateString(W("_exclude"));
    if (pszExclude == nullptr)
        return fail(E_OUTOFMEMORY);
    hr = m_pAsyncVssSupport->Begin_CreateSnapShot1(m_pDriveList, m_pLcPairs, pszName,
                                                   CConfig::GetUpdateReplicorOnSnapshot(),
                                                   dwCreationKind, pszExclude);
    CoTaskMemFree(pszExclude);
    if (FAILED(hr)) {
        TraceW(W("Begin_CreateSnapShot1 FAILED [hr=0x%08x]\n"), hr);
        ReportFailure(m_pAsyncVssSupport, IID_AsyncIVSSSupport);
        return fail(hr);
    }
    TRACE(TRACE_LEVEL_INFO, W("Begin_CreateSnapShot1 succeeded\n"));
    TRACE(TRACE_LEVEL_INFO, W("**** Calling WaitForSingleObject on m_hContinuePrepareEvent\n"));
    DWORD dwWait =
        WaitForSingleObject(m_hContinuePrepareEvent, CConfig::GetMaxTesseraWait() * 1000);
    if (dwWait == WAIT_TIMEOUT) {
        TRACE(TRACE_LEVEL_ERROR,
              W("Timed out. Never received m_hContinuePrepareEvent event from Tessera\n"));
        return fail(E_UNEXPECTED);
    }
    if (dwWait != WAIT_OBJECT_0) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("WaitForSingleObject FAILED [dwError=0x%08x]\n"), dwError);
        return fail(HRESULT_FROM_WIN32(dwError));
    }
    TRACE(TRACE_LEVEL_INFO, W("**** CTesseraHelper::PrepareCreateSnapshot wakes up\n"));
    return S_OK;
}

HRESULT CTesseraHelper::CreateSnapshot()
{
    CTraceScope scope(W("CTesseraHelper::CreateSnapshot"));
    HRESULT hr = S_OK;
    if (m_dwAsync) {
        TRACE(TRACE_LEVEL_INFO, W("Async mode\n"));
        if (m_pAsyncVssSupport != nullptr && m_hContinueCreateEvent != nullptr) {
            SetEvent(m_hContinueCreateEvent);
            TRACE(TRACE_LEVEL_INFO, W("Calling m_pAsyncVssSupport->Finish_CreateSnapShot1\n"));
            DWORD dwStart = GetTickCount();
            hr = m_pAsyncVssSupport->Finish_CreateSnapShot1();
            DWORD dwEnd = GetTickCount();
            TRACE(TRACE_LEVEL_INFO,
                  W("m_pAsyncVssSupport->Finish_CreateSnapShot1 took %d milisecs\n"),
                  static_cast<INT>(dwEnd - dwStart));
            if (FAILED(hr)) {
                TRACE(TRACE_LEVEL_ERROR, W("Finish_CreateSnapShot1 FAILED [hr=0x%08x]\n"), hr);
                ReportFailure(m_pAsyncVssSupport, IID_AsyncIVSSSupport);
            }
        }
    } else {
        TRACE(TRACE_LEVEL_INFO, W("Sync mode\n"));
        if (m_pSnapShot == nullptr) {
            hr = E_UNEXPECTED;
        } else {
            hr = m_pSnapShot->CreateSnapShot(m_pDriveList, m_pszBackupSnapshotName != nullptr
                                                               ? m_pszBackupSnapshotName
                                                               : m_pszSnapshotName);
            if (hr == TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED) {
                TRACE(TRACE_LEVEL_INFO, W("Backup snapshot not supported due to Verdane version ")
                                            W("or tandem-clone enabled\n"));
                hr = S_OK;
            } else if (FAILED(hr)) {
                TraceW(W("CreateSnapShot FAILED [hr=0x%08x]\n"), hr);
                ReportFailure(m_pSnapShot, IID_ISnapShot);
            }
        }
    }
    Cleanup();
    // A success of the service's own kind is still plain success to the adapter.
    return FAILED(hr) ? hr : S_OK;
}

HRESULT CTesseraHelper::CancelSnapshot()
{
    CTraceScope scope(W("CTesseraHelper::CancelSnapshot"));
    if (m_dwAsync) {
        if (m_pSinkObject != nullptr) {
            TRACE(TRACE_LEVEL_INFO, W("Calling m_pSinkObject->Cancel\n"));
            m_pSinkObject->Cancel();
        }
        if (m_hContinueCreateEvent != nullptr)
            SetEvent(m_hContinueCreateEvent);
        if (m_pAsyncVssSupport != nullptr)
            m_pAsyncVssSupport->Finish_CreateSnapShot1();
    }
    Cleanup();
    return S_OK;
}

void CTesseraHelper::Cleanup()
{
    CTraceScope scope(W("CTesseraHelper::Cleanup"));
    if (m_dwAsync) {
        if (m_pSinkObject != nullptr) {
            m_pSinkObject->Disconnect();
            m_pSinkObject->Release();
            m_pSinkObject = nullptr;
        }
        ReleaseInterface(m_pAsyncVssSupport);
        ReleaseInterface(m_pVssSupport);
        if (m_hContinueCreateEvent != nullptr) {
            CloseHandle(m_hContinueCreateEvent);
            m_hContinueCreateEvent = nullptr;
        }
        if (m_hContinuePrepareEvent != nullptr) {
            CloseHandle(m_hContinuePrepareEvent);
            m_hContinuePrepareEvent = nullptr;
        }
    } else {
        ReleaseInterface(m_pSnapShot);
    }
    CoTaskMemFree(m_pszSnapshotName);
    m_pszSnapshotName = nullptr;
    CoTaskMemFree(m_pszBackupSnapshotName);
    m_pszBackupSnapshotName = nullptr;
    if (m_pDriveList != nullptr) {
        if (m_pDriveList->Drives != nullptr) {
            for (ULONG i = 0; i < m_pDriveList->Count; i++)
                CoTaskMemFree(m_pDriveList->Drives[i].Drive);
            CoTaskMemFree(m_pDriveList->Drives);
        }
        CoTaskMemFree(m_pDriveList);
        m_pDriveList = nullptr;
    }
    if (m_pLcPairs != nullptr) {
        if (m_pLcPairs->Pairs != nullptr) {
            for (ULONG i = 0; i < m_pLcPairs->Count; i++) {
                LC_PAIR& pair = m_pLcPairs->Pairs[i];
                CoTaskMemFree(pair.Filer);
                CoTaskMemFree(pair.LunPath);
                CoTaskMemFree(pair.Clone);
                CoTaskMemFree(pair.Device);
            }
            CoTaskMemFree(m_pLcPairs->Pairs);
        }
        CoTaskMemFree(m_pLcPairs);
        m_pLcPairs = nullptr;
    }
}
