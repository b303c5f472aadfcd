// The registry tests' fixture and helpers that use only Win32 calls: the conformance cases
// (tests/pal/registry/conformance) build them for Windows as well, the Linux-only tests reach
// them through registry_testing.h.
#pragma once

#include "pal/windows.h"
#include "tests/support/checks.h"
#include "tests/support/conformance.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace orvtest::registry {

// The base key every registry test works under, and its canonical full path.
inline constexpr const WCHAR* kTestKey = W("Software\\OrvTest");
inline constexpr const WCHAR* kTestKeyPath = W("HKLM\\Software\\OrvTest");

// The bytes of a WCHAR string, with or without its terminator.
inline std::vector<BYTE> StringBytes(WStringView text, bool fTerminator = true)
{
    std::vector<BYTE> bytes(reinterpret_cast<const BYTE*>(text.data()),
                            reinterpret_cast<const BYTE*>(text.data() + text.size()));
    if (fTerminator)
        bytes.insert(bytes.end(), {0, 0});
    return bytes;
}

inline std::vector<BYTE> DwordBytes(DWORD value)
{
    return std::vector<BYTE>(reinterpret_cast<const BYTE*>(&value),
                             reinterpret_cast<const BYTE*>(&value) + sizeof(value));
}

// An HKEY closed at scope exit; the test's own, so that the code under test stays raw.
class ScopedKey
{
public:
    ScopedKey() = default;
    explicit ScopedKey(HKEY hKey) : m_hKey(hKey) {}
    ScopedKey(const ScopedKey&) = delete;
    ScopedKey& operator=(const ScopedKey&) = delete;
    ~ScopedKey() { Reset(); }
    void Reset()
    {
        if (m_hKey)
            RegCloseKey(m_hKey);
        m_hKey = nullptr;
    }
    HKEY* Out()
    {
        Reset();
        return &m_hKey;
    }
    HKEY Get() const { return m_hKey; }
    operator HKEY() const { return m_hKey; }
    HKEY Release() { return std::exchange(m_hKey, nullptr); }

private:
    HKEY m_hKey = nullptr;
};

// What RegQueryInfoKeyW reports of a key (all but the class).
struct KeyInfo
{
    LONG status = -1;
    DWORD cSubKeys = 0, cchMaxSubKey = 0, cValues = 0, cchMaxValueName = 0, cbMaxValue = 0;
    DWORD cbSecurity = 99;
    FILETIME ftLastWrite{};
    ULONGLONG LastWrite() const
    {
        return (ULONGLONG(ftLastWrite.dwHighDateTime) << 32) | ftLastWrite.dwLowDateTime;
    }
};

inline KeyInfo QueryInfo(HKEY hKey)
{
    KeyInfo i;
    i.status = RegQueryInfoKeyW(hKey, nullptr, nullptr, nullptr, &i.cSubKeys, &i.cchMaxSubKey,
                                nullptr, &i.cValues, &i.cchMaxValueName, &i.cbMaxValue,
                                &i.cbSecurity, &i.ftLastWrite);
    return i;
}

// Every test starts with HKLM\Software\OrvTest created, writable and notifiable. The keys the
// tests may create go before and after each test: on Windows the registry is the machine's,
// and Wine's outlives the test program.
template <class Fixture>
class RegistryFixture : public Fixture
{
protected:
    void SetUp() override
    {
        Fixture::SetUp();
        RemoveTestKeys();
        ASSERT_EQ(ERROR_SUCCESS, CreateKey(HKEY_LOCAL_MACHINE, kTestKey, m_base.Out()));
    }
    void TearDown() override
    {
        m_base.Reset();
        RemoveTestKeys();
        Fixture::TearDown();
    }

    HKEY Base() const { return m_base; }

