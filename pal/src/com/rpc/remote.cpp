// The client side: proxies' calls, connections to the machine's server processes, and the
// activation of a class that another process serves.
#include "pal/src/com/rpc/remote.h"

#include "pal/palcontrol.h"
#include "pal/src/base/accounts.h"
#include "pal/src/com/rpc/activation.h"
#include "pal/src/com/rpc/launch.h"
#include "pal/src/com/rpc/loop.h"
#include "pal/src/com/rpc/marshal.h"
#include "pal/sysinfoapi.h"

#include <capnp/rpc-twoparty.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <thread>
#include <unistd.h>

namespace pal::detail::rpc {

std::string ComFolder()
{
    return pal::MachineRoot() + "/com";
}

std::string EndpointPath(long pid)
{
    return ComFolder() + "/" + std::to_string(pid) + ".sock";
}

std::string ClassFileName(REFCLSID rclsid, long pid)
{
    WCHAR sz[40] = {};
    StringFromGUID2(rclsid, sz, 40);
    std::string name;
    for (const WCHAR* p = sz; *p; ++p)
        name.push_back(static_cast<char>(*p));
    return name + "." + std::to_string(pid);
}

void AddRefRemote(CRemote* pRemote)
{
    InterlockedIncrement(&pRemote->m_lRefs);
}

void ReleaseRemote(CRemote* pRemote)
{
    if (InterlockedDecrement(&pRemote->m_lRefs) != 0)
        return;
    if (OnLoopThread())
        delete pRemote;
    else
        RunOnLoop([pRemote] { delete pRemote; });
}

namespace {

// The first call to find its server gone reports the server unavailable; the proxy is then
// disconnected, as COM's are.
HRESULT NoteDisconnection(CRemote* pRemote, HRESULT hr)
{
    if (hr != RPC_E_DISCONNECTED)
        return hr;
    return pRemote->m_fDisconnected.exchange(true) ? RPC_E_DISCONNECTED
                                                   : HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
}

} // namespace

HRESULT RemoteCall(CRemote* pRemote, REFIID riid, uint16_t method, CWriter& request,
                   CReader* pReply)
{
    if (pRemote->m_fDisconnected)
        return RPC_E_DISCONNECTED;
    HRESULT hrCall = S_OK;
    std::vector<uint8_t> reply;
    std::vector<std::pair<IID, CRemote*>> objects;
    auto sent = request.TakeObjects();
    HRESULT hr = RunOnLoop([&] {
        auto req = pRemote->m_client.callRequest();
        req.setIid(GuidBytes(riid));
        req.setMethod(method);
        req.setRequest(kj::arrayPtr(request.Bytes().data(), request.Bytes().size()));
        auto list = req.initObjects(sent.size());
        SendObjects(std::move(sent), list, pRemote->m_peerAccount);
        sent.clear();
        return req.send().then([&](capnp::Response<ComObject::CallResults>&& response) {
            hrCall = response.getHr();
            auto bytes = response.getReply();
            reply.assign(bytes.begin(), bytes.end());
            objects = ReceivedObjects(response.getObjects(), pRemote->m_peerAccount);
        });
    });
    // Objects the loop never took (it failed first) keep their references here.
    for (auto& object : sent)
        if (object.second)
            object.second->Release();
    pReply->Assign(std::move(reply), std::move(objects));
    return FAILED(hr) ? NoteDisconnection(pRemote, hr) : hrCall;
}

HRESULT RemoteQueryInterface(CRemote* pRemote, REFIID riid, void** ppv)
{
    *ppv = nullptr;
    const InterfaceMarshaler* pMarshaler = FindInterfaceMarshaler(riid);
    if (!pMarshaler)
        return E_NOINTERFACE;
    if (pRemote->m_fDisconnected)
        return RPC_E_DISCONNECTED;
    HRESULT hrQuery = S_OK;
    CRemote* pNew = nullptr;
    HRESULT hr = RunOnLoop([&] {
        auto req = pRemote->m_client.queryInterfaceRequest();
        req.setIid(GuidBytes(riid));
        return req.send().then([&](capnp::Response<ComObject::QueryInterfaceResults>&& response) {
            hrQuery = response.getHr();
            if (SUCCEEDED(hrQuery))
                pNew = new CRemote(response.getObject(), pRemote->m_peerAccount);
        });
    });
    if (FAILED(hr))
        return NoteDisconnection(pRemote, hr);
    if (FAILED(hrQuery))
        return hrQuery;
    hr = pMarshaler->pfnCreateProxy(pNew, ppv);
    ReleaseRemote(pNew);
    return hr;
}

namespace {

// A connection to one server process, kept while it lasts so that its capabilities work.
struct CConnection
{
    kj::Own<kj::AsyncIoStream> m_pStream;
    kj::Own<capnp::TwoPartyClient> m_pClient;
    kj::Maybe<ComSession::Client> m_session;
    std::string m_serverAccount;
    bool m_fClosed = false;
};

// On the RPC thread only. Closed connections are kept: their capabilities still answer.
std::map<std::string, std::shared_ptr<CConnection>>& Connections()
{
    static auto* pMap = new std::map<std::string, std::shared_ptr<CConnection>>();
    return *pMap;
}

} // namespace

std::string ProcessAccountName()
{
    std::string account;
    for (const char16_t* p = ProcessAccount().pszName; *p; ++p)
        account.push_back(static_cast<char>(*p));
    return account;
}

namespace {

// The connection to the server behind path, logged on, connecting first when there is none (on
// the RPC thread).
kj::Promise<std::shared_ptr<CConnection>> Connect(const std::string& path)
{
    // A connection carries the account it logged on with: a process that changes its account
    // connects again.
    std::string key = path + "|" + ProcessAccountName();
    auto& connections = Connections();
    auto it = connections.find(key);
    if (it != connections.end() && !it->second->m_fClosed)
        return it->second;
    return LoopIo()
        .getNetwork()
        .parseAddress("unix:" + path)
        .then([](kj::Own<kj::NetworkAddress>&& pAddress) {
            return pAddress->connect().attach(kj::mv(pAddress));
        })
        .then([key](kj::Own<kj::AsyncIoStream>&& pStream) {
            auto pConnection = std::make_shared<CConnection>();
            pConnection->m_pStream = kj::mv(pStream);
            pConnection->m_pClient = kj::heap<capnp::TwoPartyClient>(*pConnection->m_pStream);
            auto logon = pConnection->m_pClient->bootstrap().castAs<ComEndpoint>().logonRequest();
            logon.setAccount(ProcessAccountName());
            std::weak_ptr<CConnection> weak = pConnection;
            pConnection->m_pClient->onDisconnect()
                .then([weak] {
                    if (auto p = weak.lock())
                        p->m_fClosed = true;
                })
                .detach([](kj::Exception&&) {});
            return logon.send().then(
                [key, pConnection](capnp::Response<ComEndpoint::LogonResults>&& response) {
                    pConnection->m_session = response.getSession();
                    pConnection->m_serverAccount = response.getAccount();
                    Connections()[key] = pConnection;
                    return pConnection;
                });
        });
}

// The published servers of a class, other than this process, in the order of their names.
std::vector<std::pair<std::filesystem::path, long>> Publishers(REFCLSID rclsid)
{
    std::vector<std::pair<std::filesystem::path, long>> publishers;
    std::string prefix = ClassFileName(rclsid, 0);
    prefix.pop_back(); // "{CLSID}."
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(ComFolder(), ec)) {
        std::string name = entry.path().filename().string();
        if (name.compare(0, prefix.size(), prefix) != 0)
            continue;
        long pid = std::strtol(name.c_str() + prefix.size(), nullptr, 10);
        if (pid > 0 && pid != static_cast<long>(getpid()))
            publishers.emplace_back(entry.path(), pid);
    }
    std::sort(publishers.begin(), publishers.end());
    return publishers;
}

// The class object from a process that published the class: REGDB_E_CLASSNOTREG when none
// has, CO_E_SERVER_STOPPING when those that have are suspended or on their way out.
HRESULT ConnectToPublished(REFCLSID rclsid, REFIID riid, void** ppv)
{
    *ppv = nullptr;
    const InterfaceMarshaler* pMarshaler = FindInterfaceMarshaler(riid);
    HRESULT hrResult = REGDB_E_CLASSNOTREG;
    for (const auto& [file, pid] : Publishers(rclsid)) {
        std::string path = EndpointPath(pid);
        HRESULT hrClass = S_OK;
        bool fConnected = false;
        CRemote* pRemote = nullptr;
        HRESULT hr = RunOnLoop([&] {
            return Connect(path).then([&](std::shared_ptr<CConnection>&& pConnection) {
                fConnected = true;
                std::string account = pConnection->m_serverAccount;
                auto req = KJ_ASSERT_NONNULL(pConnection->m_session).getClassObjectRequest();
                req.setClsid(GuidBytes(rclsid));
                req.setIid(GuidBytes(riid));
                return req.send().then(
                    [&, account](capnp::Response<ComSession::GetClassObjectResults>&& response) {
                        hrClass = response.getHr();
                        if (SUCCEEDED(hrClass))
                            pRemote = new CRemote(response.getObject(), account);
                    });
            });
        });
        if (!fConnected) {
            // Nobody listens: the publisher died without revoking.
            std::error_code ec;
            std::filesystem::remove(file, ec);
            continue;
        }
        if (FAILED(hr))
            continue;
        if (hrClass == REGDB_E_CLASSNOTREG || hrClass == CO_E_SERVER_STOPPING) {
            if (hrResult == REGDB_E_CLASSNOTREG)
                hrResult = hrClass;
            continue;
        }
        if (FAILED(hrClass))
            return hrClass;
        hr = pMarshaler ? pMarshaler->pfnCreateProxy(pRemote, ppv) : E_NOINTERFACE;
        ReleaseRemote(pRemote);
        return hr;
    }
    return hrResult;
}

// How long COM waits for a server it started to register its class object.
constexpr ULONGLONG kRegistrationTimeoutMs = 120000;
// How often the activation looks again meanwhile (real time: the wait is short either way).
constexpr auto kPollInterval = std::chrono::milliseconds(2);

bool StillWaiting(HRESULT hr)
{
    return hr == REGDB_E_CLASSNOTREG || hr == CO_E_SERVER_STOPPING;
}

} // namespace

HRESULT GetRemoteClassObject(REFCLSID rclsid, REFIID riid, void** ppv)
{
    HRESULT hr = ConnectToPublished(rclsid, riid, ppv);
    if (!StillWaiting(hr))
        return hr;
    CServerLaunch launch;
    if (FAILED(hr = launch.Start(rclsid)))
        return hr;
    const ULONGLONG ullDeadline = GetTickCount64() + kRegistrationTimeoutMs;
    for (;;) {
        hr = ConnectToPublished(rclsid, riid, ppv);
        if (!StillWaiting(hr))
            return hr;
        if (launch.Ended()) {
            if (!launch.MayStartAgain())
                return CO_E_SERVER_EXEC_FAILURE;
            if (FAILED(hr = launch.Start(rclsid)))
                return hr;
        }
        if (GetTickCount64() >= ullDeadline)
            return CO_E_SERVER_EXEC_FAILURE;
        std::this_thread::sleep_for(kPollInterval);
    }
}

} // namespace pal::detail::rpc
