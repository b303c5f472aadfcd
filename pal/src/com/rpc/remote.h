// What the activation and the endpoint share inside the out-of-process path.
#pragma once

#include "pal/src/com/rpc/com.capnp.h" // generated

#include "pal/guiddef.h"

#include <string>

namespace pal::detail::rpc {

// One capability of a remote object; created, used and destroyed on the RPC thread.
class CRemote
{
public:
    explicit CRemote(ComObject::Client client) : m_client(kj::mv(client)) {}
    ComObject::Client m_client;
    LONG m_lRefs = 1;
};

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

// The folder of the machine's COM endpoints and published classes, and a server's socket.
std::string ComFolder();
std::string EndpointPath(long pid);
// A class's published name, "{CLSID}.<pid>".
std::string ClassFileName(REFCLSID rclsid, long pid);

} // namespace pal::detail::rpc
