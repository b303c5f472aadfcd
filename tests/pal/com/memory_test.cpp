// The task allocator and its failure sweeps, GUIDs, BSTR layout and the local heap.
#include "pal/combaseapi.h"
#include "pal/errhandlingapi.h"
#include "pal/oleauto.h"
#include "pal/winbase.h"
#include "tests/support/paltest.h"

#include <algorithm>
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
    EXPECT_EQ(nullptr, CoTaskMemRealloc(p, 0)); // frees
    void* fromNull = CoTaskMemRealloc(nullptr, 0);
    EXPECT_NE(nullptr, fromNull);
    CoTaskMemFree(fromNull);
}

TEST_F(MemoryTest, OnlyTheArmedAllocationFailsAndAFailedReallocKeepsTheBlock)
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

// Checks the byte-length prefix, the length functions, the terminator and the alignment, then
// returns the text and frees the BSTR.
std::u16string CheckAndFree(BSTR bstr, UINT cch)
{
    EXPECT_NE(nullptr, bstr);
    if (bstr == nullptr)
        return u"<null>";
    DWORD prefix;
    std::memcpy(&prefix, reinterpret_cast<const BYTE*>(bstr) - 4, sizeof(prefix));
    EXPECT_EQ(cch * 2, prefix);
    EXPECT_EQ(cch, SysStringLen(bstr));
    EXPECT_EQ(cch * 2, SysStringByteLen(bstr));
    EXPECT_EQ(0, bstr[cch]);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(bstr) % 8);
    std::u16string text(bstr, cch);
    SysFreeString(bstr);
    return text;
}

TEST_F(MemoryTest, BstrLayoutAndLengths)
{
    EXPECT_EQ(u"abc", CheckAndFree(SysAllocString(W("abc")), 3));
    EXPECT_EQ(u"", CheckAndFree(SysAllocString(W("")), 0));
    EXPECT_EQ(u"abc", CheckAndFree(SysAllocStringLen(W("abcdef"), 3), 3));
    EXPECT_EQ(u"", CheckAndFree(SysAllocStringLen(nullptr, 0), 0));
    // Embedded nulls are kept; the length comes from the prefix.
    EXPECT_EQ(std::u16string(u"a\0b", 3), CheckAndFree(SysAllocStringLen(W("a\0b"), 3), 3));
    // Without a source the string is left for the caller to fill.
    BSTR blank = SysAllocStringLen(nullptr, 5);
    ASSERT_NE(nullptr, blank);
    std::memcpy(blank, W("hello"), 10);
    EXPECT_EQ(u"hello", CheckAndFree(blank, 5));

    EXPECT_EQ(nullptr, SysAllocString(nullptr));
    EXPECT_EQ(nullptr, SysAllocStringLen(nullptr, 0x80000000u));
    EXPECT_EQ(0u, SysStringLen(nullptr));
    EXPECT_EQ(0u, SysStringByteLen(nullptr));
    SysFreeString(nullptr);
}

TEST_F(MemoryTest, LocalHeapFixedBlocksAndFaults)
{
    auto* zeroed = static_cast<BYTE*>(LocalAlloc(LPTR, 64));
    ASSERT_NE(nullptr, zeroed);
    EXPECT_EQ(64, std::count(zeroed, zeroed + 64, 0));
    EXPECT_EQ(nullptr, LocalFree(zeroed));
    HLOCAL fixed = LocalAlloc(LMEM_FIXED, 0);
    EXPECT_NE(nullptr, fixed);
    EXPECT_EQ(nullptr, LocalFree(fixed));
    EXPECT_EQ(nullptr, LocalFree(nullptr));

    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER, LocalAlloc(0x0002 /* LMEM_MOVEABLE */, 16));

    pal::InjectFault("LocalAlloc", ERROR_NOT_ENOUGH_MEMORY, 2);
    HLOCAL first = LocalAlloc(LPTR, 8);
    EXPECT_CALL_ERROR(nullptr, ERROR_NOT_ENOUGH_MEMORY, LocalAlloc(LPTR, 8));
    EXPECT_NE(nullptr, first);
    LocalFree(first);
}

} // namespace
