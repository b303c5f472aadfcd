// IAccessControl as the SDK publishes it: its ids, and its methods in slot order (COM reaches a
// server's access control object through raw vtable slots).
#include "pal/iaccess.h"
#include "pal/objbase.h"
#include "tests/support/conformance.h"

#include <string>

namespace {

using AccessControlTest = orvtest::ConformanceTest;

// clang-format off
#define RECORD override { m_called = __func__; return S_OK; }
// Each method records its own name.
struct CRecorder : IAccessControl
{
    std::string m_called;
    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOTIMPL; }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GrantAccessRights(PACTRL_ACCESSW) RECORD;
    STDMETHODIMP SetAccessRights(PACTRL_ACCESSW) RECORD;
    STDMETHODIMP SetOwner(PTRUSTEEW, PTRUSTEEW) RECORD;
    STDMETHODIMP RevokeAccessRights(LPWSTR, ULONG, TRUSTEEW[]) RECORD;
    STDMETHODIMP GetAllAccessRights(LPWSTR, PACTRL_ACCESSW*, PTRUSTEEW*, PTRUSTEEW*) RECORD;
    STDMETHODIMP IsAccessAllowed(PTRUSTEEW, LPWSTR, ACCESS_RIGHTS, BOOL*) RECORD;
};
#undef RECORD
// clang-format on

// Calls vtable slot `slot` of p as a method taking `args` (all zero) and names what it reached.
template <class... A>
std::string Reach(CRecorder& r, size_t slot, A... args)
{
    using Fn = HRESULT(STDMETHODCALLTYPE*)(IAccessControl*, A...);
    IAccessControl* p = &r;
    reinterpret_cast<Fn>((*reinterpret_cast<void (***)()>(p))[slot])(p, args...);
    return r.m_called;
}

TEST_F(AccessControlTest, IdsAndSlotOrderAreThePublishedOnes)
{
    WCHAR sz[39];
    ASSERT_EQ(39, StringFromGUID2(__uuidof(IAccessControl), sz, 39));
    EXPECT_EQ("{EEDD23E0-8410-11CE-A1C3-08002B2B8D8F}", orvtest::Narrow(sz));
    ASSERT_EQ(39, StringFromGUID2(CLSID_DCOMAccessControl, sz, 39));
    EXPECT_EQ("{0000031D-0000-0000-C000-000000000046}", orvtest::Narrow(sz));
    static_assert(COM_RIGHTS_EXECUTE == 1 && ACTRL_ACCESS_ALLOWED == 1 && ACTRL_ACCESS_DENIED == 2);

    CRecorder r;
    PACTRL_ACCESSW list = nullptr;
    PTRUSTEEW trustee = nullptr;
    LPWSTR name = nullptr;
    EXPECT_EQ("GrantAccessRights", Reach(r, 3, list));
    EXPECT_EQ("SetAccessRights", Reach(r, 4, list));
    EXPECT_EQ("SetOwner", Reach(r, 5, trustee, trustee));
    EXPECT_EQ("RevokeAccessRights", Reach(r, 6, name, ULONG(0), trustee));
    EXPECT_EQ("GetAllAccessRights", Reach(r, 7, name, &list, &trustee, &trustee));
    EXPECT_EQ("IsAccessAllowed",
              Reach(r, 8, trustee, name, ACCESS_RIGHTS(0), static_cast<BOOL*>(nullptr)));
}

} // namespace
