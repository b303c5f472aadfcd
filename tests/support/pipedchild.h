#pragma once

#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace orvtest {

// A child program with its standard input and output piped to the test: it runs until the test
// closes its input or kills it.
class CPipedChild
{
public:
    CPipedChild(const char* pszProgram, std::initializer_list<const char*> args)
    {
        int aIn[2], aOut[2];
        if (pipe(aIn) != 0 || pipe(aOut) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, aIn[0], 0);
        posix_spawn_file_actions_adddup2(&actions, aOut[1], 1);
        posix_spawn_file_actions_addclose(&actions, aIn[1]);
        posix_spawn_file_actions_addclose(&actions, aOut[0]);
        std::vector<char*> argv{const_cast<char*>(pszProgram)};
        for (const char* arg : args)
            argv.push_back(const_cast<char*>(arg));
        argv.push_back(nullptr);
        posix_spawn(&m_pid, pszProgram, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(aIn[0]);
        close(aOut[1]);
        m_fdIn = aIn[1];
        m_pOut = fdopen(aOut[0], "r");
    }
    ~CPipedChild()
    {
        Kill();
        if (m_pOut)
            fclose(m_pOut);
    }
    // The next line the child says ("ready\n", "held\n", however long), or its end.
    std::string Line()
    {
        std::string line;
        for (int ch = 0; m_pOut && ch != '\n' && (ch = fgetc(m_pOut)) != EOF;)
            line.push_back(static_cast<char>(ch));
        return line.empty() ? std::string("<end>") : line;
    }
    // Writes `text` to the child's standard input.
    bool Write(const std::string& text)
    {
        return m_fdIn >= 0 && write(m_fdIn, text.data(), text.size()) == ssize_t(text.size());
    }
    // Closes the child's input and waits for it to end: its exit status, -1 when killed.
    int Close()
    {
        if (m_fdIn >= 0)
            close(m_fdIn);
        m_fdIn = -1;
        int status = 0;
        if (m_pid <= 0 || waitpid(m_pid, &status, 0) != m_pid)
            return -1;
        m_pid = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void Kill()
    {
        if (m_fdIn >= 0)
            close(m_fdIn);
        m_fdIn = -1;
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        m_pid = 0;
    }

private:
    pid_t m_pid = 0;
    int m_fdIn = -1;
    FILE* m_pOut = nullptr;
};

} // namespace orvtest
