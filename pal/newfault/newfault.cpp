// Global operator new and delete on malloc, so that `new (std::nothrow)` can be made to fail.
// Every variant is replaced together so that allocation and release always pair up.
#include "pal/src/base/internal.h"

#include <cstdlib>
#include <new>

namespace {

void* Allocate(std::size_t size)
{
    return std::malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(std::size_t size)
{
    void* p = Allocate(size);
    if (!p)
        throw std::bad_alloc();
    return p;
}

void* AllocateNothrow(std::size_t size) noexcept
{
    if (pal::detail::NothrowNewShouldFail())
        return nullptr;
    return Allocate(size);
}

} // namespace

void* operator new(std::size_t size)
{
    return AllocateOrThrow(size);
}
void* operator new[](std::size_t size)
{
    return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return AllocateNothrow(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return AllocateNothrow(size);
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete[](void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}
