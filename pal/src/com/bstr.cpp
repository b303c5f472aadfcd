// BSTR: the string is preceded by its length in bytes (a DWORD) and followed by a terminator.
// As in 64-bit oleaut32, the block starts with 4 bytes of padding so that the characters are
// 8-byte aligned: [pad:4][byte length:4][characters][0].
#include "pal/oleauto.h"
#include "pal/src/base/internal.h"

#include <cstring>

namespace {

constexpr size_t kHeader = 8;

BYTE* BlockOf(BSTR bstr)
{
    return reinterpret_cast<BYTE*>(bstr) - kHeader;
}

DWORD ByteLengthOf(BSTR bstr)
{
    DWORD cb;
    std::memcpy(&cb, reinterpret_cast<BYTE*>(bstr) - sizeof(DWORD), sizeof(cb));
    return cb;
}

// A BSTR of `cb` bytes, its characters copied from `source` when given, else zeroed.
BSTR AllocateBytes(const void* source, size_t cb)
{
    // The byte length must fit the DWORD prefix, with room for the header and terminator.
    if (cb > 0xFFFFFFFFu - kHeader - sizeof(WCHAR) * 2)
        return nullptr;
    // Rounded up to whole characters, plus the terminator.
    size_t cbBlock = kHeader + ((cb + 1) & ~size_t(1)) + sizeof(WCHAR);
    auto* block = static_cast<BYTE*>(pal::detail::TaskAlloc(cbBlock));
    if (block == nullptr)
        return nullptr;
    std::memset(block, 0, cbBlock);
    auto cbPrefix = static_cast<DWORD>(cb);
    std::memcpy(block + kHeader - sizeof(DWORD), &cbPrefix, sizeof(cbPrefix));
    if (source != nullptr && cb != 0)
        std::memcpy(block + kHeader, source, cb);
    return reinterpret_cast<BSTR>(block + kHeader);
}

} // namespace

BSTR WINAPI SysAllocString(const OLECHAR* psz)
{
    if (psz == nullptr)
        return nullptr;
    return AllocateBytes(psz, pal::detail::WideLength(psz) * sizeof(OLECHAR));
}

BSTR WINAPI SysAllocStringLen(const OLECHAR* strIn, UINT ui)
{
    if (ui > 0x7FFFFFFFu)
        return nullptr;
    return AllocateBytes(strIn, size_t(ui) * sizeof(OLECHAR));
}

void WINAPI SysFreeString(BSTR bstrString)
{
    if (bstrString != nullptr)
        pal::detail::TaskFree(BlockOf(bstrString));
}

UINT WINAPI SysStringLen(BSTR pbstr)
{
    return pbstr ? ByteLengthOf(pbstr) / sizeof(OLECHAR) : 0;
}

UINT WINAPI SysStringByteLen(BSTR bstr)
{
    return bstr ? ByteLengthOf(bstr) : 0;
}
