// Security identifiers (SIDs): their published layout, the well-known authorities and relative
// identifiers, and the functions that allocate, compare and measure them.
//
// A SID is variable-length: a revision, the count of sub-authorities, a 48-bit identifier
// authority and that many 32-bit sub-authorities, the last of which is usually the relative
// identifier (RID) of an account or group. S-1-5-32-544 (BUILTIN\Administrators) is revision 1,
// authority 5 (SECURITY_NT_AUTHORITY), sub-authorities 32 and 544.
#pragma once

#include "pal/windef.h"

#include <cstddef>

struct SID_IDENTIFIER_AUTHORITY
{
    BYTE Value[6]; // big-endian: Value[5] is the low byte
};
using PSID_IDENTIFIER_AUTHORITY = SID_IDENTIFIER_AUTHORITY*;
static_assert(sizeof(SID_IDENTIFIER_AUTHORITY) == 6);

struct SID
{
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[ANYSIZE_ARRAY]; // SubAuthorityCount of them
};
using PISID = SID*;
// SIDs are passed around untyped, as the functions below take them.
using PSID = PVOID;
static_assert(sizeof(SID) == 12);
static_assert(offsetof(SID, SubAuthorityCount) == 1);
static_assert(offsetof(SID, IdentifierAuthority) == 2);
static_assert(offsetof(SID, SubAuthority) == 8);

#define SID_REVISION 1
#define SID_MAX_SUB_AUTHORITIES 15
#define SID_RECOMMENDED_SUB_AUTHORITIES 1
#define SECURITY_MAX_SID_SIZE                                                                      \
    (sizeof(SID) - sizeof(DWORD) + SID_MAX_SUB_AUTHORITIES * sizeof(DWORD))

// Identifier authorities, as initialisers of SID_IDENTIFIER_AUTHORITY.
#define SECURITY_NULL_SID_AUTHORITY                                                                \
    {                                                                                              \
        0, 0, 0, 0, 0, 0                                                                           \
    }
#define SECURITY_WORLD_SID_AUTHORITY                                                               \
    {                                                                                              \
        0, 0, 0, 0, 0, 1                                                                           \
    }
#define SECURITY_LOCAL_SID_AUTHORITY                                                               \
    {                                                                                              \
        0, 0, 0, 0, 0, 2                                                                           \
    }
#define SECURITY_CREATOR_SID_AUTHORITY                                                             \
    {                                                                                              \
        0, 0, 0, 0, 0, 3                                                                           \
    }
#define SECURITY_NT_AUTHORITY                                                                      \
    {                                                                                              \
        0, 0, 0, 0, 0, 5                                                                           \
    }

// Relative identifiers.
#define SECURITY_NULL_RID 0x00000000L
#define SECURITY_WORLD_RID 0x00000000L // S-1-1-0, Everyone
#define SECURITY_LOCAL_RID 0x00000000L
#define SECURITY_INTERACTIVE_RID 0x00000004L
#define SECURITY_SERVICE_RID 0x00000006L
#define SECURITY_AUTHENTICATED_USER_RID 0x0000000BL
#define SECURITY_LOCAL_SYSTEM_RID 0x00000012L // S-1-5-18, LocalSystem
#define SECURITY_LOCAL_SERVICE_RID 0x00000013L
#define SECURITY_NETWORK_SERVICE_RID 0x00000014L
#define SECURITY_NT_NON_UNIQUE 0x00000015L      // S-1-5-21-..., a machine's or domain's accounts
#define SECURITY_BUILTIN_DOMAIN_RID 0x00000020L // S-1-5-32-..., the built-in groups
#define DOMAIN_USER_RID_ADMIN 0x000001F4L
#define DOMAIN_USER_RID_GUEST 0x000001F5L
#define DOMAIN_ALIAS_RID_ADMINS 0x00000220L // S-1-5-32-544
#define DOMAIN_ALIAS_RID_USERS 0x00000221L  // S-1-5-32-545
#define DOMAIN_ALIAS_RID_GUESTS 0x00000222L

// A new SID of nSubAuthorityCount sub-authorities (the first that many of nSubAuthority0..7),
// allocated from the process heap; the caller frees it with FreeSid. Fails with
// ERROR_INVALID_SID for more than 8 sub-authorities and with ERROR_INVALID_PARAMETER for a null
// authority or output pointer, leaving *pSid untouched; ERROR_NOT_ENOUGH_MEMORY when the heap
// is exhausted. Obeys pal::InjectFault("AllocateAndInitializeSid", ...).
BOOL WINAPI AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY pIdentifierAuthority,
                                     BYTE nSubAuthorityCount, DWORD nSubAuthority0,
                                     DWORD nSubAuthority1, DWORD nSubAuthority2,
                                     DWORD nSubAuthority3, DWORD nSubAuthority4,
                                     DWORD nSubAuthority5, DWORD nSubAuthority6,
                                     DWORD nSubAuthority7, PSID* pSid);
// Frees a SID of AllocateAndInitializeSid (null is accepted); returns NULL.
PVOID WINAPI FreeSid(PSID pSid);
// Revision 1 and at most SID_MAX_SUB_AUTHORITIES sub-authorities; FALSE for null. No last error.
BOOL WINAPI IsValidSid(PSID pSid);
// Same revision, authority and sub-authorities. The last error is ERROR_SUCCESS afterwards, so
// that FALSE reads as "different"; the result is undefined for an invalid SID, as on Windows.
BOOL WINAPI EqualSid(PSID pSid1, PSID pSid2);
// The bytes of a valid SID: 8 and 4 per sub-authority.
DWORD WINAPI GetLengthSid(PSID pSid);
