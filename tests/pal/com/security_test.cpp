// COM security on Linux: the runtime's access control object judging the machine's accounts, and
// CoInitializeSecurity keeping it. Linux only: Wine has no CLSID_DCOMAccessControl, and the
// Windows conformance cases share one process, where CoInitializeSecurity succeeds once.
#include "pal/iaccess.h"
#include "pal/objbase.h"
#include "pal/securitybaseapi.h"
#include "tests/support/paltest.h"

#include "pal/atlbase.h"

#include <functional>
#include <string>

namespace {

// An account of the emulated machine, by name and by the sub-authorities of its SID.
struct AccountRow
{
    const WCHAR* pszName;
    BYTE cSub;
    DWORD rids[5];
    BOOL fServiceListAllows;
};
#define ORVSIM_DOMAIN 21, 2735118460u, 1847362950u, 1650743821u
const AccountRow kAccounts[] = {
    {u"LocalSystem", 1, {SECURITY_LOCAL_SYSTEM_RID}, TRUE},
    {u".\\Administrator", 5, {ORVSIM_DOMAIN, DOMAIN_USER_RID_ADMIN}, TRUE}, // by its group
    {u"ORVSIM\\User", 5, {ORVSIM_DOMAIN, 1001}, FALSE},
};

PSID NtSid(BYTE cSub, const DWORD (&r)[5])
{
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    PSID pSid = nullptr;
    EXPECT_TRUE(AllocateAndInitializeSid(&nt, cSub, r[0], r[1], r[2], r[3], r[4], 0, 0, 0, &pSid));
    return pSid;
}

TRUSTEE_W Trustee(const void* p, TRUSTEE_FORM form)
{
    return {nullptr, NO_MULTIPLE_TRUSTEE, form, TRUSTEE_IS_USER,
            static_cast<LPWSTR>(const_cast<void*>(p))};
}

ACTRL_ACCESS_ENTRYW Entry(const void* p, TRUSTEE_FORM form, ULONG flags = ACTRL_ACCESS_ALLOWED)
{
    return {Trustee(p, form), flags, COM_RIGHTS_EXECUTE, 0, NO_INHERITANCE, nullptr};
}

// An access list of entries, as a service builds one on its stack.
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
        m_pSystem = NtSid(1, {SECURITY_LOCAL_SYSTEM_RID});
        m_pAdmins = NtSid(2, {SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS});
    }
    void TearDown() override
    {
        m_pAC.Release();
        FreeSid(m_pSystem);
        FreeSid(m_pAdmins);
        CoUninitialize();
        orvtest::PalTest::TearDown();
    }
    // The service's list: LocalSystem (a user) and Administrators (a group) may call.
    CList ServiceList() const
    {
        ACTRL_ACCESS_ENTRYW admins = Entry(m_pAdmins, TRUSTEE_IS_SID);
        admins.Trustee.TrusteeType = TRUSTEE_IS_GROUP;
        return CList{Entry(m_pSystem, TRUSTEE_IS_SID), admins};
    }
    // The object's answer for an account, asked by SID and by name, which must agree.
    BOOL Allowed(const AccountRow& row)
    {
        PSID pSid = NtSid(row.cSub, row.rids);
        TRUSTEE_W bySid = Trustee(pSid, TRUSTEE_IS_SID);
        TRUSTEE_W byName = Trustee(row.pszName, TRUSTEE_IS_NAME);
        BOOL fBySid = 2, fByName = 2;
        EXPECT_HR(S_OK, m_pAC->IsAccessAllowed(&bySid, nullptr, COM_RIGHTS_EXECUTE, &fBySid));
        EXPECT_HR(S_OK, m_pAC->IsAccessAllowed(&byName, nullptr, 0, &fByName));
        FreeSid(pSid);
        EXPECT_EQ(fBySid, fByName) << orvtest::Narrow(row.pszName);
        return fBySid;
    }
    ULONG EntryCount()
    {
        PACTRL_ACCESSW pList = nullptr;
        EXPECT_HR(S_OK, m_pAC->GetAllAccessRights(nullptr, &pList, nullptr, nullptr));
        ULONG c = pList ? pList->pPropertyAccessList->pAccessEntryList->cEntries : 99;
        CoTaskMemFree(pList);
        return c;
    }

    CComPtr<IAccessControl> m_pAC;
    PSID m_pSystem = nullptr;
    PSID m_pAdmins = nullptr;
};

