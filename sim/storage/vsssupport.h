// The service's VSSSupport object: IVSSSupport and ISnapShot, the asynchronous call factory,
// and the connection point of the snapshot events.
#pragma once

#include "creation.h"
#include "objects.h"
#include "store/tessera.h"

#include "pal/atlconnpt.h"

namespace storagesim::detail {

// The interface map lives in this base so that CVssSupport can put its disconnection check in
// front of it.
class CVssSupportBase : public CComObjectRootEx<CComMultiThreadModel>,
                        public CServiceObject,
                        public IVSSSupport,
                        public ISnapShot,
                        public ICallFactory,
                        public IConnectionPointContainer,
                        public ISupportErrorInfo
{
public:
    BEGIN_COM_MAP(CVssSupportBase)
    COM_INTERFACE_ENTRY(IVSSSupport)
    COM_INTERFACE_ENTRY(ISnapShot)
    COM_INTERFACE_ENTRY(ICallFactory)
    COM_INTERFACE_ENTRY(IConnectionPointContainer)
    COM_INTERFACE_ENTRY(ISupportErrorInfo)
    END_COM_MAP()
};

// The connection point of the snapshot events, whose Advise and Unadvise may fail by injection.
class CEventsConnectionPoint final : public CComConnectionPoint
{
public:
    CEventsConnectionPoint(IConnectionPointContainer* pContainer, const CServiceObject* pOwner)
        : CComConnectionPoint(pContainer, IID__ISnapShotEvents), m_pOwner(pOwner)
    {}
    STDMETHODIMP Advise(IUnknown* pUnkSink, DWORD* pdwCookie) override;
    STDMETHODIMP Unadvise(DWORD dwCookie) override;

private:
    const CServiceObject* m_pOwner;
};

class CVssSupport : public CVssSupportBase
{
public:
    static constexpr const WCHAR* kSource = kVssSupportSource;

    CVssSupport();

    HRESULT FinalConstruct();
    void FinalRelease();
    // A gone object answers only IUnknown, which a proxy knows by itself.
    HRESULT ComMapQueryInterface(REFIID iid, void** ppv);

    // IVSSSupport, and ISnapShot's CreateSnapShot, which is the same synchronous creation.
    STDMETHODIMP CreateSnapShot(DRIVE_LIST* pDriveList, LPCWSTR pszSnapshotName) override;
    STDMETHODIMP CreateSnapShot1(DRIVE_LIST* pDriveList, LC_PAIR_ARRAY* pLcPairs,
                                 LPCWSTR pszSnapshotName, DWORD dwUpdateReplicor,
                                 DWORD dwCreationKind, LPCWSTR pszExclude) override;
    STDMETHODIMP GetTargetLunInfo(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName, DWORD dwAssign,
                                  DWORD dwWritable, TARGET_LUN_INFO** ppTargetLunInfo) override;
    STDMETHODIMP CreateTargetLun(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName,
                                 TARGET_LUN_INFO* pTargetLunInfo) override;
    STDMETHODIMP DeleteTargetLun(LUN_LOCATION* pTargetLun) override;
    STDMETHODIMP DeleteSnapShot(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName) override;
    STDMETHODIMP EnumVirtualDisks(VD_INFO_LIST* pDiskList, DWORD dwFlags) override;
    STDMETHODIMP SetDatasetAttrib(LPCWSTR pszSnapshotSetId, DRIVE_LIST* pDriveList) override;
    STDMETHODIMP IsUnlockedCloneSupported(LPCWSTR pszFiler, BOOLEAN* pfSupported) override;

    // ICallFactory
    STDMETHODIMP CreateCall(REFIID riid, IUnknown* pCtrlUnk, REFIID riid2, IUnknown** ppv) override;

    // IConnectionPointContainer
    STDMETHODIMP EnumConnectionPoints(IEnumConnectionPoints** ppEnum) override;
    STDMETHODIMP FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) override;

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override;

    // The advised sinks, each with a reference the caller releases; none once disconnected.
    ULONG CopySinks(IUnknown* (&rgSinks)[PAL_CONNECTION_POINT_MAX]);
    // Starts a creation on a thread of the service; the call object waits for it.
    HRESULT BeginCreation(DRIVE_LIST* pDriveList, LC_PAIR_ARRAY* pLcPairs, LPCWSTR pszSnapshotName,
                          DWORD dwCreationKind, LPCWSTR pszExclude,
                          std::shared_ptr<CCreation>* ppCreation, std::string* pWhy);

protected:
    void DisconnectLocked(std::vector<IUnknown*>* pToRelease) override;

private:
    CEventsConnectionPoint m_point;
};

} // namespace storagesim::detail
