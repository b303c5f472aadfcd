// The COM runtime: apartments, activation and the class objects a process registers.
//
// All activation is inside the calling process. A class asked for as CLSCTX_LOCAL_SERVER is
// served by the class object that some code of this process registered with
// CoRegisterClassObject (as a Windows local server registers its class objects at start-up);
// nothing is launched, nothing is marshalled, and interface pointers are the objects' own.
// The runtime's own classes (CLSID_DCOMAccessControl) are served in process, as the system's
// in-process server serves them, unless the process registered a class object of its own.
// See "COM runtime and the simulated storage service" in docs/ARCHITECTURE.md.
//
// Injected faults (pal::InjectFault) make CoInitializeEx, CoCreateInstance, CoGetClassObject
// and CoRegisterClassObject return the injected value as their HRESULT, e.g.
// pal::InjectFault("CoCreateInstance", DWORD(REGDB_E_CLASSNOTREG), 0, u"{B9F2082F-...}");
// the argument of the activation functions is the class id in registry form (upper case,
// with braces).
#pragma once

#include "pal/combaseapi.h"
#include "pal/oaidl.h"
#include "pal/objidl.h"
#include "pal/ocidl.h"
#include "pal/rpcdce.h"
#include "pal/unknwn.h"
#include "pal/uuidof.h"

// ---- Apartments ----
enum COINIT : DWORD
{
    COINIT_MULTITHREADED = 0x0,
    COINIT_APARTMENTTHREADED = 0x2,
    COINIT_DISABLE_OLE1DDE = 0x4,
    COINIT_SPEED_OVER_MEMORY = 0x8,
};

// S_OK for the thread's first call, S_FALSE for a further one with the same model (each needs
// its CoUninitialize), RPC_E_CHANGED_MODE when the thread is already in the other model (no
// CoUninitialize is owed then). A thread that never initialised belongs to the process's
// multithreaded apartment while any thread holds it, as on Windows; otherwise the calls that
// need COM fail with CO_E_NOTINITIALIZED. Apartment-threaded threads are not given a message
// loop: calls are never marshalled between apartments, so both models behave as free-threaded.
HRESULT WINAPI CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
HRESULT WINAPI CoInitialize(LPVOID pvReserved);
void WINAPI CoUninitialize();

// ---- Activation ----
enum CLSCTX : DWORD
{
    CLSCTX_INPROC_SERVER = 0x1,
    CLSCTX_INPROC_HANDLER = 0x2,
    CLSCTX_LOCAL_SERVER = 0x4,
    CLSCTX_REMOTE_SERVER = 0x10,
};
#define CLSCTX_INPROC (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER)
#define CLSCTX_SERVER (CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)
#define CLSCTX_ALL                                                                                 \
    (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)

enum REGCLS : DWORD
{
    REGCLS_SINGLEUSE = 0,
    REGCLS_MULTIPLEUSE = 1,
    REGCLS_MULTI_SEPARATE = 2,
    REGCLS_SUSPENDED = 4,
    REGCLS_SURROGATE = 8,
    REGCLS_AGILE = 0x10,
};

// The class object of rclsid for one of the contexts asked. In-process registrations are
// preferred; a REGCLS_MULTIPLEUSE local-server registration also serves in-process requests.
// A class with no registration for any asked context: REGDB_E_CLASSNOTREG. A local-server
// registration while the process's class objects are suspended (CoSuspendClassObjects,
// REGCLS_SUSPENDED, or CoReleaseServerProcess reaching 0): CO_E_SERVER_STOPPING. A
// REGCLS_SINGLEUSE registration serves one request and is then hidden. pServerInfo is ignored.
HRESULT WINAPI CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pServerInfo,
                                REFIID riid, LPVOID* ppv);
// CoGetClassObject for IClassFactory, then IClassFactory::CreateInstance. *ppv is null on
// every failure; E_POINTER when ppv is null, E_INVALIDARG for an empty class context.
HRESULT WINAPI CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext,
                                REFIID riid, LPVOID* ppv);

// Publishes a class object (AddRef'd until it is revoked). Registrations of the same class are
// independent, each with its own cookie; requests are served by the oldest one available.
HRESULT WINAPI CoRegisterClassObject(REFCLSID rclsid, LPUNKNOWN pUnk, DWORD dwClsContext,
                                     DWORD flags, LPDWORD lpdwRegister);
// CO_E_OBJNOTREG for a cookie that is not registered.
HRESULT WINAPI CoRevokeClassObject(DWORD dwRegister);
// New local-server activations of every class object of the process fail with
// CO_E_SERVER_STOPPING until CoResumeClassObjects, which also releases REGCLS_SUSPENDED ones.
HRESULT WINAPI CoSuspendClassObjects();
HRESULT WINAPI CoResumeClassObjects();
// The process's server reference count; CoReleaseServerProcess suspends the class objects
// when it reaches 0. Both return the new count.
ULONG WINAPI CoAddRefServerProcess();
ULONG WINAPI CoReleaseServerProcess();

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" in upper case, 39 characters with the terminator.
// Returns the characters written including the terminator, 0 when cchMax is too small.
int WINAPI StringFromGUID2(REFGUID rguid, LPWSTR lpsz, int cchMax);

// ---- Security ----
// Sets the process's COM security, once: the authentication level, the impersonation level,
// the capabilities and, with EOAC_ACCESS_CONTROL, pSecDesc taken as an IAccessControl (the
// interface is asked of it and kept, with its reference, for the life of the process), which
// decides who may call the process's objects (see "COM security and the server module" in
// docs/ARCHITECTURE.md). Without it and with pSecDesc NULL, every caller may call.
// Checked in this order: the calling thread must use COM (CO_E_NOTINITIALIZED); a second call
// is RPC_E_TOO_LATE; E_INVALIDARG for pReserved1 or pReserved3 not NULL, cAuthSvc below -1, -1
// with asAuthSvc or a positive count without it, a level above RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
// RPC_C_IMP_LEVEL_DEFAULT or a level above RPC_C_IMP_LEVEL_DELEGATE, EOAC_ACCESS_CONTROL without
// an object, with RPC_C_AUTHN_LEVEL_NONE or with EOAC_APPID. Not supported (E_NOTIMPL): a
// security descriptor (pSecDesc without EOAC_ACCESS_CONTROL) and EOAC_APPID. Authentication
// services are accepted as registered (each hr S_OK); pAuthList, the client's, is not used.
// A refused call keeps nothing and leaves the call still to be made. Obeys
// pal::InjectFault("CoInitializeSecurity", DWORD(hr)).
HRESULT WINAPI CoInitializeSecurity(PSECURITY_DESCRIPTOR pSecDesc, LONG cAuthSvc,
                                    SOLE_AUTHENTICATION_SERVICE* asAuthSvc, void* pReserved1,
                                    DWORD dwAuthnLevel, DWORD dwImpLevel, void* pAuthList,
                                    DWORD dwCapabilities, void* pReserved3);
