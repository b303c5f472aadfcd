// COM security: the runtime's access control object judging the machine's accounts,
// CoInitializeSecurity keeping it, and the SIDs a server builds its list with. Linux only: Wine has
// no CLSID_DCOMAccessControl, and the Windows conformance cases share one process, where
// CoInitializeSecurity succeeds once.
#include "pal/atlbase.h"
#include "pal/iaccess.h"
#include "pal/securitybaseapi.h"
#include "tests/support/paltest.h"

#include <functional>
#include <vector>

namespace {

// An account of the emulated machine: its name, its SID's sub-authorities, and whether the
// service's list below admits it.
struct AccountRow
{
    const WCHAR* pszName;
    BYTE cSub;
    DWORD rids[5];
    BOOL fAdmitted;
};
#define ORVSIM_DOMAIN 21, 2735118460u, 1847362950u, 1650743821u
const AccountRow kSystem{u"LocalSystem", 1, {SECURITY_LOCAL_SYSTEM_RID}, TRUE};
const AccountRow kAdmin{u".\\Administrator", 5, {ORVSIM_DOMAIN, 500}, TRUE}; // by its group
const AccountRow kUser{u"ORVSIM\\User", 5, {ORVSIM_DOMAIN, 1001}, FALSE};

PSID NtSid(BYTE cSub, const DWORD (&r)[5])
{
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    PSID pSid = nullptr;
    EXPECT_TRUE(AllocateAndInitializeSid(&nt, cSub, r[0], r[1], r[2], r[3], r[4], 0, 0, 0, &pSid));
    return pSid;
}

TRUSTEE_W Trustee(const void* p, TRUSTEE_FORM form, TRUSTEE_TYPE type = TRUSTEE_IS_USER)
{
    return {nullptr, NO_MULTIPLE_TRUSTEE, form, type, static_cast<LPWSTR>(const_cast<void*>(p))};
}

ACTRL_ACCESS_ENTRYW Entry(TRUSTEE_W trustee, ULONG flags = ACTRL_ACCESS_ALLOWED)
{
    return {trustee, flags, COM_RIGHTS_EXECUTE, 0, NO_INHERITANCE, nullptr};
}

// An access list, as a service builds one on its stack.
struct CList
{
    explicit CList(std::initializer_list<ACTRL_ACCESS_ENTRYW> given) : entries(given) {}
    CList(const CList&) = delete; // the structures point into the object
    std::vector<ACTRL_ACCESS_ENTRYW> entries;
    ACTRL_ACCESS_ENTRY_LISTW list{static_cast<ULONG>(entries.size()), entries.data()};
    ACTRL_PROPERTY_ENTRYW prop{nullptr, &list, 0};
    ACTRL_ACCESSW access{1, &prop};
};

class ComSecurityTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_HR(S_OK, m_pAC.CoCreateInstance(CLSID_DCOMAccessControl));
        // The service's list: LocalSystem (a user) and Administrators (a group) may call.
        m_pSystem = NtSid(1, {SECURITY_LOCAL_SYSTEM_RID});
        m_pAdmins = NtSid(2, {SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS});
        CList service{Entry(Trustee(m_pSystem, TRUSTEE_IS_SID)),
                      Entry(Trustee(m_pAdmins, TRUSTEE_IS_SID, TRUSTEE_IS_GROUP))};
        ASSERT_HR(S_OK, m_pAC->SetAccessRights(&service.access));
    }
    void TearDown() override
    {
        m_pAC.Release();
        CoTaskMemFree(m_pList);
        FreeSid(m_pSystem);
        FreeSid(m_pAdmins);
        CoUninitialize();
        orvtest::PalTest::TearDown();
    }
    // The object's answer for an account asked by SID, checked against its answer by name.
    BOOL Allowed(const AccountRow& row)
    {
        PSID pSid = NtSid(row.cSub, row.rids);
        TRUSTEE_W bySid = Trustee(pSid, TRUSTEE_IS_SID),
                  byName = Trustee(row.pszName, TRUSTEE_IS_NAME);
        BOOL fBySid = 2, fByName = 2;
        EXPECT_HR(S_OK, m_pAC->IsAccessAllowed(&bySid, nullptr, COM_RIGHTS_EXECUTE, &fBySid));
        EXPECT_HR(S_OK, m_pAC->IsAccessAllowed(&byName, nullptr, 0, &fByName));
        EXPECT_EQ(fBySid, fByName) << orvtest::Narrow(row.pszName);
        FreeSid(pSid);
        return fBySid;
    }
    // The entries GetAllAccessRights returns, in a block kept until the next call.
    const ACTRL_ACCESS_ENTRY_LISTW& Entries()
    {
        CoTaskMemFree(m_pList);
        m_pList = nullptr;
        EXPECT_HR(S_OK, m_pAC->GetAllAccessRights(nullptr, &m_pList, nullptr, nullptr));
        return *m_pList->pPropertyAccessList->pAccessEntryList;
    }

    CComPtr<IAccessControl> m_pAC;
    PSID m_pSystem = nullptr, m_pAdmins = nullptr;
    PACTRL_ACCESSW m_pList = nullptr;
};

