// The task allocator and its failure sweeps, GUIDs, BSTR layout and the local heap.
#include "pal/combaseapi.h"
#include "pal/errhandlingapi.h"
#include "pal/oleauto.h"
#include "pal/winbase.h"
#include "tests/support/paltest.h"

#include <cstring>
#include <set>

namespace {

using MemoryTest = orvtest::PalTest;

TEST_F(MemoryTest, TaskAllocatorBasics)
{
    void* zero = CoTaskMemAlloc(0);
    void* other = CoTaskMemAlloc(0);
    EXPECT_NE(nullptr, zero);
    EXPECT_NE(zero, other);
    CoTaskMemFree(zero);
    CoTaskMemFree(other);
    CoTaskMemFree(nullptr);

    auto* p = static_cast<char*>(CoTaskMemRealloc(nullptr, 4));
    ASSERT_NE(nullptr, p);
    std::memcpy(p, "abc", 4);
    p = static_cast<char*>(CoTaskMemRealloc(p, 100000));
    ASSERT_NE(nullptr, p);
    EXPECT_STREQ("abc", p);
    EXPECT_EQ(nullptr, CoTaskMemRealloc(p, 0)); // Frees.

    void* fromNull = CoTaskMemRealloc(nullptr, 0);
    EXPECT_NE(nullptr, fromNull);
    CoTaskMemFree(fromNull);
}

TEST_F(MemoryTest, OnlyTheArmedAllocationFails)
{
    pal::FailTaskAllocAt(3);
    void* first = CoTaskMemAlloc(8);
    void* second = CoTaskMemRealloc(nullptr, 8);
    BSTR third = SysAllocString(W("x"));
    void* fourth = CoTaskMemAlloc(8);
    EXPECT_NE(nullptr, first);
    EXPECT_NE(nullptr, second);
    EXPECT_EQ(nullptr, third);
    EXPECT_NE(nullptr, fourth);
    EXPECT_EQ(4u, pal::TaskAllocations());
    // Frees are not allocations.
    CoTaskMemFree(first);
    CoTaskMemFree(second);
    CoTaskMemFree(fourth);
    EXPECT_EQ(4u, pal::TaskAllocations());
}

TEST_F(MemoryTest, FailedReallocLeavesTheBlockAlone)
{
    auto* p = static_cast<char*>(CoTaskMemAlloc(6));
    ASSERT_NE(nullptr, p);
    std::memcpy(p, "hello", 6);
    pal::FailTaskAllocAt(1);
    EXPECT_EQ(nullptr, CoTaskMemRealloc(p, 4096));
    EXPECT_STREQ("hello", p);
    CoTaskMemFree(p);
}

// What a caller's failure sweep looks like: a routine that needs three allocations fails
// cleanly at each of them, and succeeds once the sweep passes its last one.
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

TEST_F(MemoryTest, SweepFailsEachAllocationInTurn)
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

TEST_F(MemoryTest, GuidsAreRandomVersion4)
{
    EXPECT_HR(E_POINTER, CoCreateGuid(nullptr));
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        GUID guid = GUID_NULL;
        ASSERT_HR(S_OK, CoCreateGuid(&guid));
        EXPECT_EQ(0x4000, guid.Data3 & 0xF000);
        EXPECT_EQ(0x80, guid.Data4[0] & 0xC0);
        seen.insert(std::string(reinterpret_cast<const char*>(&guid), sizeof(guid)));
    }
    EXPECT_EQ(100u, seen.size());
}

DWORD PrefixOf(BSTR bstr)
{
    DWORD prefix;
    std::memcpy(&prefix, reinterpret_cast<const BYTE*>(bstr) - 4, sizeof(prefix));
    return prefix;
}

