// Security identifiers: the bytes AllocateAndInitializeSid lays out, their comparison and
// length, and the limit of eight sub-authorities.
#include "pal/securitybaseapi.h"
#include "tests/support/conformance.h"

#include <cstring>
#include <vector>

namespace {

using SidTest = orvtest::ConformanceTest;

struct SidRow
{
    SID_IDENTIFIER_AUTHORITY authority;
    BYTE cSubAuthorities;
    DWORD rids[8];
};

TEST_F(SidTest, AllocatedSidHasThePublishedLayoutAndLength)
{
    const SidRow rows[] = {
        {SECURITY_NT_AUTHORITY, 1, {SECURITY_LOCAL_SYSTEM_RID}},
        {SECURITY_NT_AUTHORITY, 2, {SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS}},
        {SECURITY_WORLD_SID_AUTHORITY, 1, {SECURITY_WORLD_RID}},
        {{1, 2, 3, 4, 5, 6}, 8, {1, 2, 3, 4, 5, 6, 7, 0xFFFFFFFF}},
    };
    for (const SidRow& row : rows) {
        SCOPED_TRACE(row.cSubAuthorities);
        SidRow given = row;
        PSID pSid = nullptr;
        const DWORD* r = row.rids;
        ASSERT_TRUE(AllocateAndInitializeSid(&given.authority, row.cSubAuthorities, r[0], r[1],
                                             r[2], r[3], r[4], r[5], r[6], r[7], &pSid));
        // Revision, count, the big-endian authority, then the sub-authorities.
        std::vector<BYTE> expected{SID_REVISION, row.cSubAuthorities};
        expected.insert(expected.end(), row.authority.Value, row.authority.Value + 6);
        for (BYTE i = 0; i < row.cSubAuthorities; ++i)
            for (int shift = 0; shift < 32; shift += 8)
                expected.push_back(static_cast<BYTE>(row.rids[i] >> shift));
        ASSERT_EQ(expected.size(), GetLengthSid(pSid));
        EXPECT_EQ(0, std::memcmp(expected.data(), pSid, expected.size()));
        EXPECT_TRUE(IsValidSid(pSid));
        EXPECT_EQ(nullptr, FreeSid(pSid));
    }
}

TEST_F(SidTest, EqualSidComparesEverySubAuthorityAndClearsTheLastError)
{
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    PSID pAdmins = nullptr, pAdmins2 = nullptr, pUsers = nullptr, pSystem = nullptr;
    ASSERT_TRUE(AllocateAndInitializeSid(&nt, 2, 32, 544, 0, 0, 0, 0, 0, 0, &pAdmins));
    // The unused sub-authority arguments are not part of the SID.
    ASSERT_TRUE(AllocateAndInitializeSid(&nt, 2, 32, 544, 7, 7, 7, 7, 7, 7, &pAdmins2));
    ASSERT_TRUE(AllocateAndInitializeSid(&nt, 2, 32, 545, 0, 0, 0, 0, 0, 0, &pUsers));
    ASSERT_TRUE(AllocateAndInitializeSid(&nt, 1, 32, 0, 0, 0, 0, 0, 0, 0, &pSystem));
    EXPECT_CALL_ERROR(TRUE, ERROR_SUCCESS, EqualSid(pAdmins, pAdmins2));
    EXPECT_CALL_ERROR(FALSE, ERROR_SUCCESS, EqualSid(pAdmins, pUsers));
    EXPECT_CALL_ERROR(FALSE, ERROR_SUCCESS, EqualSid(pAdmins, pSystem));
    for (PSID p : {pAdmins, pAdmins2, pUsers, pSystem})
        FreeSid(p);
}

TEST_F(SidTest, MoreThanEightSubAuthoritiesAndBadHeadersAreRefused)
{
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    PSID pSid = &nt;
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_SID,
                      AllocateAndInitializeSid(&nt, 9, 1, 2, 3, 4, 5, 6, 7, 8, &pSid));
    EXPECT_EQ(static_cast<PSID>(&nt), pSid);

    alignas(DWORD) BYTE sid[8 + 4 * 16] = {SID_REVISION, SID_MAX_SUB_AUTHORITIES, 0, 0, 0, 0, 0, 5};
    EXPECT_TRUE(IsValidSid(sid));
    sid[1] = SID_MAX_SUB_AUTHORITIES + 1;
    EXPECT_FALSE(IsValidSid(sid));
    sid[1] = 1;
    sid[0] = 2;
    EXPECT_FALSE(IsValidSid(sid));
}

} // namespace
