// The task allocator's failure sweeps and the local heap's refusals and faults; the cases
// that need no test controls are in conformance/memory_test.cpp.
#include "pal/combaseapi.h"
#include "pal/errhandlingapi.h"
#include "pal/oleauto.h"
#include "pal/winbase.h"
#include "tests/support/paltest.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace {

using MemoryFaultTest = orvtest::PalTest;

TEST_F(MemoryFaultTest, OnlyTheArmedAllocationFailsAndAFailedReallocKeepsTheBlock)
{
    auto* kept = static_cast<char*>(CoTaskMemAlloc(6));
    ASSERT_NE(nullptr, kept);
    std::memcpy(kept, "hello", 6);
    pal::FailTaskAllocAt(3);
    void* first = CoTaskMemAlloc(8);
    void* second = CoTaskMemRealloc(nullptr, 8);
    EXPECT_EQ(nullptr, CoTaskMemRealloc(kept, 4096));
    EXPECT_STREQ("hello", kept);
    void* fourth = CoTaskMemAlloc(8);
    EXPECT_NE(nullptr, first);
    EXPECT_NE(nullptr, second);
    EXPECT_NE(nullptr, fourth);
    // Frees are not allocations.
    for (void* p : {first, second, fourth, static_cast<void*>(kept)})
        CoTaskMemFree(p);
    EXPECT_EQ(4u, pal::TaskAllocations());
}

// What a caller's failure sweep looks like: a routine that needs three allocations, two of
// them BSTRs, fails cleanly at each of them, and succeeds once the sweep passes its last one.
HRESULT MakeTriple(BSTR* a, void** b, BSTR* c)
{
    *a = SysAllocString(W("first"));
    *b = CoTaskMemAlloc(32);
    *c = SysAllocStringLen(W("third"), 5);
    if (*a && *b && *c)
        return S_OK;
    SysFreeString(*a);
    CoTaskMemFree(*b);
    SysFreeString(*c);
    *a = *c = nullptr;
    *b = nullptr;
    return E_OUTOFMEMORY;
}

TEST_F(MemoryFaultTest, SweepFailsEachAllocationInTurn)
{
    for (ULONG n = 1;; ++n) {
        pal::FailTaskAllocAt(n);
        BSTR a, c;
        void* b;
        HRESULT hr = MakeTriple(&a, &b, &c);
        if (n <= 3) {
            EXPECT_HR(E_OUTOFMEMORY, hr) << n;
            continue;
        }
        ASSERT_HR(S_OK, hr);
        EXPECT_EQ(3u, pal::TaskAllocations());
        SysFreeString(a);
        CoTaskMemFree(b);
        SysFreeString(c);
        break;
    }
}

TEST_F(MemoryFaultTest, LocalHeapRefusesMoveableBlocksAndFaults)
{
    // The pal has fixed blocks only (Windows hands out a moveable one).
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER, LocalAlloc(0x0002 /* LMEM_MOVEABLE */, 16));

    pal::InjectFault("LocalAlloc", ERROR_NOT_ENOUGH_MEMORY, 2);
    HLOCAL first = LocalAlloc(LPTR, 8);
    EXPECT_CALL_ERROR(nullptr, ERROR_NOT_ENOUGH_MEMORY, LocalAlloc(LPTR, 8));
    EXPECT_NE(nullptr, first);
    LocalFree(first);
}

} // namespace
