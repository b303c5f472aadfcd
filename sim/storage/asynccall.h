// The call object of AsyncIVSSSupport. One call at a time: Begin_ while a call is pending fails
// with RPC_S_CALLPENDING, a Finish_ that does not match the pending Begin_ (or with none
// pending) with RPC_E_CALL_COMPLETE. The creation runs on a thread of the service; the other
// methods complete within their Begin_, and Finish_ hands out their results.
#pragma once

#include "creation.h"
#include "objects.h"
#include "store/tessera.h"

#include "pal/synchapi.h"

#include <memory>

namespace storagesim::detail {

class CVssSupport;

class CAsyncVssSupportCall : public CComObjectRootEx<CComMultiThreadModel>,
                             public CServiceObject,
                             public AsyncIVSSSupport,
                             public ISupportErrorInfo
{
public:
    BEGIN_COM_MAP(CAsyncVssSupportCall)
    COM_INTERFACE_ENTRY(AsyncIVSSSupport)
    COM_INTERFACE_ENTRY(ISupportErrorInfo)
    END_COM_MAP()

    HRESULT FinalConstruct();
    void FinalRelease();
    void SetOwner(CVssSupport* pOwner);

    STDMETHODIMP Begin_CreateSnapShot(DRIVE_LIST* pDriveList, LPCWSTR pszSnapshotName) override;
    STDMETHODIMP Finish_CreateSnapShot() override;
    STDMETHODIMP Begin_CreateSnapShot1(DRIVE_LIST* pDriveList, LC_PAIR_ARRAY* pLcPairs,
                                       LPCWSTR pszSnapshotName, DWORD dwUpdateReplicor,
                                       DWORD dwCreationKind, LPCWSTR pszExclude) override;
    STDMETHODIMP Finish_CreateSnapShot1() override;
    STDMETHODIMP Begin_GetTargetLunInfo(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName,
                                        DWORD dwAssign, DWORD dwWritable) override;
    STDMETHODIMP Finish_GetTargetLunInfo(TARGET_LUN_INFO** ppTargetLunInfo) override;
    STDMETHODIMP Begin_CreateTargetLun(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName,
                                       TARGET_LUN_INFO* pTargetLunInfo) override;
    STDMETHODIMP Finish_CreateTargetLun() override;
    STDMETHODIMP Begin_DeleteTargetLun(LUN_LOCATION* pTargetLun) override;
    STDMETHODIMP Finish_DeleteTargetLun() override;
    STDMETHODIMP Begin_DeleteSnapShot(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName) override;
    STDMETHODIMP Finish_DeleteSnapShot() override;
    STDMETHODIMP Begin_EnumVirtualDisks(DWORD dwFlags) override;
    STDMETHODIMP Finish_EnumVirtualDisks(VD_INFO_LIST* pDiskList) override;
    STDMETHODIMP Begin_SetDatasetAttrib(LPCWSTR pszSnapshotSetId, DRIVE_LIST* pDriveList) override;
    STDMETHODIMP Finish_SetDatasetAttrib() override;
    STDMETHODIMP Begin_IsUnlockedCloneSupported(LPCWSTR pszFiler) override;
    STDMETHODIMP Finish_IsUnlockedCloneSupported(BOOLEAN* pfSupported) override;

    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override;

    static constexpr const WCHAR* kSource = kVssSupportSource;

private:
    enum class CMethod
    {
        kNone,
        kCreateSnapShot,
        kCreateSnapShot1,
        kGetTargetLunInfo,
        kCreateTargetLun,
        kDeleteTargetLun,
        kDeleteSnapShot,
        kEnumVirtualDisks,
        kSetDatasetAttrib,
        kIsUnlockedCloneSupported,
    };

    // Claims the call object for a method; RPC_S_CALLPENDING while another call is pending.
    HRESULT Claim(CMethod method);
    // Completes a method that ran within its Begin_: keeps its result and error object.
    HRESULT Completed(HRESULT hr);
    // Checks and releases the claim of Finish_: RPC_E_CALL_COMPLETE unless `method` is pending.
    HRESULT CheckFinish(CMethod method);
    // The kept result, with its error object restored on the calling thread.
    HRESULT Result();
    void FreeResults();

    CVssSupport* m_pOwner = nullptr; // one reference
    CRITICAL_SECTION m_cs;
    CMethod m_pending = CMethod::kNone;
    HRESULT m_hr = S_OK;
    IErrorInfo* m_pErrorInfo = nullptr;
    std::shared_ptr<CCreation> m_pCreation;
    TARGET_LUN_INFO* m_pTargetLunInfo = nullptr;
    VD_INFO_LIST m_diskList = {};
    BOOLEAN m_fSupported = 0;
};

} // namespace storagesim::detail
