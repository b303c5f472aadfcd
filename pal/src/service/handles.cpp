// The process's SC_HANDLE table.
#include "pal/src/service/handles.h"

#include <cstdlib>
#include <map>
#include <mutex>

namespace pal::detail::service {

namespace {

// Not kernel handles: their low bits are 10, which the kernel handle table and the event
// source handles never give out.
constexpr ULONG_PTR kHandleTag = 2;

struct HandleTable
{
    std::mutex lock;
    ULONG_PTR ulNext = 0x100;
    std::map<ULONG_PTR, ScHandle> handles;
};

HandleTable& Table()
{
    static HandleTable table;
    return table;
}

std::string RootSetting()
{
    const char* env = std::getenv("ORVSIM_ROOT");
    return env ? env : "";
}

} // namespace

SC_HANDLE InsertHandle(ScHandle handle)
{
    handle.root = RootSetting();
    HandleTable& table = Table();
    std::lock_guard lock(table.lock);
    ULONG_PTR value = (table.ulNext++ << 2) | kHandleTag;
    table.handles.emplace(value, std::move(handle));
    return reinterpret_cast<SC_HANDLE>(value);
}

std::optional<ScHandle> FindHandle(SC_HANDLE h)
{
    HandleTable& table = Table();
    std::lock_guard lock(table.lock);
    auto it = table.handles.find(reinterpret_cast<ULONG_PTR>(h));
    if (it == table.handles.end() || it->second.root != RootSetting())
        return std::nullopt;
    return it->second;
}

std::optional<ScHandle> FindServiceHandle(SC_HANDLE h)
{
    std::optional<ScHandle> handle = FindHandle(h);
    if (handle && handle->fManager)
        return std::nullopt;
    return handle;
}

bool EraseHandle(SC_HANDLE h, ScHandle* pErased)
{
    HandleTable& table = Table();
    std::lock_guard lock(table.lock);
    auto it = table.handles.find(reinterpret_cast<ULONG_PTR>(h));
    if (it == table.handles.end())
        return false;
    *pErased = std::move(it->second);
    table.handles.erase(it);
    return true;
}

bool AnyHandleTo(LONGLONG llServiceId)
{
    const std::string root = RootSetting();
    HandleTable& table = Table();
    std::lock_guard lock(table.lock);
    for (const auto& [value, handle] : table.handles)
        if (!handle.fManager && handle.llServiceId == llServiceId && handle.root == root)
            return true;
    return false;
}

} // namespace pal::detail::service