TEST_F(ComSecurityTest, ServiceListAdmitsLocalSystemAndAdministratorsAndIsKeptByTheProcess)
{
    for (const AccountRow* pRow : {&kSystem, &kAdmin, &kUser})
        EXPECT_EQ(pRow->fAdmitted, Allowed(*pRow)) << orvtest::Narrow(pRow->pszName);
    ASSERT_HR(S_OK, CoInitializeSecurity(m_pAC, -1, nullptr, nullptr,
                                         RPC_C_AUTHN_LEVEL_PKT_INTEGRITY, RPC_C_IMP_LEVEL_IDENTIFY,
                                         nullptr, EOAC_ACCESS_CONTROL, nullptr));
    m_pAC.Release(); // the process keeps its own reference
    EXPECT_HR(RPC_E_TOO_LATE, CoInitializeSecurity(nullptr, -1, nullptr, nullptr, 1, 1, nullptr,
                                                   EOAC_NONE, nullptr));
    pal::ComSecurityState kept = pal::GetComSecurityState();
    EXPECT_TRUE(kept.fInitialized && kept.fAccessControl);
    EXPECT_EQ((std::vector<DWORD>{RPC_C_AUTHN_LEVEL_PKT_INTEGRITY, RPC_C_IMP_LEVEL_IDENTIFY,
                                  EOAC_ACCESS_CONTROL}),
              (std::vector<DWORD>{kept.dwAuthnLevel, kept.dwImpLevel, kept.dwCapabilities}));
    for (const AccountRow* pRow : {&kSystem, &kAdmin, &kUser}) {
        BOOL f = 2;
        EXPECT_HR(S_OK, pal::ComSecurityAllowsAccount(pRow->pszName, &f));
        EXPECT_EQ(pRow->fAdmitted, f) << orvtest::Narrow(pRow->pszName);
    }
    // Served in process only.
    void* pv = &pv;
    EXPECT_HR(REGDB_E_CLASSNOTREG, CoCreateInstance(CLSID_DCOMAccessControl, nullptr,
                                                    CLSCTX_LOCAL_SERVER, IID_IAccessControl, &pv));
    EXPECT_EQ(nullptr, pv);
}

TEST_F(ComSecurityTest, DeniedEntriesComeFirstAndRefuseMembersOfAllowedGroups)
{
    CList grant{Entry(Trustee(u"User", TRUSTEE_IS_NAME)),
                Entry(Trustee(u"Administrator", TRUSTEE_IS_NAME), ACTRL_ACCESS_DENIED)};
    ASSERT_HR(S_OK, m_pAC->GrantAccessRights(&grant.access));
    EXPECT_EQ(TRUE, Allowed(kSystem));
    EXPECT_EQ(FALSE, Allowed(kAdmin));
    EXPECT_EQ(TRUE, Allowed(kUser));
    // New denied, old denied, new allowed, old allowed; trustees in the form they were given in.
    const ACTRL_ACCESS_ENTRY_LISTW& got = Entries();
    ASSERT_EQ(4u, got.cEntries);
    EXPECT_EQ(ULONG(ACTRL_ACCESS_DENIED), got.pAccessList[0].fAccessFlags);
    EXPECT_EQ(u"Administrator", orvtest::WString(got.pAccessList[0].Trustee.ptstrName));
    EXPECT_EQ(u"User", orvtest::WString(got.pAccessList[1].Trustee.ptstrName));
    EXPECT_TRUE(EqualSid(got.pAccessList[2].Trustee.ptstrName, m_pSystem));
    EXPECT_EQ(TRUSTEE_IS_GROUP, got.pAccessList[3].Trustee.TrusteeType);
    EXPECT_EQ(ULONG(ACTRL_ACCESS_ALLOWED), got.pAccessList[3].fAccessFlags);

    // The entry given by name goes when its account is revoked by SID.
    PSID pAdministrator = NtSid(kAdmin.cSub, kAdmin.rids);
    TRUSTEE_W revoke = Trustee(pAdministrator, TRUSTEE_IS_SID);
    EXPECT_HR(S_OK, m_pAC->RevokeAccessRights(nullptr, 1, &revoke));
    FreeSid(pAdministrator);
    EXPECT_EQ(TRUE, Allowed(kAdmin));
    EXPECT_EQ(3u, Entries().cEntries);
}

