// The COM server module of the ATL subset: the object map's classes published and withdrawn,
// and the lock count that every object and LockServer take through the module's own Unlock.
#include "pal/atlbase.h"
#include "pal/atlcom.h"
#include "tests/pal/com/com_testing.h"

#include <vector>

namespace {

using orvtest::com::CLSID_TestWidget;
using orvtest::com::CWidget;

// A server's module: it records the count every Unlock leaves, as a server that stops at 0 would
// look at it.
class CRecordingModule : public CComModule
{
public:
    LONG Unlock() override
    {
        LONG l = CComModule::Unlock();
        m_unlocks.push_back(l);
        return l;
    }
    std::vector<LONG> m_unlocks;
};

BEGIN_OBJECT_MAP(g_objectMap)
OBJECT_ENTRY(CLSID_TestWidget, CWidget)
END_OBJECT_MAP()

using AtlModuleTest = orvtest::com::ComTest;

TEST_F(AtlModuleTest, ObjectMapIsServedUntilRevokedAndObjectsLockThroughTheModule)
{
    LONG lWithoutModule = AtlModuleGetLockCount();
    {
        CRecordingModule module;
        EXPECT_EQ(static_cast<CAtlModule*>(&module), _pAtlModule);
        ASSERT_HR(S_OK, module.Init(g_objectMap, nullptr));
        ASSERT_HR(S_OK, module.RegisterClassObjects(CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
                                                    REGCLS_MULTIPLEUSE));
        EXPECT_NE(0u, g_objectMap[0].dwRegister);

        // A multiple-use local server serves the process's own requests in process too, with the
        // objects' own pointers, so that the locks below are the objects' and not a proxy's.
        CComPtr<IWidget> pWidget;
        ASSERT_HR(S_OK, pWidget.CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_INPROC_SERVER));
        EXPECT_EQ(1, module.GetLockCount());
        EXPECT_EQ(1, AtlModuleGetLockCount());
        CComPtr<IClassFactory> pFactory;
        ASSERT_HR(S_OK, CoGetClassObject(CLSID_TestWidget, CLSCTX_INPROC_SERVER, nullptr,
                                         IID_IClassFactory, reinterpret_cast<void**>(&pFactory)));
        EXPECT_HR(S_OK, pFactory->LockServer(TRUE));
        EXPECT_EQ(2, module.GetLockCount());
        pWidget.Release();
        EXPECT_HR(S_OK, pFactory->LockServer(FALSE));
        EXPECT_EQ((std::vector<LONG>{1, 0}), module.m_unlocks);

        EXPECT_HR(S_OK, module.RevokeClassObjects());
        EXPECT_EQ(0u, g_objectMap[0].dwRegister);
        IWidget* p = nullptr;
        EXPECT_HR(REGDB_E_CLASSNOTREG, orvtest::com::CreateWidget(CLSCTX_ALL, &p));
        EXPECT_HR(S_OK, module.RevokeClassObjects());
        module.Term();
        EXPECT_EQ(nullptr, module.m_pObjMap);
    }
    EXPECT_EQ(nullptr, _pAtlModule);
    EXPECT_EQ(lWithoutModule, AtlModuleGetLockCount());
}

} // namespace