    static void RemoveTestKeys()
    {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kTestKey);
        RegDeleteTreeW(HKEY_CURRENT_USER, kTestKey);
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, W("Software\\Classes\\OrvTest"));
    }

    static LONG CreateKey(HKEY hParent, const WCHAR* path, HKEY* phKey,
                          DWORD* pdwDisposition = nullptr, DWORD dwOptions = 0,
                          REGSAM sam = KEY_ALL_ACCESS, WCHAR* pszClass = nullptr)
    {
        return RegCreateKeyExW(hParent, path, 0, pszClass, dwOptions, sam, nullptr, phKey,
                               pdwDisposition);
    }
    static LONG OpenKey(HKEY hParent, const WCHAR* path, HKEY* phKey, REGSAM sam = KEY_READ)
    {
        return RegOpenKeyExW(hParent, path, 0, sam, phKey);
    }
    // Creates (or opens) `path` under the base key with every right.
    HKEY Create(const WCHAR* path, HKEY hParent = nullptr)
    {
        HKEY hKey = nullptr;
        EXPECT_EQ(ERROR_SUCCESS, CreateKey(hParent ? hParent : Base(), path, &hKey));
        return hKey;
    }

    // Stores exactly `data`: a character that is no terminator follows it in memory, or
    // RegSetValueExW would add the terminator a string's count left out.
    static LONG SetBytes(HKEY hKey, const WCHAR* name, DWORD dwType, const std::vector<BYTE>& data)
    {
        std::vector<BYTE> guarded(data);
        guarded.insert(guarded.end(), {0xFF, 0xFF});
        return RegSetValueExW(hKey, name, 0, dwType, guarded.data(),
                              static_cast<DWORD>(data.size()));
    }
    static LONG SetString(HKEY hKey, const WCHAR* name, WStringView text)
    {
        return SetBytes(hKey, name, REG_SZ, StringBytes(text));
    }
    static LONG SetDword(HKEY hKey, const WCHAR* name, DWORD value)
    {
        return SetBytes(hKey, name, REG_DWORD, DwordBytes(value));
    }
    static LONG Query(HKEY hKey, const WCHAR* name, DWORD* pcb = nullptr)
    {
        return RegQueryValueExW(hKey, name, nullptr, nullptr, nullptr, pcb);
    }
    // The value's bytes; empty when it cannot be read.
    static std::vector<BYTE> GetBytes(HKEY hKey, const WCHAR* name, DWORD* pdwType = nullptr)
    {
        DWORD cb = 0;
        if (RegQueryValueExW(hKey, name, nullptr, pdwType, nullptr, &cb) != ERROR_SUCCESS)
            return {};
        std::vector<BYTE> data(cb);
        if (RegQueryValueExW(hKey, name, nullptr, pdwType, data.data(), &cb) != ERROR_SUCCESS)
            return {};
        data.resize(cb);
        return data;
    }
    static bool KeyExists(HKEY hParent, const WCHAR* path)
    {
        ScopedKey key;
        return OpenKey(hParent, path, key.Out()) == ERROR_SUCCESS;
    }

private:
    ScopedKey m_base;
};

using RegistryConformanceTest = RegistryFixture<orvtest::ConformanceTest>;

// Long enough for the pal's watcher thread to have read the change log several times: a
// notification that has not fired by then will not.
inline constexpr DWORD kNotifySilence = 300;
inline constexpr DWORD kNotifyBoth = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET;

// The registry fixture with manual-reset events for RegNotifyChangeKeyValue to signal.
template <class Fixture>
class RegistryNotifyFixture : public RegistryFixture<Fixture>
{
protected:
    void SetUp() override
    {
        RegistryFixture<Fixture>::SetUp();
        for (HANDLE& h : m_events)
            ASSERT_NE(nullptr, h = CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    void TearDown() override
    {
        for (HANDLE h : m_events)
            CloseHandle(h);
        RegistryFixture<Fixture>::TearDown();
    }

    // Watches hKey asynchronously with event number `event`, reset first.
    LONG Arm(HKEY hKey, BOOL bSubtree, DWORD dwFilter, int event = 0)
    {
        ResetEvent(m_events[event]);
        return RegNotifyChangeKeyValue(hKey, bSubtree, dwFilter, m_events[event], TRUE);
    }
    bool Signaled(int event = 0, DWORD ms = 0) const
    {
        return WaitForSingleObject(m_events[event], ms) == WAIT_OBJECT_0;
    }

    HANDLE m_events[7] = {};
};

} // namespace orvtest::registry