TEST_F(ComSecurityTest, RefusedListsAndQuestionsChangeNothing)
{
    const std::pair<std::function<void(CList&)>, HRESULT> rows[] = {
        {[](CList& l) { l.access.cEntries = 2; }, E_INVALIDARG},
        {[](CList& l) { l.prop.lpProperty = l.entries[0].Trustee.ptstrName; }, E_INVALIDARG},
        {[](CList& l) { l.entries[1].fAccessFlags = ACTRL_AUDIT_SUCCESS; }, E_INVALIDARG},
        {[](CList& l) { l.entries[1].Access = COM_RIGHTS_EXECUTE_LOCAL; }, E_INVALIDARG},
        {[](CList& l) { l.entries[1].Inheritance = 1; }, E_INVALIDARG},
        {[](CList& l) { l.entries[1].Trustee.ptstrName = const_cast<WCHAR*>(u"ORVSIM\\Nobody"); },
         HRESULT_FROM_WIN32(ERROR_NONE_MAPPED)},
    };
    for (const auto& [spoil, hr] : rows) {
        CList spoilt{Entry(Trustee(u"User", TRUSTEE_IS_NAME)),
                     Entry(Trustee(u"Users", TRUSTEE_IS_NAME))};
        spoil(spoilt);
        EXPECT_HR(hr, m_pAC->SetAccessRights(&spoilt.access));
        EXPECT_HR(hr, m_pAC->GrantAccessRights(&spoilt.access));
        EXPECT_EQ(2u, Entries().cEntries);
    }
    EXPECT_HR(E_INVALIDARG, m_pAC->SetAccessRights(nullptr));
    TRUSTEE_W user = Trustee(u"User", TRUSTEE_IS_NAME);
    BOOL f = 2;
    EXPECT_HR(E_INVALIDARG, m_pAC->IsAccessAllowed(&user, user.ptstrName, 1, &f));
    EXPECT_EQ(FALSE, f);
    EXPECT_HR(E_INVALIDARG, m_pAC->IsAccessAllowed(&user, nullptr, COM_RIGHTS_EXECUTE_LOCAL, &f));
    EXPECT_HR(E_INVALIDARG, m_pAC->RevokeAccessRights(nullptr, 0, &user));
    EXPECT_HR(E_NOTIMPL, m_pAC->SetOwner(&user, nullptr));
    CoTaskMemFree(m_pList);
    m_pList = reinterpret_cast<PACTRL_ACCESSW>(&f);
    pal::FailTaskAllocAt(1, true);
    EXPECT_HR(E_OUTOFMEMORY, m_pAC->GetAllAccessRights(nullptr, &m_pList, nullptr, nullptr));
    EXPECT_EQ(nullptr, m_pList);
}

TEST_F(ComSecurityTest, RefusedCoInitializeSecurityKeepsNothing)
{
    SOLE_AUTHENTICATION_SERVICE svc{10, 0, nullptr, E_FAIL};
    BYTE descriptor[20] = {};
    const DWORD kPkt = RPC_C_AUTHN_LEVEL_PKT, kId = RPC_C_IMP_LEVEL_IDENTIFY,
                kAC = EOAC_ACCESS_CONTROL;
    auto call = [](void* pSecDesc, LONG cAuthSvc, SOLE_AUTHENTICATION_SERVICE* asAuthSvc,
                   void* pReserved1, DWORD dwAuthn, DWORD dwImp, DWORD dwCaps) {
        return CoInitializeSecurity(pSecDesc, cAuthSvc, asAuthSvc, pReserved1, dwAuthn, dwImp,
                                    nullptr, dwCaps, nullptr);
    };
    // Each refusal leaves the call to be made: a kept one would make the next RPC_E_TOO_LATE.
    EXPECT_HR(E_INVALIDARG, call(nullptr, -1, nullptr, &svc, kPkt, kId, 0));
    EXPECT_HR(E_INVALIDARG, call(nullptr, -1, &svc, nullptr, kPkt, kId, 0));
    EXPECT_HR(E_INVALIDARG, call(nullptr, -1, nullptr, nullptr, kPkt, RPC_C_IMP_LEVEL_DEFAULT, 0));
    EXPECT_HR(E_INVALIDARG, call(nullptr, -1, nullptr, nullptr, kPkt, kId, kAC));
    EXPECT_HR(E_INVALIDARG, call(m_pAC, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE, kId, kAC));
    EXPECT_HR(E_INVALIDARG, call(m_pAC, -1, nullptr, nullptr, kPkt, kId, kAC | EOAC_APPID));
    EXPECT_HR(E_NOTIMPL, call(nullptr, -1, nullptr, nullptr, kPkt, kId, EOAC_APPID));
    EXPECT_HR(E_NOTIMPL, call(descriptor, -1, nullptr, nullptr, kPkt, kId, 0));
    pal::InjectFault("CoInitializeSecurity", DWORD(E_OUTOFMEMORY), 1);
    EXPECT_HR(E_OUTOFMEMORY, call(nullptr, -1, nullptr, nullptr, kPkt, kId, 0));
    CoUninitialize();
    EXPECT_HR(CO_E_NOTINITIALIZED, call(nullptr, -1, nullptr, nullptr, kPkt, kId, 0));
    ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    EXPECT_FALSE(pal::GetComSecurityState().fInitialized);

    // Without an access control object every caller is admitted.
    ASSERT_HR(S_OK, call(nullptr, 1, &svc, nullptr, kPkt, kId, 0));
    EXPECT_HR(S_OK, svc.hr);
    EXPECT_FALSE(pal::GetComSecurityState().fAccessControl);
    BOOL f = FALSE;
    EXPECT_HR(S_OK, pal::ComSecurityAllowsAccount(u"User", &f));
    EXPECT_EQ(TRUE, f);
    EXPECT_HR(E_INVALIDARG, pal::ComSecurityAllowsAccount(u"Nobody", &f));
}

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
