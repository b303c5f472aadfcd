// The server side: the process's endpoint, its sessions and the stubs of its objects. Calls
// arrive on the RPC thread and run on the workers; every answer goes back through a
// cross-thread fulfiller.
#include "pal/palcontrol.h"
#include "pal/src/base/accounts.h"
#include "pal/src/com/rpc/activation.h"
#include "pal/src/com/rpc/loop.h"
#include "pal/src/com/rpc/marshal.h"
#include "pal/src/com/rpc/remote.h"
#include "pal/src/com/runtime.h"

#include <capnp/rpc-twoparty.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <unistd.h>

namespace pal::detail::rpc {
namespace {

// What a worker hands back: the HRESULT, the reply, and the objects with their references
// (released on a worker when the answer is dropped unsent).
struct COutcome
{
    HRESULT m_hr = S_OK;
    std::vector<uint8_t> m_reply;
    std::vector<std::pair<IID, IUnknown*>> m_objects;

    COutcome() = default;
    COutcome(COutcome&& other) noexcept = default;
    COutcome& operator=(COutcome&& other) noexcept = default;
    ~COutcome()
    {
        for (auto& object : m_objects)
            if (IUnknown* p = object.second)
                PostToWorkers([p] { p->Release(); });
    }
};

// Whether the server process's COM security admits the account; on a worker.
HRESULT CheckCaller(const std::string& account)
{
    std::u16string name(account.begin(), account.end());
    const MachineAccount* pAccount = FindAccountByName(name);
    if (!pAccount)
        return E_ACCESSDENIED;
    BOOL fAllowed = FALSE;
    HRESULT hr = ComSecurityAllowsCaller(*pAccount, &fAllowed);
    if (FAILED(hr))
        return hr;
    return fAllowed ? S_OK : E_ACCESSDENIED;
}

// Runs job on a worker and answers with its outcome on the RPC thread.
template <class Job>
kj::Promise<COutcome> OnWorker(Job job)
{
    // The fulfiller stays on the RPC thread: the worker posts the outcome back to it.
    auto paf = kj::newPromiseAndFulfiller<COutcome>();
    auto pFulfiller =
        std::make_shared<kj::Own<kj::PromiseFulfiller<COutcome>>>(kj::mv(paf.fulfiller));
    PostToWorkers([pFulfiller, job = std::move(job)]() mutable {
        auto pOutcome = std::make_shared<COutcome>();
        job(*pOutcome);
        PostToLoop([pFulfiller = std::move(pFulfiller), pOutcome] {
            (*pFulfiller)->fulfill(kj::mv(*pOutcome));
        });
    });
    return kj::mv(paf.promise);
}

// The answer of a call whose result is one interface pointer: it is served to the caller under
// the caller's account.
template <class Context>
auto AnswerWithObject(Context context, std::string account)
{
    return [context, account = std::move(account)](COutcome&& outcome) mutable {
        auto results = context.getResults();
        results.setHr(outcome.m_hr);
        if (!outcome.m_objects.empty()) {
            auto object = outcome.m_objects[0];
            outcome.m_objects.clear();
            results.setObject(ServeObject(object.second, object.first, account));
        }
    };
}

class CObjectServer final : public ComObject::Server
{
public:
    CObjectServer(IUnknown* pItf, REFIID riid, std::string account)
        : m_pItf(pItf), m_iid(riid), m_account(std::move(account))
    {}
    ~CObjectServer()
    {
        // The client dropped its capability, or its connection closed: the stub's reference
        // goes, on a worker, so that the object's destructor may call COM.
        IUnknown* pItf = m_pItf;
        PostToWorkers([pItf] { pItf->Release(); });
    }

protected:
    kj::Promise<void> queryInterface(QueryInterfaceContext context) override
    {
        IID iid = GUID_NULL;
        GuidFromBytes(context.getParams().getIid(), &iid);
        IUnknown* pItf = m_pItf;
        pItf->AddRef();
        std::string account = m_account;
        return OnWorker([pItf, iid, account](COutcome& outcome) {
                   outcome.m_hr = CheckCaller(account);
                   if (SUCCEEDED(outcome.m_hr) && !FindInterfaceMarshaler(iid))
                       outcome.m_hr = E_NOINTERFACE;
                   if (SUCCEEDED(outcome.m_hr)) {
                       IUnknown* pNew = nullptr;
                       outcome.m_hr = pItf->QueryInterface(iid, reinterpret_cast<void**>(&pNew));
                       if (SUCCEEDED(outcome.m_hr))
                           outcome.m_objects.emplace_back(iid, pNew);
                   }
                   pItf->Release();
               })
            .then(AnswerWithObject(context, account));
    }

