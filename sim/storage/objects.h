// What the service's COM objects share: their registry for disconnection, the frame of every
// method call (faults, delays, error objects), and the count of creations under way.
#pragma once

#include "pal/atlcom.h"

#include <atomic>
#include <string>
#include <vector>

namespace storagesim::detail {

// An object a client may hold. When the service stops, every live object is disconnected:
// its calls then fail with CO_E_OBJNOTCONNECTED, as calls through the proxy of an object whose
// server has gone do. Objects join the registry in FinalConstruct and leave it in FinalRelease,
// before any of their members is destroyed.
class CServiceObject
{
public:
    CServiceObject() = default;
    virtual ~CServiceObject() = default;
    CServiceObject(const CServiceObject&) = delete;
    CServiceObject& operator=(const CServiceObject&) = delete;

    bool Disconnected() const { return m_fDisconnected.load(); }

protected:
    void Track();
    void Untrack();
    // With the registry's lock held (the object cannot be destroyed meanwhile): marks the object
    // gone and hands over the references it holds of its clients (advised sinks), which the
    // caller releases once the lock is dropped.
    virtual void DisconnectLocked(std::vector<IUnknown*>* pToRelease)
    {
        UNREFERENCED_PARAMETER(pToRelease);
        m_fDisconnected = true;
    }

private:
    friend void DisconnectAllObjects();
    std::atomic<bool> m_fDisconnected{false};
};

// The frame of one method call: the proxy clears the caller's error object, the object may be
// gone, and an injected fault may delay or fail the call.
class CServiceCall
{
public:
    // pszFaultName names the call for fault injection; null for a call whose faults are
    // consumed elsewhere (the creation's, by its thread).
    CServiceCall(const CServiceObject* pObject, const char* method, REFIID iid, LPCWSTR pszSource,
                 const char* pszFaultName)
        : m_pObject(pObject), m_method(method), m_iid(iid), m_pszSource(pszSource),
          m_pszFaultName(pszFaultName)
    {}
    // S_OK to go on; otherwise the call's result, with the error object left for the caller.
    HRESULT Enter();
    // The call's result; a failure leaves an error object describing it.
    HRESULT Leave(HRESULT hr, const std::string& why);

private:
    const CServiceObject* m_pObject;
    const char* m_method;
    REFIID m_iid;
    LPCWSTR m_pszSource;
    const char* m_pszFaultName;
};

// Leaves an error object on the calling thread.
void SetServiceError(REFIID iid, LPCWSTR pszSource, const std::string& description);

constexpr const WCHAR* kVssSupportSource = u"Tessera.VSSSupport.1";
constexpr const WCHAR* kHyperVSupportSource = u"Tessera.HyperVSupport.1";

// Creations whose worker thread has not ended; CStorageService::Stop waits for them.
void CreationStarted();
void CreationEnded();
// True once the service is stopping: stalled creations give up.
bool ServiceStopping();

// The class object of a service class T: activation may fail by an injected "CreateInstance"
// fault. The service's objects live in the service's process, so they do not count in this
// process's module lock count (CComObjectNoLock).
template <class T>
class CServiceClassFactory final : public CComClassFactoryRoot
{
public:
    STDMETHODIMP CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        CServiceCall call(nullptr, "CreateInstance", riid, T::kSource, "CreateInstance");
        if (HRESULT hr = call.Enter(); hr != S_OK)
            return hr;
        if (pUnkOuter)
            return CLASS_E_NOAGGREGATION;
        return CreateObject<CComObjectNoLock<T>>(riid, ppv);
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }

    static HRESULT Create(IClassFactory** ppFactory)
    {
        *ppFactory = new (std::nothrow) CServiceClassFactory();
        return *ppFactory ? S_OK : E_OUTOFMEMORY;
    }

private:
    CServiceClassFactory() = default;
    ~CServiceClassFactory() override = default;
};

// The class objects' creators, for the service's registration.
HRESULT CreateVssSupportClassObject(IClassFactory** ppFactory);
HRESULT CreateHyperVSupportClassObject(IClassFactory** ppFactory);

} // namespace storagesim::detail