TEST_F(ComSecurityTest, ServiceListAdmitsLocalSystemAndAdministratorsAndIsKeptByTheProcess)
{
    CList service = ServiceList();
    ASSERT_HR(S_OK, m_pAC->SetAccessRights(&service.access));
    for (const AccountRow& row : kAccounts)
        EXPECT_EQ(row.fServiceListAllows, Allowed(row)) << orvtest::Narrow(row.pszName);

    ASSERT_HR(S_OK, CoInitializeSecurity(m_pAC, -1, nullptr, nullptr,
                                         RPC_C_AUTHN_LEVEL_PKT_INTEGRITY, RPC_C_IMP_LEVEL_IDENTIFY,
                                         nullptr, EOAC_ACCESS_CONTROL, nullptr));
    m_pAC.Release(); // the process keeps its own reference
    EXPECT_HR(RPC_E_TOO_LATE,
              CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE,
                                   RPC_C_IMP_LEVEL_ANONYMOUS, nullptr, 0, nullptr));
    pal::ComSecurityState state = pal::GetComSecurityState();
    EXPECT_TRUE(state.fInitialized && state.fAccessControl);
    EXPECT_EQ(DWORD(RPC_C_AUTHN_LEVEL_PKT_INTEGRITY), state.dwAuthnLevel);
    EXPECT_EQ(DWORD(RPC_C_IMP_LEVEL_IDENTIFY), state.dwImpLevel);
    EXPECT_EQ(DWORD(EOAC_ACCESS_CONTROL), state.dwCapabilities);
    for (const AccountRow& row : kAccounts) {
        BOOL f = 2;
        EXPECT_HR(S_OK, pal::ComSecurityAllowsAccount(row.pszName, &f));
        EXPECT_EQ(row.fServiceListAllows, f) << orvtest::Narrow(row.pszName);
    }

    // Served in process only, without aggregation.
    void* pv = reinterpret_cast<void*>(1);
    EXPECT_HR(REGDB_E_CLASSNOTREG, CoCreateInstance(CLSID_DCOMAccessControl, nullptr,
                                                    CLSCTX_LOCAL_SERVER, IID_IAccessControl, &pv));
    EXPECT_HR(CLASS_E_NOAGGREGATION,
              CoCreateInstance(CLSID_DCOMAccessControl, reinterpret_cast<IUnknown*>(&pv),
                               CLSCTX_INPROC_SERVER, IID_IAccessControl, &pv));
    EXPECT_EQ(nullptr, pv);
}

