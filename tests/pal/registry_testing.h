// Shared pieces of the registry tests: the fixture, byte helpers, a scoped key and a way to
// run another process (the orvsim tool, or this test program again) and collect its output.
#pragma once

#include "pal/windows.h"
#include "tests/support/paltest.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace orvtest::registry {

// The base key every registry test works under.
inline constexpr const WCHAR* kTestKey = u"Software\\OrvTest";
// Its canonical full path, as fault rules see it.
inline constexpr const WCHAR* kTestKeyPath = u"HKLM\\Software\\OrvTest";

// The bytes of a UTF-16 string, with or without its terminator.
inline std::vector<BYTE> StringBytes(std::u16string_view text, bool fTerminator = true)
{
    std::vector<BYTE> bytes(reinterpret_cast<const BYTE*>(text.data()),
                            reinterpret_cast<const BYTE*>(text.data() + text.size()));
    if (fTerminator) {
        bytes.push_back(0);
        bytes.push_back(0);
    }
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
    HKEY Release()
    {
        HKEY hKey = m_hKey;
        m_hKey = nullptr;
        return hKey;
    }

private:
    HKEY m_hKey = nullptr;
};

// Every test starts with HKLM\Software\OrvTest created, writable and notifiable.
class RegistryTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        DWORD dwDisposition = 0;
        ASSERT_EQ(ERROR_SUCCESS,
                  RegCreateKeyExW(HKEY_LOCAL_MACHINE, kTestKey, 0, nullptr, 0, KEY_ALL_ACCESS,
                                  nullptr, m_base.Out(), &dwDisposition));
    }
    void TearDown() override
    {
        m_base.Reset();
        orvtest::PalTest::TearDown();
    }

    HKEY Base() const { return m_base; }

    // Creates (or opens) `path` under the base key with every right.
    HKEY Create(const WCHAR* path, HKEY hParent = nullptr)
    {
        HKEY hKey = nullptr;
        EXPECT_EQ(ERROR_SUCCESS, RegCreateKeyExW(hParent ? hParent : Base(), path, 0, nullptr, 0,
                                                 KEY_ALL_ACCESS, nullptr, &hKey, nullptr));
        return hKey;
    }

    static LONG SetBytes(HKEY hKey, const WCHAR* name, DWORD dwType, const std::vector<BYTE>& data)
    {
        return RegSetValueExW(hKey, name, 0, dwType, data.data(), static_cast<DWORD>(data.size()));
    }
    static LONG SetString(HKEY hKey, const WCHAR* name, std::u16string_view text)
    {
        return SetBytes(hKey, name, REG_SZ, StringBytes(text));
    }
    static LONG SetDword(HKEY hKey, const WCHAR* name, DWORD value)
    {
        return SetBytes(hKey, name, REG_DWORD, DwordBytes(value));
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
        HKEY hKey = nullptr;
        LONG status = RegOpenKeyExW(hParent, path, 0, KEY_READ, &hKey);
        if (status == ERROR_SUCCESS)
            RegCloseKey(hKey);
        return status == ERROR_SUCCESS;
    }

private:
    ScopedKey m_base;
};

// ---- Other processes ----

struct ProcessResult
{
    int exitCode = -1; // -1 when killed by a signal
    std::string out;
    std::string err;
};

// A child process with its standard output and error on pipes (and optionally a third pipe
// on its descriptor 3, for reports).
class ChildProcess
{
public:
    // `input` is the child's whole standard input.
    ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                 bool fReportPipe = false, const std::string& input = {})
    {
        int inPipe[2], outPipe[2], errPipe[2], reportPipe[2] = {-1, -1};
        // Close-on-exec, so that no child keeps another pipe's end open (and its reader waiting).
        if (pipe2(inPipe, O_CLOEXEC) != 0 || pipe2(outPipe, O_CLOEXEC) != 0 ||
            pipe2(errPipe, O_CLOEXEC) != 0 || (fReportPipe && pipe2(reportPipe, O_CLOEXEC) != 0))
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
        posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
        if (fReportPipe)
            posix_spawn_file_actions_adddup2(&actions, reportPipe[1], 3);
        std::vector<char*> args;
        for (const auto& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        std::vector<std::string> envStrings;
        for (char** e = environ; *e; ++e)
            envStrings.emplace_back(*e);
        for (const auto& e : env)
            envStrings.push_back(e);
        std::vector<char*> envp;
        for (auto& e : envStrings)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        if (posix_spawn(&m_pid, args[0], &actions, nullptr, args.data(), envp.data()) != 0)
            m_pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(inPipe[0]);
        // Small enough for the pipe's buffer: written at once, then end of file.
        if (!input.empty())
            m_fInputWritten =
                write(inPipe[1], input.data(), input.size()) == static_cast<ssize_t>(input.size());
        close(inPipe[1]);
        close(outPipe[1]);
        close(errPipe[1]);
        m_out = outPipe[0];
        m_err = errPipe[0];
        if (fReportPipe) {
            close(reportPipe[1]);
            m_report = reportPipe[0];
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess()
    {
        if (m_pid > 0 && !m_fReaped) {
            kill(m_pid, SIGKILL);
            Wait();
        }
        for (int fd : {m_out, m_err, m_report})
            if (fd >= 0)
                close(fd);
    }

    bool Started() const { return m_pid > 0; }
    pid_t Pid() const { return m_pid; }
    int ReportFd() const { return m_report; }

    void Kill() { kill(m_pid, SIGKILL); }

    // Collects the output until the process ends.
    ProcessResult Wait()
    {
        ProcessResult result;
        DrainOutput();
        int status = 0;
        while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
        m_fReaped = true;
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.out = m_outText;
        result.err = m_errText;
        return result;
    }

private:
    // Reads both pipes until they close, so a child writing much to either never blocks.
    void DrainOutput()
    {
        pollfd fds[2] = {{m_out, POLLIN, 0}, {m_err, POLLIN, 0}};
        std::string* texts[2] = {&m_outText, &m_errText};
        int open = 2;
        if (m_fDrained)
            return;
        while (open > 0) {
            if (::poll(fds, 2, -1) < 0) {
                if (errno == EINTR)
                    continue;
                break;
            }
            for (int i = 0; i < 2; ++i) {
                if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
                    continue;
                char buffer[4096];
                ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
                if (n > 0) {
                    texts[i]->append(buffer, static_cast<size_t>(n));
                } else {
                    fds[i].fd = -1;
                    --open;
                }
            }
        }
        m_fDrained = true;
    }

    pid_t m_pid = -1;
    int m_out = -1;
    int m_err = -1;
    int m_report = -1;
    bool m_fReaped = false;
    bool m_fInputWritten = true;
    bool m_fDrained = false;
    std::string m_outText;
    std::string m_errText;
};

inline ProcessResult RunProcess(const std::vector<std::string>& argv,
                                const std::vector<std::string>& env = {},
                                const std::string& input = {})
{
    ChildProcess child(argv, env, false, input);
    if (!child.Started())
        return ProcessResult{};
    return child.Wait();
}

// The orvsim tool built with these tests.
inline std::string OrvsimPath()
{
    return ORVSIM_EXE;
}

// `orvsim --root <root> args...`
inline ProcessResult RunOrvsim(const std::filesystem::path& root,
                               const std::vector<std::string>& args, const std::string& input = {})
{
    std::vector<std::string> argv{OrvsimPath(), "--root", root.string()};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunProcess(argv, {}, input);
}

} // namespace orvtest::registry
