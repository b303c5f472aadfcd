// Security identifiers: allocation, comparison and their text.
#include "pal/src/security/sid.h"

#include "pal/errhandlingapi.h"
#include "pal/securitybaseapi.h"
#include "pal/src/base/internal.h"
#include "pal/winerror.h"

#include <cstdlib>
#include <cstring>

namespace {

// AllocateAndInitializeSid takes at most this many sub-authorities, one argument each.
constexpr BYTE kMaxAllocatedSubAuthorities = 8;
constexpr size_t kSidHeaderSize = offsetof(SID, SubAuthority);

const SID* AsSid(const void* pSid)
{
    return static_cast<const SID*>(pSid);
}

// Sub-authority i, read through the bytes so that no bound of the one-element array is crossed.
DWORD SubAuthority(const SID* pSid, size_t i)
{
    DWORD dw = 0;
    std::memcpy(&dw, reinterpret_cast<const BYTE*>(pSid) + kSidHeaderSize + i * sizeof(DWORD),
                sizeof(dw));
    return dw;
}

bool ParseNumber(std::u16string_view& text, int base, ULONGLONG max, ULONGLONG* pValue)
{
    ULONGLONG value = 0;
    size_t i = 0;
    for (; i < text.size() && text[i] != u'-'; ++i) {
        char16_t c = text[i];
        int digit = c >= u'0' && c <= u'9'   ? c - u'0'
                    : c >= u'a' && c <= u'f' ? c - u'a' + 10
                    : c >= u'A' && c <= u'F' ? c - u'A' + 10
                                             : 99;
        if (digit >= base || value > (max - static_cast<ULONGLONG>(digit)) / base)
            return false;
        value = value * base + static_cast<ULONGLONG>(digit);
    }
    if (i == 0)
        return false;
    text.remove_prefix(i);
    *pValue = value;
    return true;
}

} // namespace

BOOL WINAPI AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY pIdentifierAuthority,
                                     BYTE nSubAuthorityCount, DWORD nSubAuthority0,
                                     DWORD nSubAuthority1, DWORD nSubAuthority2,
                                     DWORD nSubAuthority3, DWORD nSubAuthority4,
                                     DWORD nSubAuthority5, DWORD nSubAuthority6,
                                     DWORD nSubAuthority7, PSID* pSid)
{
    if (pal::detail::FailIfInjected("AllocateAndInitializeSid"))
        return FALSE;
    if (!pIdentifierAuthority || !pSid) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (nSubAuthorityCount > kMaxAllocatedSubAuthorities) {
        SetLastError(ERROR_INVALID_SID);
        return FALSE;
    }
    size_t cb = kSidHeaderSize + nSubAuthorityCount * sizeof(DWORD);
    // Never smaller than the structure, so that a SID of no sub-authority is a whole SID too.
    auto* p = static_cast<BYTE*>(std::malloc(cb < sizeof(SID) ? sizeof(SID) : cb));
    if (!p) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    const DWORD rids[kMaxAllocatedSubAuthorities] = {nSubAuthority0, nSubAuthority1, nSubAuthority2,
                                                     nSubAuthority3, nSubAuthority4, nSubAuthority5,
                                                     nSubAuthority6, nSubAuthority7};
    p[0] = SID_REVISION;
    p[1] = nSubAuthorityCount;
    std::memcpy(p + offsetof(SID, IdentifierAuthority), pIdentifierAuthority->Value, 6);
    std::memcpy(p + kSidHeaderSize, rids, nSubAuthorityCount * sizeof(DWORD));
    *pSid = p;
    return TRUE;
}

PVOID WINAPI FreeSid(PSID pSid)
{
    std::free(pSid);
    return nullptr;
}

BOOL WINAPI IsValidSid(PSID pSid)
{
    return pSid && AsSid(pSid)->Revision == SID_REVISION &&
                   AsSid(pSid)->SubAuthorityCount <= SID_MAX_SUB_AUTHORITIES
               ? TRUE
               : FALSE;
}

BOOL WINAPI EqualSid(PSID pSid1, PSID pSid2)
{
    BOOL fEqual = IsValidSid(pSid1) && IsValidSid(pSid2) &&
                  GetLengthSid(pSid1) == GetLengthSid(pSid2) &&
                  std::memcmp(pSid1, pSid2, GetLengthSid(pSid1)) == 0;
    SetLastError(ERROR_SUCCESS);
    return fEqual;
}

DWORD WINAPI GetLengthSid(PSID pSid)
{
    return static_cast<DWORD>(kSidHeaderSize + AsSid(pSid)->SubAuthorityCount * sizeof(DWORD));
}

namespace pal::detail {

std::u16string SidToText(const void* pSid)
{
    if (!IsValidSid(const_cast<void*>(pSid)))
        return {};
    const SID* p = AsSid(pSid);
    const BYTE* v = p->IdentifierAuthority.Value;
    std::string text = "S-" + std::to_string(p->Revision) + "-";
    if (v[0] == 0 && v[1] == 0) {
        text += std::to_string((DWORD(v[2]) << 24) | (DWORD(v[3]) << 16) | (DWORD(v[4]) << 8) |
                               DWORD(v[5]));
    } else {
        static const char kHex[] = "0123456789ABCDEF";
        text += "0x";
        for (int i = 0; i < 6; ++i) {
            text += kHex[v[i] >> 4];
            text += kHex[v[i] & 0xF];
        }
    }
    for (size_t i = 0; i < p->SubAuthorityCount; ++i)
        text += "-" + std::to_string(SubAuthority(p, i));
    return ToUtf16(text);
}

bool SidFromText(std::u16string_view text, std::vector<BYTE>* pBytes)
{
    if (text.size() < 4 || (text[0] != u'S' && text[0] != u's') || text.substr(1, 3) != u"-1-")
        return false;
    text.remove_prefix(4);
    ULONGLONG authority = 0;
    bool fHex = text.size() > 2 && text[0] == u'0' && (text[1] == u'x' || text[1] == u'X');
    if (fHex)
        text.remove_prefix(2);
    if (!ParseNumber(text, fHex ? 16 : 10, fHex ? 0xFFFFFFFFFFFFull : 0xFFFFFFFFull, &authority))
        return false;
    std::vector<BYTE> bytes(kSidHeaderSize);
    bytes[0] = SID_REVISION;
    for (int i = 0; i < 6; ++i)
        bytes[2 + i] = static_cast<BYTE>(authority >> (8 * (5 - i)));
    while (!text.empty()) {
        ULONGLONG rid = 0;
        text.remove_prefix(1); // the '-' that ParseNumber stopped at
        if (bytes[1] == SID_MAX_SUB_AUTHORITIES || !ParseNumber(text, 10, 0xFFFFFFFFull, &rid))
            return false;
        DWORD dw = static_cast<DWORD>(rid);
        const BYTE* pb = reinterpret_cast<const BYTE*>(&dw);
        bytes.insert(bytes.end(), pb, pb + sizeof(dw));
        ++bytes[1];
    }
    *pBytes = std::move(bytes);
    return true;
}

} // namespace pal::detail