TEST_F(ComSecurityTest, DeniedEntriesComeFirstAndRefuseMembersOfAllowedGroups)
{
    CList service = ServiceList();
    ASSERT_HR(S_OK, m_pAC->SetAccessRights(&service.access));
    CList grant{Entry(u"User", TRUSTEE_IS_NAME),
                Entry(u"Administrator", TRUSTEE_IS_NAME, ACTRL_ACCESS_DENIED)};
    ASSERT_HR(S_OK, m_pAC->GrantAccessRights(&grant.access));
    EXPECT_EQ(TRUE, Allowed(kAccounts[0]));
    EXPECT_EQ(FALSE, Allowed(kAccounts[1]));
    EXPECT_EQ(TRUE, Allowed(kAccounts[2]));

    // New denied, old denied, new allowed, old allowed; trustees as they were given.
    PACTRL_ACCESSW pList = nullptr;
    PTRUSTEEW pOwner = &service.entries[0].Trustee, pGroup = pOwner;
    ASSERT_HR(S_OK, m_pAC->GetAllAccessRights(nullptr, &pList, &pOwner, &pGroup));
    EXPECT_TRUE(pOwner == nullptr && pGroup == nullptr);
    ASSERT_EQ(1u, pList->cEntries);
    const ACTRL_ACCESS_ENTRY_LISTW& got = *pList->pPropertyAccessList->pAccessEntryList;
    ASSERT_EQ(4u, got.cEntries);
    const ULONG flags[] = {ACTRL_ACCESS_DENIED, ACTRL_ACCESS_ALLOWED, ACTRL_ACCESS_ALLOWED,
                           ACTRL_ACCESS_ALLOWED};
    for (ULONG i = 0; i < 4; ++i)
        EXPECT_EQ(flags[i], got.pAccessList[i].fAccessFlags) << i;
    EXPECT_EQ(u"Administrator", orvtest::WString(got.pAccessList[0].Trustee.ptstrName));
    EXPECT_EQ(u"User", orvtest::WString(got.pAccessList[1].Trustee.ptstrName));
    EXPECT_TRUE(EqualSid(got.pAccessList[2].Trustee.ptstrName, m_pSystem));
    EXPECT_EQ(TRUSTEE_IS_GROUP, got.pAccessList[3].Trustee.TrusteeType);
    CoTaskMemFree(pList);

    // The entry given by name goes when its account is revoked by SID.
    PSID pAdministrator = NtSid(kAccounts[1].cSub, kAccounts[1].rids);
    TRUSTEE_W revoke = Trustee(pAdministrator, TRUSTEE_IS_SID);
    EXPECT_HR(S_OK, m_pAC->RevokeAccessRights(nullptr, 1, &revoke));
    FreeSid(pAdministrator);
    EXPECT_EQ(TRUE, Allowed(kAccounts[1]));
    EXPECT_EQ(3u, EntryCount());
}

TEST_F(ComSecurityTest, RefusedListsAndQuestionsChangeNothing)
{
    CList service = ServiceList();
    ASSERT_HR(S_OK, m_pAC->SetAccessRights(&service.access));
    struct Row
    {
        const char* what;
        std::function<void(CList&)> spoil;
        HRESULT hr;
    };
    const Row rows[] = {
        {"two properties", [](CList& l) { l.access.cEntries = 2; }, E_INVALIDARG},
        {"a named property", [](CList& l) { l.prop.lpProperty = l.entries[0].Trustee.ptstrName; },
         E_INVALIDARG},
        {"no entry list", [](CList& l) { l.prop.pAccessEntryList = nullptr; }, E_INVALIDARG},
        {"an audit entry", [](CList& l) { l.entries[1].fAccessFlags = ACTRL_AUDIT_SUCCESS; },
         E_INVALIDARG},
        {"a right but execute", [](CList& l) { l.entries[1].Access = COM_RIGHTS_EXECUTE_LOCAL; },
         E_INVALIDARG},
        {"inheritance", [](CList& l) { l.entries[1].Inheritance = 1; }, E_INVALIDARG},
        {"objects and SID",
         [](CList& l) { l.entries[1].Trustee.TrusteeForm = TRUSTEE_IS_OBJECTS_AND_SID; },
         E_INVALIDARG},
        {"no such account",
         [](CList& l) { l.entries[1] = Entry(u"ORVSIM\\Nobody", TRUSTEE_IS_NAME); },
         HRESULT_FROM_WIN32(ERROR_NONE_MAPPED)},
    };
    for (const Row& row : rows) {
        CList spoilt{Entry(u"User", TRUSTEE_IS_NAME), Entry(u"Users", TRUSTEE_IS_NAME)};
        row.spoil(spoilt);
        EXPECT_HR(row.hr, m_pAC->SetAccessRights(&spoilt.access)) << row.what;
        EXPECT_HR(row.hr, m_pAC->GrantAccessRights(&spoilt.access)) << row.what;
        EXPECT_EQ(2u, EntryCount()) << row.what;
    }
    EXPECT_HR(E_INVALIDARG, m_pAC->SetAccessRights(nullptr));

    TRUSTEE_W user = Trustee(u"User", TRUSTEE_IS_NAME);
    BOOL f = 2;
    EXPECT_HR(E_INVALIDARG, m_pAC->IsAccessAllowed(&user, user.ptstrName, 1, &f));
    EXPECT_EQ(FALSE, f);
    EXPECT_HR(E_INVALIDARG, m_pAC->IsAccessAllowed(&user, nullptr, COM_RIGHTS_EXECUTE_LOCAL, &f));
    EXPECT_HR(E_INVALIDARG, m_pAC->RevokeAccessRights(nullptr, 0, &user));
    EXPECT_HR(E_NOTIMPL, m_pAC->SetOwner(&user, nullptr));

    PACTRL_ACCESSW pList = reinterpret_cast<PACTRL_ACCESSW>(1);
    pal::FailTaskAllocAt(1, true);
    EXPECT_HR(E_OUTOFMEMORY, m_pAC->GetAllAccessRights(nullptr, &pList, nullptr, nullptr));
    EXPECT_EQ(nullptr, pList);
}

