// The table of interface marshalers and the runtime's own: IUnknown and IClassFactory.
#include "pal/src/com/rpc/marshal.h"

#include <deque>
#include <mutex>

namespace pal::detail::rpc {
namespace {

struct CMarshalers
{
    std::mutex m_lock;
    std::deque<InterfaceMarshaler> m_marshalers; // entries keep their place
};

CMarshalers& Marshalers()
{
    static auto* pMarshalers = [] {
        auto* p = new CMarshalers();
        for (const InterfaceMarshaler& marshaler : VssMarshalers())
            p->m_marshalers.push_back(marshaler);
        return p;
    }();
    return *pMarshalers;
}

class CUnknownProxy final : public CProxy<IUnknown>
{
public:
    explicit CUnknownProxy(CRemote* pRemote) : CProxy(pRemote, IID_IUnknown) {}
};

HRESULT InvokeUnknown(IUnknown*, uint16_t, CReader&, CWriter&)
{
    return RPC_E_INVALID_DATA; // IUnknown's methods are the capability itself
}

enum : uint16_t
{
    kCreateInstance = 0,
    kLockServer = 1,
};

class CClassFactoryProxy final : public CProxy<IClassFactory>
{
public:
    explicit CClassFactoryProxy(CRemote* pRemote) : CProxy(pRemote, IID_IClassFactory) {}

    STDMETHODIMP CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (pUnkOuter)
            return CLASS_E_NOAGGREGATION; // an outer object cannot be another process's
        CWriter request;
        request.PutGuid(riid);
        CReader reply;
        HRESULT hr = RemoteCall(Remote(), IID_IClassFactory, kCreateInstance, request, &reply);
        if (FAILED(hr))
            return hr;
        return reply.GetObject(riid, ppv);
    }
    STDMETHODIMP LockServer(BOOL fLock) override
    {
        CWriter request;
        request.PutU32(fLock ? 1 : 0);
        CReader reply;
        return RemoteCall(Remote(), IID_IClassFactory, kLockServer, request, &reply);
    }
};

HRESULT InvokeClassFactory(IUnknown* pItf, uint16_t method, CReader& request, CWriter& reply)
{
    auto* pFactory = static_cast<IClassFactory*>(pItf);
    switch (method) {
    case kCreateInstance: {
        IID iid;
        if (!request.GetGuid(&iid))
            return RPC_E_INVALID_DATA;
        if (!FindInterfaceMarshaler(iid))
            return E_NOINTERFACE;
        IUnknown* pObject = nullptr;
        HRESULT hr = pFactory->CreateInstance(nullptr, iid, reinterpret_cast<void**>(&pObject));
        if (SUCCEEDED(hr)) {
            reply.PutObject(pObject, iid);
            pObject->Release();
        }
        return hr;
    }
    case kLockServer: {
        uint32_t dwLock = 0;
        if (!request.GetU32(&dwLock))
            return RPC_E_INVALID_DATA;
        return pFactory->LockServer(dwLock != 0);
    }
    default:
        return RPC_E_INVALID_DATA;
    }
}

const CMarshalerRegistration g_unknown({&IID_IUnknown, &CreateProxy<CUnknownProxy>,
                                        &InvokeUnknown});
const CMarshalerRegistration g_classFactory({&IID_IClassFactory, &CreateProxy<CClassFactoryProxy>,
                                             &InvokeClassFactory});

} // namespace

void RegisterInterfaceMarshaler(const InterfaceMarshaler& marshaler)
{
    CMarshalers& marshalers = Marshalers();
    std::lock_guard lock(marshalers.m_lock);
    for (InterfaceMarshaler& existing : marshalers.m_marshalers) {
        if (IsEqualIID(*existing.piid, *marshaler.piid)) {
            existing = marshaler;
            return;
        }
    }
    marshalers.m_marshalers.push_back(marshaler);
}

const InterfaceMarshaler* FindInterfaceMarshaler(REFIID riid)
{
    CMarshalers& marshalers = Marshalers();
    std::lock_guard lock(marshalers.m_lock);
    for (const InterfaceMarshaler& marshaler : marshalers.m_marshalers)
        if (IsEqualIID(*marshaler.piid, riid))
            return &marshaler;
    return nullptr;
}

} // namespace pal::detail::rpc
