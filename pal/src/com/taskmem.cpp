// The COM task allocator and GUID creation.
#include "pal/combaseapi.h"
#include "pal/src/base/internal.h"
#include "pal/winerror.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sys/random.h>

namespace pal::detail {

// Every task allocation goes through here, so that tests can fail the Nth one.
void* TaskAlloc(size_t cb)
{
    if (TaskAllocShouldFail())
        return nullptr;
    return std::malloc(cb == 0 ? 1 : cb);
}

void TaskFree(void* pv)
{
    std::free(pv);
}

} // namespace pal::detail

LPVOID WINAPI CoTaskMemAlloc(SIZE_T cb)
{
    return pal::detail::TaskAlloc(cb);
}

LPVOID WINAPI CoTaskMemRealloc(LPVOID pv, SIZE_T cb)
{
    if (pv == nullptr)
        return pal::detail::TaskAlloc(cb);
    if (cb == 0) {
        pal::detail::TaskFree(pv);
        return nullptr;
    }
    if (pal::detail::TaskAllocShouldFail())
        return nullptr; // The old block stays as it was.
    return std::realloc(pv, cb);
}

void WINAPI CoTaskMemFree(LPVOID pv)
{
    pal::detail::TaskFree(pv);
}

namespace {

void FillRandom(void* buffer, size_t size)
{
    auto* bytes = static_cast<unsigned char*>(buffer);
    size_t filled = 0;
    while (filled < size) {
        ssize_t n = getrandom(bytes + filled, size - filled, 0);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        filled += static_cast<size_t>(n);
    }
    if (filled < size) {
        std::random_device device;
        for (; filled < size; ++filled)
            bytes[filled] = static_cast<unsigned char>(device());
    }
}

} // namespace

HRESULT WINAPI CoCreateGuid(GUID* pguid)
{
    if (pguid == nullptr)
        return E_INVALIDARG; // as Windows, not E_POINTER
    GUID guid;
    FillRandom(&guid, sizeof(guid));
    // RFC 4122 version 4 (random), variant 10x.
    guid.Data3 = static_cast<WORD>((guid.Data3 & 0x0FFF) | 0x4000);
    guid.Data4[0] = static_cast<BYTE>((guid.Data4[0] & 0x3F) | 0x80);
    *pguid = guid;
    return S_OK;
}