TEST_F(ComSecurityTest, RefusedCoInitializeSecurityKeepsNothing)
{
    SOLE_AUTHENTICATION_SERVICE svc{10, 0, nullptr, E_FAIL};
    BYTE descriptor[20] = {};
    struct Row
    {
        void* pSecDesc;
        LONG cAuthSvc;
        SOLE_AUTHENTICATION_SERVICE* asAuthSvc;
        void* pReserved1;
        DWORD dwAuthn, dwImp, dwCaps;
        HRESULT hr;
    };
    const DWORD kPkt = RPC_C_AUTHN_LEVEL_PKT, kId = RPC_C_IMP_LEVEL_IDENTIFY;
    const Row rows[] = {
        {nullptr, -1, nullptr, &svc, kPkt, kId, 0, E_INVALIDARG},
        {nullptr, -1, &svc, nullptr, kPkt, kId, 0, E_INVALIDARG},
        {nullptr, 1, nullptr, nullptr, kPkt, kId, 0, E_INVALIDARG},
        {nullptr, -1, nullptr, nullptr, 7, kId, 0, E_INVALIDARG},
        {nullptr, -1, nullptr, nullptr, kPkt, RPC_C_IMP_LEVEL_DEFAULT, 0, E_INVALIDARG},
        {nullptr, -1, nullptr, nullptr, kPkt, kId, EOAC_ACCESS_CONTROL, E_INVALIDARG},
        {m_pAC, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE, kId, EOAC_ACCESS_CONTROL,
         E_INVALIDARG},
        {m_pAC, -1, nullptr, nullptr, kPkt, kId, EOAC_ACCESS_CONTROL | EOAC_APPID, E_INVALIDARG},
        {nullptr, -1, nullptr, nullptr, kPkt, kId, EOAC_APPID, E_NOTIMPL},
        {descriptor, -1, nullptr, nullptr, kPkt, kId, 0, E_NOTIMPL},
    };
    for (const Row& r : rows) {
        EXPECT_HR(r.hr, CoInitializeSecurity(r.pSecDesc, r.cAuthSvc, r.asAuthSvc, r.pReserved1,
                                             r.dwAuthn, r.dwImp, nullptr, r.dwCaps, nullptr));
        EXPECT_FALSE(pal::GetComSecurityState().fInitialized);
    }
    pal::InjectFault("CoInitializeSecurity", DWORD(E_OUTOFMEMORY), 1);
    EXPECT_HR(E_OUTOFMEMORY,
              CoInitializeSecurity(nullptr, -1, nullptr, nullptr, kPkt, kId, nullptr, 0, nullptr));
    CoUninitialize();
    EXPECT_HR(CO_E_NOTINITIALIZED,
              CoInitializeSecurity(nullptr, -1, nullptr, nullptr, kPkt, kId, nullptr, 0, nullptr));
    ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    EXPECT_FALSE(pal::GetComSecurityState().fInitialized);

    // Without an access control object every caller is admitted.
    ASSERT_HR(S_OK, CoInitializeSecurity(nullptr, 1, &svc, nullptr, kPkt, kId, nullptr, EOAC_NONE,
                                         nullptr));
    EXPECT_HR(S_OK, svc.hr);
    EXPECT_FALSE(pal::GetComSecurityState().fAccessControl);
    BOOL f = FALSE;
    EXPECT_HR(S_OK, pal::ComSecurityAllowsAccount(u"User", &f));
    EXPECT_EQ(TRUE, f);
    EXPECT_HR(E_INVALIDARG, pal::ComSecurityAllowsAccount(u"Nobody", &f));
}

} // namespace
