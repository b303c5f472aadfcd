// The task allocator, GUIDs, BSTR layout and the local heap.
#include "pal/combaseapi.h"
#include "pal/errhandlingapi.h"
#include "pal/oleauto.h"
#include "pal/winbase.h"
#include "tests/support/conformance.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>

namespace {

using MemoryTest = orvtest::ConformanceTest;

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

TEST_F(MemoryTest, GuidsAreRandomVersion4)
{
    EXPECT_HR(E_INVALIDARG, CoCreateGuid(nullptr));
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
orvtest::WString CheckAndFree(BSTR bstr, UINT cch)
{
    EXPECT_NE(nullptr, bstr);
    if (bstr == nullptr)
        return W("<null>");
    DWORD prefix;
    std::memcpy(&prefix, reinterpret_cast<const BYTE*>(bstr) - 4, sizeof(prefix));
    EXPECT_EQ(cch * 2, prefix);
    EXPECT_EQ(cch, SysStringLen(bstr));
    EXPECT_EQ(cch * 2, SysStringByteLen(bstr));
    EXPECT_EQ(0, bstr[cch]);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(bstr) % 8);
    orvtest::WString text(bstr, cch);
    SysFreeString(bstr);
    return text;
}

TEST_F(MemoryTest, BstrLayoutAndLengths)
{
    EXPECT_EQ(W("abc"), CheckAndFree(SysAllocString(W("abc")), 3));
    EXPECT_EQ(W(""), CheckAndFree(SysAllocString(W("")), 0));
    EXPECT_EQ(W("abc"), CheckAndFree(SysAllocStringLen(W("abcdef"), 3), 3));
    EXPECT_EQ(W(""), CheckAndFree(SysAllocStringLen(nullptr, 0), 0));
    // Embedded nulls are kept; the length comes from the prefix.
    EXPECT_EQ(orvtest::WString(W("a\0b"), 3), CheckAndFree(SysAllocStringLen(W("a\0b"), 3), 3));
    // Without a source the string is left for the caller to fill.
    BSTR blank = SysAllocStringLen(nullptr, 5);
    ASSERT_NE(nullptr, blank);
    std::memcpy(blank, W("hello"), 10);
    EXPECT_EQ(W("hello"), CheckAndFree(blank, 5));

    EXPECT_EQ(nullptr, SysAllocString(nullptr));
    EXPECT_EQ(nullptr, SysAllocStringLen(nullptr, 0x80000000u));
    EXPECT_EQ(0u, SysStringLen(nullptr));
    EXPECT_EQ(0u, SysStringByteLen(nullptr));
    SysFreeString(nullptr);
}

TEST_F(MemoryTest, LocalHeapFixedBlocks)
{
    auto* zeroed = static_cast<BYTE*>(LocalAlloc(LPTR, 64));
    ASSERT_NE(nullptr, zeroed);
    EXPECT_EQ(64, std::count(zeroed, zeroed + 64, 0));
    EXPECT_EQ(nullptr, LocalFree(zeroed));
    HLOCAL fixed = LocalAlloc(LMEM_FIXED, 0);
    EXPECT_NE(nullptr, fixed);
    EXPECT_EQ(nullptr, LocalFree(fixed));
    EXPECT_EQ(nullptr, LocalFree(nullptr));
}

} // namespace
