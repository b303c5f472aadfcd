// Handles of the service tests, on Win32 calls alone, so that the conformance cases build for
// Windows too: each closes (and a created service deletes itself) at scope exit, as a case on
// a real machine must leave nothing behind.
#pragma once

#include "pal/windows.h"
#include "pal/winsvc.h"
#include "tests/support/checks.h"

#include <utility>

namespace orvtest::service {

class ScopedScHandle
{
public:
    explicit ScopedScHandle(SC_HANDLE h = nullptr) : m_h(h) {}
    ScopedScHandle(ScopedScHandle&& other) noexcept : m_h(other.Release()) {}
    ScopedScHandle(const ScopedScHandle&) = delete;
    ScopedScHandle& operator=(const ScopedScHandle&) = delete;
    ~ScopedScHandle() { Reset(); }
    void Reset(SC_HANDLE h = nullptr)
    {
        if (m_h)
            CloseServiceHandle(m_h);
        m_h = h;
    }
    SC_HANDLE Release() { return std::exchange(m_h, nullptr); }
    operator SC_HANDLE() const { return m_h; }

private:
    SC_HANDLE m_h;
};

// A demand-start service of its own process, deleted again at scope exit.
class ScopedService : public ScopedScHandle
{
public:
    ScopedService(SC_HANDLE hManager, LPCWSTR name, LPCWSTR binPath, LPCWSTR account = nullptr,
                  LPCWSTR password = nullptr, LPCWSTR display = nullptr,
                  LPCWSTR dependencies = nullptr)
        : ScopedScHandle(CreateServiceW(hManager, name, display, SERVICE_ALL_ACCESS,
                                        SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                        SERVICE_ERROR_NORMAL, binPath, nullptr, nullptr,
                                        dependencies, account, password))
    {}
    ~ScopedService()
    {
        if (*this)
            DeleteService(*this);
    }
};

} // namespace orvtest::service
