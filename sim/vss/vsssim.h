// The simulated Volume Shadow Copy Service: the coordinator's registry of providers.
//
// The registrations live in SQLite under the machine root (<root>/vss.db), so that orvsim and
// the process under test share them. A process that starts CVssCoordinator serves
// CLSID_VSSCoordinator as a local-server class object of its own, whose objects implement
// IVssAdmin (see "VSS coordinator" in docs/ARCHITECTURE.md).
#pragma once

#include "pal/vsadmin.h"
#include "pal/windef.h"
#include "pal/winerror.h"

#include <string>
#include <vector>

namespace vsssim {

// The provider of every Windows machine, listed first and never stored: VSS answers it
// whatever was registered, and it cannot be unregistered.
// {b5946137-7b9f-4925-af80-51abd60b20d5}
inline constexpr VSS_ID kSystemProviderId = {
    0xB5946137, 0x7B9F, 0x4925, {0xAF, 0x80, 0x51, 0xAB, 0xD6, 0x0B, 0x20, 0xD5}};
// {65ee1dba-8ff4-4a58-ac1c-3470ee2f376a}
inline constexpr CLSID kSystemProviderClassId = {
    0x65EE1DBA, 0x8FF4, 0x4A58, {0xAC, 0x1C, 0x34, 0x70, 0xEE, 0x2F, 0x37, 0x6A}};
inline constexpr const WCHAR* kSystemProviderName = u"Microsoft Software Shadow Copy provider 1.0";
inline constexpr const WCHAR* kSystemProviderVersion = u"1.0.0.7";

// ---- Fault injection ----
// The coordinator's methods answer `hr` instead of doing their work: "RegisterProvider",
// "UnregisterProvider" and "QueryProviders". A rule applies to the next `lTimes` calls
// (kEveryCall: until cleared) and is kept in the state, so that it applies in every process of
// the machine. The caller's rights and the arguments are checked first: a rule answers the calls
// that pass them.
constexpr LONG kEveryCall = -1;
HRESULT SetFault(const std::string& method, HRESULT hr, LONG lTimes = kEveryCall);
HRESULT ClearFaults();

// ---- The coordinator in this process ----
// Registers the coordinator's class object (CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE). The
// calling thread must have initialised COM. Objects handed out stay usable after Stop, since
// every call reads and writes the state itself.
class CVssCoordinator
{
public:
    CVssCoordinator() = default;
    CVssCoordinator(const CVssCoordinator&) = delete;
    CVssCoordinator& operator=(const CVssCoordinator&) = delete;
    ~CVssCoordinator() { Stop(); }

    HRESULT Start();
    void Stop();
    bool Running() const { return m_dwCookie != 0; }

private:
    DWORD m_dwCookie = 0;
};

} // namespace vsssim
