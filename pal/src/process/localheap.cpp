// The local heap: fixed blocks only.
#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "pal/winbase.h"
#include "pal/winerror.h"

#include <cstdlib>

HLOCAL WINAPI LocalAlloc(UINT uFlags, SIZE_T uBytes)
{
    if ((uFlags & ~static_cast<UINT>(LMEM_ZEROINIT)) != LMEM_FIXED) {
        // LMEM_MOVEABLE and the other flags need handles to movable blocks; none are offered.
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (pal::detail::FailIfInjected("LocalAlloc"))
        return nullptr;
    // A zero-byte fixed block is still a distinct, valid pointer, as on Windows.
    size_t size = uBytes == 0 ? 1 : uBytes;
    void* p = (uFlags & LMEM_ZEROINIT) ? std::calloc(1, size) : std::malloc(size);
    if (p == nullptr)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return p;
}

HLOCAL WINAPI LocalFree(HLOCAL hMem)
{
    std::free(hMem);
    return nullptr;
}
