// SID allocation failures that only the pal's fault hook or its own argument check produce.
#include "pal/securitybaseapi.h"
#include "tests/support/paltest.h"

namespace {

using SidPal = orvtest::PalTest;

TEST_F(SidPal, AllocationFailureReachesTheCallerAsItsHresult)
{
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    PSID pSid = &nt;
    pal::InjectFault("AllocateAndInitializeSid", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_FALSE(AllocateAndInitializeSid(&nt, 1, 18, 0, 0, 0, 0, 0, 0, 0, &pSid));
    EXPECT_HR(HRESULT(0x80070008), HRESULT_FROM_WIN32(GetLastError()));
    EXPECT_EQ(static_cast<PSID>(&nt), pSid);
    // Windows documents no answer for a null output pointer; the pal refuses it.
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_PARAMETER,
                      AllocateAndInitializeSid(&nt, 1, 18, 0, 0, 0, 0, 0, 0, 0, nullptr));
}

} // namespace
