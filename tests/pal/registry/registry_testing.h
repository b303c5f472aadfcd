// Shared pieces of the Linux-only registry tests: the fixture on the machine root of PalTest
// and a way to run another process (the orvsim tool, or this test program again) and collect
// its output. The portable fixture and helpers are in registry_fixture.h.
#pragma once

#include "pal/windows.h"
#include "tests/pal/registry/registry_fixture.h"
#include "tests/support/paltest.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

extern char** environ;

namespace orvtest::registry {

// The fixture of the registry tests that need the test controls or the machine root.
using RegistryTest = RegistryFixture<orvtest::PalTest>;

// ---- Other processes ----

struct ProcessResult
{
    int exitCode = -1; // -1 when killed by a signal
    std::string out;
    std::string err;
};

// A child process whose standard input, output and error are anonymous files (so that it never
// blocks on them), optionally with a pipe on its descriptor 3 for reports.
class ChildProcess
{
public:
    // `input` is the child's whole standard input.
    ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                 bool fReportPipe = false, const std::string& input = {})
    {
        int reportPipe[2] = {-1, -1};
        for (int& fd : m_files)
            fd = memfd_create("orvtest-child", MFD_CLOEXEC);
        if (m_files[0] < 0 || m_files[1] < 0 || m_files[2] < 0 ||
            write(m_files[0], input.data(), input.size()) != ssize_t(input.size()) ||
            lseek(m_files[0], 0, SEEK_SET) != 0 ||
            (fReportPipe && pipe2(reportPipe, O_CLOEXEC) != 0))
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        for (int i = 0; i < 3; ++i)
            posix_spawn_file_actions_adddup2(&actions, m_files[i], i);
        if (fReportPipe)
            posix_spawn_file_actions_adddup2(&actions, reportPipe[1], 3);
        std::vector<char*> args, envp;
        for (const auto& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        for (char** e = environ; *e; ++e)
            envp.push_back(*e);
        for (const auto& e : env)
            envp.push_back(const_cast<char*>(e.c_str()));
        args.push_back(nullptr);
        envp.push_back(nullptr);
        if (posix_spawn(&m_pid, args[0], &actions, nullptr, args.data(), envp.data()) != 0)
            m_pid = -1;
        posix_spawn_file_actions_destroy(&actions);
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
            Kill();
            Wait();
        }
        for (int fd : {m_files[0], m_files[1], m_files[2], m_report})
            if (fd >= 0)
                close(fd);
    }

    bool Started() const { return m_pid > 0; }
    pid_t Pid() const { return m_pid; }
    int ReportFd() const { return m_report; }

    void Kill() { kill(m_pid, SIGKILL); }

    // Waits for the process to end and returns its exit code and output.
    ProcessResult Wait()
    {
        int status = 0;
        if (!Started())
            return {};
        while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
        m_fReaped = true;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAll(m_files[1]),
                ReadAll(m_files[2])};
    }

private:
    static std::string ReadAll(int fd)
    {
        std::string text;
        char buffer[4096];
        ssize_t n;
        for (off_t at = 0; (n = pread(fd, buffer, sizeof(buffer), at)) > 0; at += n)
            text.append(buffer, static_cast<size_t>(n));
        return text;
    }

    pid_t m_pid = -1;
    int m_files[3] = {-1, -1, -1};
    int m_report = -1;
    bool m_fReaped = false;
};

inline ProcessResult RunProcess(const std::vector<std::string>& argv,
                                const std::vector<std::string>& env = {},
                                const std::string& input = {})
{
    ChildProcess child(argv, env, false, input);
    return child.Started() ? child.Wait() : ProcessResult{};
}

// This test program run again on the tests `filter` names, disabled ones included: how a test
// starts children that are tests of their own.
inline std::vector<std::string> SelfArgs(const std::string& filter)
{
    char path[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
    return {n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string(),
            "--gtest_filter=" + filter, "--gtest_also_run_disabled_tests"};
}

// Reads the numbers a child reports one a line on `fd` until `deadline` (or end of file when
// none), or until there are `enough` of them; `pending` keeps a partial line between calls.
inline void ReadReports(int fd, std::optional<std::chrono::steady_clock::time_point> deadline,
                        std::string* pending, std::vector<ULONGLONG>* reports,
                        size_t enough = SIZE_MAX)
{
    while (reports->size() < enough) {
        auto left = deadline ? std::chrono::duration_cast<std::chrono::milliseconds>(
                                   *deadline - std::chrono::steady_clock::now())
                                   .count()
                             : -1;
        if (deadline && left <= 0)
            return;
        pollfd pfd{fd, POLLIN, 0};
        int ready = poll(&pfd, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR)
            continue;
        char buffer[4096];
        ssize_t n = ready > 0 ? read(fd, buffer, sizeof(buffer)) : 0;
        if (n <= 0)
            return;
        pending->append(buffer, static_cast<size_t>(n));
        for (size_t newline; (newline = pending->find('\n')) != std::string::npos;
             pending->erase(0, newline + 1))
            reports->push_back(std::stoull(pending->substr(0, newline)));
    }
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