    kj::Promise<void> call(CallContext context) override
    {
        auto params = context.getParams();
        IID iid = GUID_NULL;
        GuidFromBytes(params.getIid(), &iid);
        uint16_t method = params.getMethod();
        auto bytes = params.getRequest();
        std::vector<uint8_t> request(bytes.begin(), bytes.end());
        auto objects = ReceivedObjects(params.getObjects(), m_account);
        IUnknown* pItf = m_pItf;
        pItf->AddRef();
        IID iidOwn = m_iid;
        std::string account = m_account;
        return OnWorker([pItf, iid, iidOwn, method, request = std::move(request),
                         objects = std::move(objects), account](COutcome& outcome) mutable {
                   const InterfaceMarshaler* pMarshaler = FindInterfaceMarshaler(iid);
                   outcome.m_hr = CheckCaller(account);
                   if (SUCCEEDED(outcome.m_hr) && (!pMarshaler || !IsEqualIID(iid, iidOwn)))
                       outcome.m_hr = E_NOINTERFACE;
                   if (SUCCEEDED(outcome.m_hr)) {
                       CReader in(std::move(request), std::move(objects));
                       CWriter out;
                       outcome.m_hr = pMarshaler->pfnInvoke(pItf, method, in, out);
                       outcome.m_reply = out.Bytes();
                       outcome.m_objects = out.TakeObjects();
                   }
                   pItf->Release();
               })
            .then([context, account](COutcome&& outcome) mutable {
                auto results = context.getResults();
                results.setHr(outcome.m_hr);
                results.setReply(kj::arrayPtr(outcome.m_reply.data(), outcome.m_reply.size()));
                auto objects = results.initObjects(outcome.m_objects.size());
                SendObjects(std::move(outcome.m_objects), objects, account);
                outcome.m_objects.clear();
            });
    }

private:
    IUnknown* m_pItf; // one reference, released when the capability goes
    IID m_iid;
    std::string m_account;
};

} // namespace

ComObject::Client ServeObject(IUnknown* pItf, REFIID riid, const std::string& account)
{
    return kj::heap<CObjectServer>(pItf, riid, account);
}

std::vector<std::pair<IID, CRemote*>> ReceivedObjects(capnp::List<Interface>::Reader list,
                                                      const std::string& peerAccount)
{
    std::vector<std::pair<IID, CRemote*>> objects;
    for (auto item : list) {
        IID iid = IID_IUnknown;
        GuidFromBytes(item.getIid(), &iid);
        objects.emplace_back(iid, item.hasObject() ? new CRemote(item.getObject(), peerAccount)
                                                   : nullptr);
    }
    return objects;
}

void SendObjects(std::vector<std::pair<IID, IUnknown*>> objects,
                 capnp::List<Interface>::Builder list, const std::string& peerAccount)
{
    for (size_t i = 0; i < objects.size(); ++i) {
        auto [iid, pObject] = objects[i];
        list[i].setIid(GuidBytes(iid));
        if (pObject)
            list[i].setObject(ServeObject(pObject, iid, peerAccount));
    }
}

namespace {

class CSessionServer final : public ComSession::Server
{
public:
    explicit CSessionServer(std::string account) : m_account(std::move(account)) {}

protected:
    kj::Promise<void> getClassObject(GetClassObjectContext context) override
    {
        CLSID clsid = GUID_NULL;
        IID iid = GUID_NULL;
        GuidFromBytes(context.getParams().getClsid(), &clsid);
        GuidFromBytes(context.getParams().getIid(), &iid);
        std::string account = m_account;
        return OnWorker([clsid, iid, account](COutcome& outcome) {
                   outcome.m_hr = CheckCaller(account);
                   IUnknown* pUnk = nullptr;
                   if (SUCCEEDED(outcome.m_hr))
                       outcome.m_hr = FindLocalServerClassObject(clsid, &pUnk);
                   if (SUCCEEDED(outcome.m_hr)) {
                       IUnknown* pItf = nullptr;
                       outcome.m_hr = pUnk->QueryInterface(iid, reinterpret_cast<void**>(&pItf));
                       pUnk->Release();
                       if (SUCCEEDED(outcome.m_hr))
                           outcome.m_objects.emplace_back(iid, pItf);
                   }
               })
            .then(AnswerWithObject(context, account));
    }

private:
    std::string m_account;
};

class CEndpointServer final : public ComEndpoint::Server
{
protected:
    kj::Promise<void> logon(LogonContext context) override
    {
        std::string account = context.getParams().getAccount();
        context.getResults().setSession(kj::heap<CSessionServer>(account));
        context.getResults().setAccount(ProcessAccountName());
        return kj::READY_NOW;
    }
};

// The listening endpoint, on the RPC thread for the life of the process.
struct CEndpoint
{
    kj::Own<capnp::TwoPartyServer> m_pServer;
    kj::Own<kj::ConnectionReceiver> m_pListener;
};

// Every endpoint the process opened, reachable for the leak checker; never destroyed, since
// capabilities may be dropped until the process exits.
std::vector<CEndpoint*>& Endpoints() // RPC thread only
{
    static auto* pEndpoints = new std::vector<CEndpoint*>();
    return *pEndpoints;
}

std::mutex g_endpointLock;
// The machine root the endpoint listens under: a process whose root changes (tests) listens
// again under the new one; the older listener stays.
std::string g_endpointRoot;

HRESULT StartEndpoint()
{
    std::lock_guard lock(g_endpointLock);
    if (g_endpointRoot == pal::MachineRoot())
        return S_OK;
    std::error_code ec;
    std::filesystem::create_directories(ComFolder(), ec);
    if (ec)
        return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
    std::string path = EndpointPath(static_cast<long>(getpid()));
    ::unlink(path.c_str());
    HRESULT hr = RunOnLoop([path] {
        return LoopIo()
            .getNetwork()
            .parseAddress("unix:" + path)
            .then([](kj::Own<kj::NetworkAddress>&& pAddress) {
                auto* pEndpoint = new CEndpoint();
                Endpoints().push_back(pEndpoint);
                pEndpoint->m_pListener = pAddress->listen();
                pEndpoint->m_pServer = kj::heap<capnp::TwoPartyServer>(kj::heap<CEndpointServer>());
                pEndpoint->m_pServer->listen(*pEndpoint->m_pListener).detach([](kj::Exception&&) {
                });
            });
    });
    if (FAILED(hr))
        return HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
    g_endpointRoot = pal::MachineRoot();
    return S_OK;
}

} // namespace

HRESULT PublishClass(REFCLSID rclsid)
{
    HRESULT hr = StartEndpoint();
    if (FAILED(hr))
        return hr;
    std::ofstream file(ComFolder() + "/" + ClassFileName(rclsid, static_cast<long>(getpid())));
    return file ? S_OK : HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
}

void UnpublishClass(REFCLSID rclsid)
{
    std::error_code ec;
    std::filesystem::remove(ComFolder() + "/" + ClassFileName(rclsid, static_cast<long>(getpid())),
                            ec);
}

} // namespace pal::detail::rpc