TEST_F(MemoryTest, BstrHasAByteLengthPrefixAndATerminator)
{
    BSTR bstr = SysAllocString(W("abc"));
    ASSERT_NE(nullptr, bstr);
    EXPECT_EQ(6u, PrefixOf(bstr));
    EXPECT_EQ(3u, SysStringLen(bstr));
    EXPECT_EQ(6u, SysStringByteLen(bstr));
    EXPECT_EQ(u"abc", std::u16string(bstr));
    EXPECT_EQ(0, bstr[3]);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(bstr) % 8);
    SysFreeString(bstr);

    BSTR empty = SysAllocString(W(""));
    ASSERT_NE(nullptr, empty);
    EXPECT_EQ(0u, PrefixOf(empty));
    EXPECT_EQ(0u, SysStringLen(empty));
    EXPECT_EQ(0, empty[0]);
    SysFreeString(empty);
}

TEST_F(MemoryTest, BstrFromLengths)
{
    BSTR blank = SysAllocStringLen(nullptr, 5);
    ASSERT_NE(nullptr, blank);
    EXPECT_EQ(10u, PrefixOf(blank));
    EXPECT_EQ(5u, SysStringLen(blank));
    EXPECT_EQ(0, blank[5]);
    std::memcpy(blank, W("hello"), 10);
    EXPECT_EQ(u"hello", std::u16string(blank));
    SysFreeString(blank);

    BSTR prefix = SysAllocStringLen(W("abcdef"), 3);
    ASSERT_NE(nullptr, prefix);
    EXPECT_EQ(u"abc", std::u16string(prefix));
    SysFreeString(prefix);

    // Embedded nulls are kept; the length comes from the prefix.
    BSTR embedded = SysAllocStringLen(W("a\0b"), 3);
    ASSERT_NE(nullptr, embedded);
    EXPECT_EQ(3u, SysStringLen(embedded));
    EXPECT_EQ(u'b', embedded[2]);
    SysFreeString(embedded);

    BSTR none = SysAllocStringLen(nullptr, 0);
    ASSERT_NE(nullptr, none);
    EXPECT_EQ(0u, SysStringLen(none));
    SysFreeString(none);
}

TEST_F(MemoryTest, BstrNullCases)
{
    EXPECT_EQ(nullptr, SysAllocString(nullptr));
    EXPECT_EQ(0u, SysStringLen(nullptr));
    EXPECT_EQ(0u, SysStringByteLen(nullptr));
    SysFreeString(nullptr);
    EXPECT_EQ(nullptr, SysAllocStringLen(nullptr, 0x80000000u));
}

TEST_F(MemoryTest, BstrAllocationsGoThroughTheTaskAllocator)
{
    pal::FailTaskAllocAt(2);
    BSTR first = SysAllocStringLen(W("ab"), 2);
    BSTR second = SysAllocString(W("cd"));
    EXPECT_NE(nullptr, first);
    EXPECT_EQ(nullptr, second);
    SysFreeString(first);
}

TEST_F(MemoryTest, LocalHeapFixedBlocks)
{
    auto* zeroed = static_cast<BYTE*>(LocalAlloc(LPTR, 64));
    ASSERT_NE(nullptr, zeroed);
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(0, zeroed[i]);
    EXPECT_EQ(nullptr, LocalFree(zeroed));

    HLOCAL fixed = LocalAlloc(LMEM_FIXED, 0);
    EXPECT_NE(nullptr, fixed);
    EXPECT_EQ(nullptr, LocalFree(fixed));
    EXPECT_EQ(nullptr, LocalFree(nullptr));

    SetLastError(0);
    EXPECT_EQ(nullptr, LocalAlloc(0x0002 /* LMEM_MOVEABLE */, 16));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, GetLastError());
}

TEST_F(MemoryTest, LocalAllocFaultHook)
{
    pal::InjectFault("LocalAlloc", ERROR_NOT_ENOUGH_MEMORY, 2);
    HLOCAL first = LocalAlloc(LPTR, 8);
    SetLastError(0);
    HLOCAL second = LocalAlloc(LPTR, 8);
    EXPECT_WIN32(ERROR_NOT_ENOUGH_MEMORY, GetLastError());
    EXPECT_NE(nullptr, first);
    EXPECT_EQ(nullptr, second);
    LocalFree(first);
}

} // namespace
