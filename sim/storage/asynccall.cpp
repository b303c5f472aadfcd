// The asynchronous call object of the VSSSupport object.
#include "asynccall.h"

#include "records.h"
#include "vsssupport.h"

namespace storagesim::detail {

HRESULT CAsyncVssSupportCall::FinalConstruct()
{
    InitializeCriticalSection(&m_cs);
    Track();
    return S_OK;
}

void CAsyncVssSupportCall::FinalRelease()
{
    Untrack();
    // The client has let go of the call: a creation it dropped without Finish_ is cancelled, as
    // COM cancels such a call, and a finished instant cut may now be recorded.
    if (m_pCreation)
        m_pCreation->Release();
    m_pCreation.reset();
    FreeResults();
    if (m_pOwner)
        static_cast<IVSSSupport*>(m_pOwner)->Release();
    DeleteCriticalSection(&m_cs);
}

void CAsyncVssSupportCall::SetOwner(CVssSupport* pOwner)
{
    static_cast<IVSSSupport*>(pOwner)->AddRef();
    m_pOwner = pOwner;
}

void CAsyncVssSupportCall::FreeResults()
{
    if (m_pErrorInfo)
        m_pErrorInfo->Release();
    m_pErrorInfo = nullptr;
    if (m_pTargetLunInfo) {
        CoTaskMemFree(m_pTargetLunInfo->lunLocation.filerName);
        CoTaskMemFree(m_pTargetLunInfo->lunLocation.lunPath);
        CoTaskMemFree(m_pTargetLunInfo->serialNumber);
        CoTaskMemFree(m_pTargetLunInfo->vendorId);
        CoTaskMemFree(m_pTargetLunInfo->productId);
        CoTaskMemFree(m_pTargetLunInfo->productRevision);
        CoTaskMemFree(m_pTargetLunInfo);
        m_pTargetLunInfo = nullptr;
    }
    for (ULONG i = 0; i < m_diskList.Count; ++i)
        FreeDiskRecord(&m_diskList.Disks[i]);
    CoTaskMemFree(m_diskList.Disks);
    m_diskList = VD_INFO_LIST{};
}

HRESULT CAsyncVssSupportCall::Claim(CMethod method)
{
    SetErrorInfo(0, nullptr);
    if (Disconnected() || (m_pOwner && m_pOwner->Disconnected()))
        return CO_E_OBJNOTCONNECTED;
    EnterCriticalSection(&m_cs);
    bool fFree = m_pending == CMethod::kNone;
    if (fFree)
        m_pending = method;
    LeaveCriticalSection(&m_cs);
    return fFree ? S_OK : RPC_S_CALLPENDING;
}

HRESULT CAsyncVssSupportCall::Completed(HRESULT hr)
{
    m_hr = hr;
    if (m_pErrorInfo)
        m_pErrorInfo->Release();
    m_pErrorInfo = nullptr;
    if (FAILED(hr) && GetErrorInfo(0, &m_pErrorInfo) != S_OK)
        m_pErrorInfo = nullptr;
    // Begin_ itself succeeded: the method's result is Finish_'s.
    return S_OK;
}

HRESULT CAsyncVssSupportCall::CheckFinish(CMethod method)
{
    SetErrorInfo(0, nullptr);
    EnterCriticalSection(&m_cs);
    bool fMatch = m_pending == method;
    LeaveCriticalSection(&m_cs);
    return fMatch ? S_OK : RPC_E_CALL_COMPLETE;
}

HRESULT CAsyncVssSupportCall::Result()
{
    HRESULT hr = m_hr;
    if (m_pErrorInfo) {
        SetErrorInfo(0, m_pErrorInfo);
        m_pErrorInfo->Release();
        m_pErrorInfo = nullptr;
    }
    EnterCriticalSection(&m_cs);
    m_pending = CMethod::kNone;
    LeaveCriticalSection(&m_cs);
    return hr;
}

STDMETHODIMP CAsyncVssSupportCall::Begin_CreateSnapShot(DRIVE_LIST* pDriveList,
                                                        LPCWSTR pszSnapshotName)
{
    if (HRESULT hr = Claim(CMethod::kCreateSnapShot); FAILED(hr))
        return hr;
    return Completed(m_pOwner->CreateSnapShot(pDriveList, pszSnapshotName));
}

STDMETHODIMP CAsyncVssSupportCall::Finish_CreateSnapShot()
{
    if (HRESULT hr = CheckFinish(CMethod::kCreateSnapShot); FAILED(hr))
        return hr;
    return Result();
}

STDMETHODIMP CAsyncVssSupportCall::Begin_CreateSnapShot1(DRIVE_LIST* pDriveList,
                                                         LC_PAIR_ARRAY* pLcPairs,
                                                         LPCWSTR pszSnapshotName,
                                                         DWORD dwUpdateReplicor,
                                                         DWORD dwCreationKind, LPCWSTR pszExclude)
{
    UNREFERENCED_PARAMETER(dwUpdateReplicor);
    if (HRESULT hr = Claim(CMethod::kCreateSnapShot1); FAILED(hr))
        return hr;
    CServiceCall call(this, "Begin_CreateSnapShot1", IID_AsyncIVSSSupport, kSource,
                      "Begin_CreateSnapShot1");
    std::string why;
    HRESULT hr = call.Enter();
    if (hr == S_OK) {
        // The call object's earlier creation, finished, is let go for this one.
        if (m_pCreation)
            m_pCreation->Release();
        m_pCreation.reset();
        hr = m_pOwner->BeginCreation(pDriveList, pLcPairs, pszSnapshotName, dwCreationKind,
                                     pszExclude, &m_pCreation, &why);
        hr = call.Leave(hr, why);
    }
    if (FAILED(hr)) {
        // The call never started: the object is free for another.
        EnterCriticalSection(&m_cs);
        m_pending = CMethod::kNone;
        LeaveCriticalSection(&m_cs);
    }
    return hr;
}

STDMETHODIMP CAsyncVssSupportCall::Finish_CreateSnapShot1()
{
    if (HRESULT hr = CheckFinish(CMethod::kCreateSnapShot1); FAILED(hr))
        return hr;
    std::string why;
    // A creation stalled before its hand-off cannot end on its own: the client waiting for it
    // is its end.
    m_pCreation->GiveUp();
    HRESULT hr = m_pCreation->Wait(&why);
    // A fault of Finish_ itself stands for a reply lost after the service did its work.
    CServiceCall call(this, "Finish_CreateSnapShot1", IID_AsyncIVSSSupport, kSource,
                      "Finish_CreateSnapShot1");
    HRESULT hrFinish = call.Enter();
    EnterCriticalSection(&m_cs);
    m_pending = CMethod::kNone;
    LeaveCriticalSection(&m_cs);
    if (hrFinish != S_OK)
        return hrFinish;
    return call.Leave(hr, why);
}

STDMETHODIMP CAsyncVssSupportCall::Begin_GetTargetLunInfo(LUN_LOCATION* pSourceLun,
                                                          LPCWSTR pszSnapshotName, DWORD dwAssign,
                                                          DWORD dwWritable)
{
    if (HRESULT hr = Claim(CMethod::kGetTargetLunInfo); FAILED(hr))
        return hr;
    return Completed(m_pOwner->GetTargetLunInfo(pSourceLun, pszSnapshotName, dwAssign, dwWritable,
                                                &m_pTargetLunInfo));
}

STDMETHODIMP CAsyncVssSupportCall::Finish_GetTargetLunInfo(TARGET_LUN_INFO** ppTargetLunInfo)
{
    if (HRESULT hr = CheckFinish(CMethod::kGetTargetLunInfo); FAILED(hr))
        return hr;
    if (ppTargetLunInfo) {
        *ppTargetLunInfo = m_pTargetLunInfo;
        m_pTargetLunInfo = nullptr;
    }
    HRESULT hr = Result();
    FreeResults();
    return hr;
}

STDMETHODIMP CAsyncVssSupportCall::Begin_CreateTargetLun(LUN_LOCATION* pSourceLun,
                                                         LPCWSTR pszSnapshotName,
                                                         TARGET_LUN_INFO* pTargetLunInfo)
{
    if (HRESULT hr = Claim(CMethod::kCreateTargetLun); FAILED(hr))
        return hr;
    return Completed(m_pOwner->CreateTargetLun(pSourceLun, pszSnapshotName, pTargetLunInfo));
}

STDMETHODIMP CAsyncVssSupportCall::Finish_CreateTargetLun()
{
    if (HRESULT hr = CheckFinish(CMethod::kCreateTargetLun); FAILED(hr))
        return hr;
    return Result();
}

STDMETHODIMP CAsyncVssSupportCall::Begin_DeleteTargetLun(LUN_LOCATION* pTargetLun)
{
    if (HRESULT hr = Claim(CMethod::kDeleteTargetLun); FAILED(hr))
        return hr;
    return Completed(m_pOwner->DeleteTargetLun(pTargetLun));
}

STDMETHODIMP CAsyncVssSupportCall::Finish_DeleteTargetLun()
{
    if (HRESULT hr = CheckFinish(CMethod::kDeleteTargetLun); FAILED(hr))
        return hr;
    return Result();
}

STDMETHODIMP CAsyncVssSupportCall::Begin_DeleteSnapShot(LUN_LOCATION* pSourceLun,
                                                        LPCWSTR pszSnapshotName)
{
    if (HRESULT hr = Claim(CMethod::kDeleteSnapShot); FAILED(hr))
        return hr;
    return Completed(m_pOwner->DeleteSnapShot(pSourceLun, pszSnapshotName));
}

STDMETHODIMP CAsyncVssSupportCall::Finish_DeleteSnapShot()
{
    if (HRESULT hr = CheckFinish(CMethod::kDeleteSnapShot); FAILED(hr))
        return hr;
    return Result();
}

STDMETHODIMP CAsyncVssSupportCall::Begin_EnumVirtualDisks(DWORD dwFlags)
{
    if (HRESULT hr = Claim(CMethod::kEnumVirtualDisks); FAILED(hr))
        return hr;
    return Completed(m_pOwner->EnumVirtualDisks(&m_diskList, dwFlags));
}

STDMETHODIMP CAsyncVssSupportCall::Finish_EnumVirtualDisks(VD_INFO_LIST* pDiskList)
{
    if (HRESULT hr = CheckFinish(CMethod::kEnumVirtualDisks); FAILED(hr))
        return hr;
    if (pDiskList) {
        *pDiskList = m_diskList;
        m_diskList = VD_INFO_LIST{};
    }
    HRESULT hr = Result();
    FreeResults();
    return hr;
}

STDMETHODIMP CAsyncVssSupportCall::Begin_SetDatasetAttrib(LPCWSTR pszSnapshotSetId,
                                                          DRIVE_LIST* pDriveList)
{
    if (HRESULT hr = Claim(CMethod::kSetDatasetAttrib); FAILED(hr))
        return hr;
    return Completed(m_pOwner->SetDatasetAttrib(pszSnapshotSetId, pDriveList));
}

STDMETHODIMP CAsyncVssSupportCall::Finish_SetDatasetAttrib()
{
    if (HRESULT hr = CheckFinish(CMethod::kSetDatasetAttrib); FAILED(hr))
        return hr;
    return Result();
}

STDMETHODIMP CAsyncVssSupportCall::Begin_IsUnlockedCloneSupported(LPCWSTR pszFiler)
{
    if (HRESULT hr = Claim(CMethod::kIsUnlockedCloneSupported); FAILED(hr))
        return hr;
    return Completed(m_pOwner->IsUnlockedCloneSupported(pszFiler, &m_fSupported));
}

STDMETHODIMP CAsyncVssSupportCall::Finish_IsUnlockedCloneSupported(BOOLEAN* pfSupported)
{
    if (HRESULT hr = CheckFinish(CMethod::kIsUnlockedCloneSupported); FAILED(hr))
        return hr;
    if (pfSupported && SUCCEEDED(m_hr))
        *pfSupported = m_fSupported;
    return Result();
}

STDMETHODIMP CAsyncVssSupportCall::InterfaceSupportsErrorInfo(REFIID riid)
{
    return IsEqualIID(riid, IID_AsyncIVSSSupport) ? S_OK : S_FALSE;
}

} // namespace storagesim::detail
