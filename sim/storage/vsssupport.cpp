// The VSSSupport object of the simulated service.
#include "vsssupport.h"

#include "asynccall.h"
#include "records.h"
#include "simcodes.h"

namespace storagesim::detail {

namespace {

// The frame of a method of this object, named for faults as the method itself.
CServiceCall Frame(const CServiceObject* pObject, const char* method, REFIID iid = IID_IVSSSupport)
{
    return CServiceCall(pObject, method, iid, kVssSupportSource, method);
}

bool EndsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

} // namespace

STDMETHODIMP CEventsConnectionPoint::Advise(IUnknown* pUnkSink, DWORD* pdwCookie)
{
    if (pdwCookie)
        *pdwCookie = 0;
    CServiceCall call(m_pOwner, "Advise", IID_IConnectionPoint, kVssSupportSource, "Advise");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    return CComConnectionPoint::Advise(pUnkSink, pdwCookie);
}

STDMETHODIMP CEventsConnectionPoint::Unadvise(DWORD dwCookie)
{
    CServiceCall call(m_pOwner, "Unadvise", IID_IConnectionPoint, kVssSupportSource, "Unadvise");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    return CComConnectionPoint::Unadvise(dwCookie);
}

CVssSupport::CVssSupport() : m_point(this, this) {}

HRESULT CVssSupport::FinalConstruct()
{
    Track();
    return S_OK;
}

void CVssSupport::FinalRelease()
{
    Untrack();
}

HRESULT CVssSupport::ComMapQueryInterface(REFIID iid, void** ppv)
{
    if (Disconnected() && ppv && !IsEqualIID(iid, IID_IUnknown)) {
        *ppv = nullptr;
        return CO_E_OBJNOTCONNECTED;
    }
    // The two interfaces a client asks the proxy for may be refused by injection, as a server
    // whose proxy and stub are not registered refuses them.
    const char* pszFault = IsEqualIID(iid, IID_ICallFactory) ? "QueryInterface(ICallFactory)"
                           : IsEqualIID(iid, IID_IConnectionPointContainer)
                               ? "QueryInterface(IConnectionPointContainer)"
                               : nullptr;
    if (pszFault && ppv) {
        CServiceCall call(this, "QueryInterface", IID_IUnknown, kVssSupportSource, pszFault);
        if (HRESULT hr = call.Enter(); hr != S_OK) {
            *ppv = nullptr;
            return hr;
        }
    }
    return CVssSupportBase::ComMapQueryInterface(iid, ppv);
}

void CVssSupport::DisconnectLocked(std::vector<IUnknown*>* pToRelease)
{
    CServiceObject::DisconnectLocked(pToRelease);
    IUnknown* rgSinks[PAL_CONNECTION_POINT_MAX];
    ULONG c = m_point.TakeAllSinks(rgSinks);
    pToRelease->insert(pToRelease->end(), rgSinks, rgSinks + c);
}

ULONG CVssSupport::CopySinks(IUnknown* (&rgSinks)[PAL_CONNECTION_POINT_MAX])
{
    return Disconnected() ? 0 : m_point.CopySinks(rgSinks);
}

STDMETHODIMP CVssSupport::CreateSnapShot(DRIVE_LIST* pDriveList, LPCWSTR pszSnapshotName)
{
    // IVSSSupport's and ISnapShot's, which behave alike; faults name both "CreateSnapShot".
    CServiceCall call = Frame(this, "CreateSnapShot", IID_ISnapShot);
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    std::vector<CCreationLun> luns;
    if (!pszSnapshotName || !pDriveList)
        return call.Leave(E_POINTER, "The drive list and the snapshot name are required");
    if (HRESULT hr = ReadCreationLuns(pDriveList, nullptr, &luns); FAILED(hr))
        return call.Leave(hr, "The drive list is missing or incomplete");
    std::string name = Utf8(pszSnapshotName);
    // This form has no creation kind: a backup set's snapshot is known by its name.
    DWORD dwKind = EndsWith(name, "_backup") ? 4 : 2;
    std::string why;
    HRESULT hr = CutSnapshot(luns, name, dwKind, &why);
    return call.Leave(hr, why);
}

HRESULT CVssSupport::BeginCreation(DRIVE_LIST* pDriveList, LC_PAIR_ARRAY* pLcPairs,
                                   LPCWSTR pszSnapshotName, DWORD dwCreationKind,
                                   LPCWSTR pszExclude, std::shared_ptr<CCreation>* ppCreation,
                                   std::string* pWhy)
{
    UNREFERENCED_PARAMETER(pszExclude);
    if (!pszSnapshotName || !pDriveList || !pLcPairs) {
        *pWhy = "The drive list, the pairs and the snapshot name are required";
        return E_POINTER;
    }
    if (dwCreationKind != 2 && dwCreationKind != 4) {
        *pWhy = "Unknown creation kind " + std::to_string(dwCreationKind);
        return E_INVALIDARG;
    }
    std::vector<CCreationLun> luns;
    if (HRESULT hr = ReadCreationLuns(pDriveList, pLcPairs, &luns); FAILED(hr)) {
        *pWhy = "The drive list or the pairs are incomplete";
        return hr;
    }
    // Everything the thread needs is copied now: the caller frees its blocks once the call
    // has begun.
    auto pCreation =
        std::make_shared<CCreation>(std::move(luns), Utf8(pszSnapshotName), dwCreationKind);
    CCreation::Start(pCreation, this);
    *ppCreation = std::move(pCreation);
    return S_OK;
}

STDMETHODIMP CVssSupport::CreateSnapShot1(DRIVE_LIST* pDriveList, LC_PAIR_ARRAY* pLcPairs,
                                          LPCWSTR pszSnapshotName, DWORD dwUpdateReplicor,
                                          DWORD dwCreationKind, LPCWSTR pszExclude)
{
    UNREFERENCED_PARAMETER(dwUpdateReplicor);
    // The creation's thread consumes its faults.
    CServiceCall call(this, "CreateSnapShot1", IID_IVSSSupport, kVssSupportSource, nullptr);
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    std::shared_ptr<CCreation> pCreation;
    std::string why;
    HRESULT hr = BeginCreation(pDriveList, pLcPairs, pszSnapshotName, dwCreationKind, pszExclude,
                               &pCreation, &why);
    if (SUCCEEDED(hr))
        hr = pCreation->Wait(&why);
    return call.Leave(hr, why);
}

STDMETHODIMP CVssSupport::GetTargetLunInfo(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName,
                                           DWORD dwAssign, DWORD dwWritable,
                                           TARGET_LUN_INFO** ppTargetLunInfo)
{
    if (ppTargetLunInfo)
        *ppTargetLunInfo = nullptr;
    CServiceCall call = Frame(this, "GetTargetLunInfo");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    if (!ppTargetLunInfo || !pSourceLun || !pSourceLun->filerName || !pSourceLun->lunPath ||
        !pszSnapshotName)
        return call.Leave(E_POINTER, "The source LUN, the snapshot name and the result are "
                                     "required");
    CTargetIdentity target;
    std::string why;
    HRESULT hr =
        GetTargetIdentity(Utf8(pSourceLun->filerName), Utf8(pSourceLun->lunPath),
                          Utf8(pszSnapshotName), dwAssign != 0, dwWritable != 0, &target, &why);
    if (SUCCEEDED(hr) && FAILED(hr = BuildTargetLunInfo(target, ppTargetLunInfo)))
        why = "Out of memory";
    return call.Leave(hr, why);
}

STDMETHODIMP CVssSupport::CreateTargetLun(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName,
                                          TARGET_LUN_INFO* pTargetLunInfo)
{
    CServiceCall call = Frame(this, "CreateTargetLun");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    if (!pSourceLun || !pSourceLun->filerName || !pSourceLun->lunPath || !pszSnapshotName ||
        !pTargetLunInfo)
        return call.Leave(E_POINTER, "The source LUN, the snapshot name and the target LUN are "
                                     "required");
    CTargetIdentity target{Utf8(pTargetLunInfo->lunLocation.filerName),
                           Utf8(pTargetLunInfo->lunLocation.lunPath),
                           Utf8(pTargetLunInfo->serialNumber),
                           Utf8(pTargetLunInfo->vendorId),
                           Utf8(pTargetLunInfo->productId),
                           Utf8(pTargetLunInfo->productRevision)};
    std::string why;
    HRESULT hr =
        storagesim::detail::CreateTargetLun(Utf8(pSourceLun->filerName), Utf8(pSourceLun->lunPath),
                                            Utf8(pszSnapshotName), target, &why);
    return call.Leave(hr, why);
}

STDMETHODIMP CVssSupport::DeleteTargetLun(LUN_LOCATION* pTargetLun)
{
    CServiceCall call = Frame(this, "DeleteTargetLun");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    if (!pTargetLun || !pTargetLun->filerName || !pTargetLun->lunPath)
        return call.Leave(E_POINTER, "The target LUN's location is required");
    std::string why;
    HRESULT hr = storagesim::detail::DeleteTargetLun(Utf8(pTargetLun->filerName),
                                                     Utf8(pTargetLun->lunPath), &why);
    return call.Leave(hr, why);
}

STDMETHODIMP CVssSupport::DeleteSnapShot(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName)
{
    CServiceCall call = Frame(this, "DeleteSnapShot");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    if (!pSourceLun || !pSourceLun->filerName || !pSourceLun->lunPath || !pszSnapshotName)
        return call.Leave(E_POINTER, "The source LUN and the snapshot name are required");
    std::string why;
    HRESULT hr = DeleteSnapshot(Utf8(pSourceLun->filerName), Utf8(pSourceLun->lunPath),
                                Utf8(pszSnapshotName), &why);
    return call.Leave(hr, why);
}

STDMETHODIMP CVssSupport::EnumVirtualDisks(VD_INFO_LIST* pDiskList, DWORD dwFlags)
{
    CServiceCall call = Frame(this, "EnumVirtualDisks");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    if (!pDiskList)
        return call.Leave(E_POINTER, "The disk list is required");
    pDiskList->Count = 0;
    pDiskList->Disks = nullptr;
    std::vector<CDiskRecord> disks;
    std::string why;
    HRESULT hr = EnumDisks(dwFlags, &disks, &why);
    CHostSettings settings;
    if (SUCCEEDED(hr))
        hr = ReadHostSettings(&settings);
    if (SUCCEEDED(hr) && FAILED(hr = BuildDiskList(disks, settings.machine, pDiskList)))
        why = "Out of memory";
    return call.Leave(hr, why);
}

STDMETHODIMP CVssSupport::SetDatasetAttrib(LPCWSTR pszSnapshotSetId, DRIVE_LIST* pDriveList)
{
    CServiceCall call = Frame(this, "SetDatasetAttrib");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    std::vector<std::string> drives;
    if (!pszSnapshotSetId)
        return call.Leave(E_POINTER, "The dataset needs a name");
    if (HRESULT hr = ReadDrives(pDriveList, &drives); FAILED(hr))
        return call.Leave(hr, "The drive list is missing or incomplete");
    std::string why;
    HRESULT hr = SetDataset(Utf8(pszSnapshotSetId), drives, &why);
    return call.Leave(hr, why);
}

STDMETHODIMP CVssSupport::IsUnlockedCloneSupported(LPCWSTR pszFiler, BOOLEAN* pfSupported)
{
    CServiceCall call = Frame(this, "IsUnlockedCloneSupported");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    if (!pszFiler || !pfSupported)
        return call.Leave(E_POINTER, "The filer and the result are required");
    bool fSupported = false;
    std::string why;
    HRESULT hr = storagesim::detail::IsUnlockedCloneSupported(Utf8(pszFiler), &fSupported, &why);
    if (SUCCEEDED(hr))
        *pfSupported = fSupported ? 1 : 0;
    return call.Leave(hr, why);
}

STDMETHODIMP CVssSupport::CreateCall(REFIID riid, IUnknown* pCtrlUnk, REFIID riid2, IUnknown** ppv)
{
    if (ppv)
        *ppv = nullptr;
    CServiceCall call(this, "CreateCall", IID_IVSSSupport, kVssSupportSource, "CreateCall");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    if (!ppv)
        return E_POINTER;
    if (!IsEqualIID(riid, IID_AsyncIVSSSupport))
        return E_NOINTERFACE;
    if (pCtrlUnk)
        return CLASS_E_NOAGGREGATION;
    CComObjectNoLock<CAsyncVssSupportCall>* pCall = nullptr;
    HRESULT hr = CComObjectNoLock<CAsyncVssSupportCall>::CreateInstance(&pCall);
    if (FAILED(hr))
        return hr;
    pCall->AddRef();
    pCall->SetOwner(this);
    hr = pCall->QueryInterface(riid2, reinterpret_cast<void**>(ppv));
    pCall->Release();
    return hr;
}

STDMETHODIMP CVssSupport::EnumConnectionPoints(IEnumConnectionPoints** ppEnum)
{
    if (Disconnected())
        return CO_E_OBJNOTCONNECTED;
    IConnectionPoint* rgPoints[] = {&m_point};
    return CComEnumConnectionPoints::Create(rgPoints, 1, 0, ppEnum);
}

STDMETHODIMP CVssSupport::FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP)
{
    if (!ppCP)
        return E_POINTER;
    *ppCP = nullptr;
    CServiceCall call(this, "FindConnectionPoint", IID_IConnectionPointContainer, kVssSupportSource,
                      "FindConnectionPoint");
    if (HRESULT hr = call.Enter(); hr != S_OK)
        return hr;
    if (!IsEqualIID(riid, IID__ISnapShotEvents))
        return CONNECT_E_NOCONNECTION;
    m_point.AddRef();
    *ppCP = &m_point;
    return S_OK;
}

STDMETHODIMP CVssSupport::InterfaceSupportsErrorInfo(REFIID riid)
{
    return IsEqualIID(riid, IID_IVSSSupport) || IsEqualIID(riid, IID_ISnapShot) ? S_OK : S_FALSE;
}

HRESULT CreateVssSupportClassObject(IClassFactory** ppFactory)
{
    return CServiceClassFactory<CVssSupport>::Create(ppFactory);
}

} // namespace storagesim::detail
