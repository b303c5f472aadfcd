// What the activation and the endpoint share inside the out-of-process path.
#pragma once

#include "pal/src/com/rpc/com.capnp.h" // generated

#include "pal/objbase.h"

#include <atomic>
#include <string>
#include <utility>
#include <vector>

namespace pal::detail::rpc {

// One capability of a remote object; created, used and destroyed on the RPC thread.
class CRemote
{
public:
    CRemote(ComObject::Client client, std::string peerAccount)
        : m_client(kj::mv(client)), m_peerAccount(std::move(peerAccount))
    {}
    ComObject::Client m_client;
    // The account of the process at the other end: objects this side passes to it serve that
    // account's calls.
    std::string m_peerAccount;
    LONG m_lRefs = 1;
    // Set by the first call that found the server gone: COM answers the later ones at once.
    std::atomic<bool> m_fDisconnected{false};
};

// Serves pItf (taking its reference) to the other end of a connection, whose calls come under
// account; on the RPC thread.
ComObject::Client ServeObject(IUnknown* pItf, REFIID riid, const std::string& account);

// The objects of a request or reply as they arrived, each with a reference; on the RPC thread.
std::vector<std::pair<IID, CRemote*>> ReceivedObjects(capnp::List<Interface>::Reader list,
                                                      const std::string& peerAccount);
// Puts the objects into a request or reply, handing their references to the capabilities.
void SendObjects(std::vector<std::pair<IID, IUnknown*>> objects,
                 capnp::List<Interface>::Builder list, const std::string& peerAccount);

inline kj::ArrayPtr<const kj::byte> GuidBytes(const GUID& guid)
{
    return kj::arrayPtr(reinterpret_cast<const kj::byte*>(&guid), sizeof(GUID));
}

inline bool GuidFromBytes(capnp::Data::Reader data, GUID* pguid)
{
    if (data.size() != sizeof(GUID))
        return false;
    memcpy(pguid, data.begin(), sizeof(GUID));
    return true;
}

// The account this process runs under, as a logon names it.
std::string ProcessAccountName();

// The folder of the machine's COM endpoints and published classes, and a server's socket.
std::string ComFolder();
std::string EndpointPath(long pid);
// A class's published name, "{CLSID}.<pid>".
std::string ClassFileName(REFCLSID rclsid, long pid);

} // namespace pal::detail::rpc
