// The class the host tests serve through the service module: a plain COM object that counts in
// the module's lock count, as the provider object does.
#pragma once

#include "pal/atlcom.h"
#include "pal/objbase.h"

namespace orvtest::host {

// {0E3C7B52-41A9-4F0D-8D6E-2B9A51C4E7F1}
inline constexpr CLSID CLSID_TestServer = {
    0x0E3C7B52, 0x41A9, 0x4F0D, {0x8D, 0x6E, 0x2B, 0x9A, 0x51, 0xC4, 0xE7, 0xF1}};

// The service name and AppID the test programs use.
inline constexpr const WCHAR* kTestServiceName = W("OrvTestSvc");
inline constexpr const WCHAR* kTestAppId = W("{0E3C7B52-41A9-4F0D-8D6E-2B9A51C4E7F2}");

class CTestServer : public CComObjectRootEx<CComMultiThreadModel>, public IUnknown
{
public:
    DECLARE_NO_REGISTRY()
    BEGIN_COM_MAP(CTestServer)
    COM_INTERFACE_ENTRY_IID(IID_IUnknown, IUnknown)
    END_COM_MAP()
};

} // namespace orvtest::host
