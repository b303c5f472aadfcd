// IAccessControl as the SDK publishes it: its ids, and its methods in slot order (COM reaches a
// server's access control object through raw vtable slots).
#include "pal/iaccess.h"
#include "pal/objbase.h"
#include "tests/support/conformance.h"

#include <string>

namespace {

using AccessControlTest = orvtest::ConformanceTest;

// Each method records its own name.
class CRecorder : public IAccessControl
{
public:
    std::string m_called;

    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOTIMPL; }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GrantAccessRights(PACTRL_ACCESSW) override { return Record(__func__); }
    STDMETHODIMP SetAccessRights(PACTRL_ACCESSW) override { return Record(__func__); }
    STDMETHODIMP SetOwner(PTRUSTEEW, PTRUSTEEW) override { return Record(__func__); }
    STDMETHODIMP RevokeAccessRights(LPWSTR, ULONG, TRUSTEEW[]) override { return Record(__func__); }
    STDMETHODIMP GetAllAccessRights(LPWSTR, PACTRL_ACCESSW_ALLOCATE_ALL_NODES*, PTRUSTEEW*,
                                    PTRUSTEEW*) override
    {
        return Record(__func__);
    }
    STDMETHODIMP IsAccessAllowed(PTRUSTEEW, LPWSTR, ACCESS_RIGHTS, BOOL*) override
    {
        return Record(__func__);
    }

private:
    HRESULT Record(const char* psz)
    {
        m_called = psz;
        return S_OK;
    }
};

template <class Fn>
Fn Slot(IAccessControl* p, size_t slot)
{
    return reinterpret_cast<Fn>((*reinterpret_cast<void (***)()>(p))[slot]);
}

TEST_F(AccessControlTest, IdsAndSlotOrderAreThePublishedOnes)
{
    WCHAR sz[39];
    ASSERT_EQ(39, StringFromGUID2(IID_IAccessControl, sz, 39));
    EXPECT_EQ("{EEDD23E0-8410-11CE-A1C3-08002B2B8D8F}", orvtest::Narrow(sz));
    EXPECT_TRUE(IsEqualIID(IID_IAccessControl, __uuidof(IAccessControl)));
    ASSERT_EQ(39, StringFromGUID2(CLSID_DCOMAccessControl, sz, 39));
    EXPECT_EQ("{0000031D-0000-0000-C000-000000000046}", orvtest::Narrow(sz));
    static_assert(COM_RIGHTS_EXECUTE == 1 && ACTRL_ACCESS_ALLOWED == 1 && ACTRL_ACCESS_DENIED == 2);

    CRecorder recorder;
    IAccessControl* p = &recorder;
    using List = HRESULT(STDMETHODCALLTYPE*)(IAccessControl*, PACTRL_ACCESSW);
    using Owner = HRESULT(STDMETHODCALLTYPE*)(IAccessControl*, PTRUSTEEW, PTRUSTEEW);
    using Revoke = HRESULT(STDMETHODCALLTYPE*)(IAccessControl*, LPWSTR, ULONG, TRUSTEEW*);
    using GetAll = HRESULT(STDMETHODCALLTYPE*)(IAccessControl*, LPWSTR, PACTRL_ACCESSW*, PTRUSTEEW*,
                                               PTRUSTEEW*);
    using Allowed =
        HRESULT(STDMETHODCALLTYPE*)(IAccessControl*, PTRUSTEEW, LPWSTR, ACCESS_RIGHTS, BOOL*);
    Slot<List>(p, 3)(p, nullptr);
    EXPECT_EQ("GrantAccessRights", recorder.m_called);
    Slot<List>(p, 4)(p, nullptr);
    EXPECT_EQ("SetAccessRights", recorder.m_called);
    Slot<Owner>(p, 5)(p, nullptr, nullptr);
    EXPECT_EQ("SetOwner", recorder.m_called);
    Slot<Revoke>(p, 6)(p, nullptr, 0, nullptr);
    EXPECT_EQ("RevokeAccessRights", recorder.m_called);
    Slot<GetAll>(p, 7)(p, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ("GetAllAccessRights", recorder.m_called);
    Slot<Allowed>(p, 8)(p, nullptr, nullptr, 0, nullptr);
    EXPECT_EQ("IsAccessAllowed", recorder.m_called);
}

} // namespace
