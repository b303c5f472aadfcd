// State that tests and tools control: captured output, overrides, the host profile and the
// machine root.
#include "pal/src/base/internal.h"
#include "pal/src/com/runtime.h"
#include "pal/src/registry/notify.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <utility>

namespace {

struct ControlState
{
    bool fCaptureDebug = false;
    std::vector<std::u16string> debugOutput;
    bool fCaptureBoxes = false;
    std::vector<pal::MessageBoxRecord> boxes;
    std::optional<std::u16string> modulePath;
    std::optional<std::u16string> commandLine;
    pal::HostProfile profile;
};

std::mutex g_controlLock;
ControlState g_control;

} // namespace

namespace pal {

void CaptureDebugOutput(bool capture)
{
    std::lock_guard lock(g_controlLock);
    g_control.fCaptureDebug = capture;
}

std::vector<std::u16string> TakeDebugOutput()
{
    std::lock_guard lock(g_controlLock);
    return std::exchange(g_control.debugOutput, {});
}

std::string TakeDebugOutputText()
{
    std::string text;
    for (const auto& piece : TakeDebugOutput())
        text += Utf16ToUtf8(piece);
    return text;
}

void CaptureMessageBoxes(bool capture)
{
    std::lock_guard lock(g_controlLock);
    g_control.fCaptureBoxes = capture;
}

std::vector<MessageBoxRecord> TakeMessageBoxes()
{
    std::lock_guard lock(g_controlLock);
    return std::exchange(g_control.boxes, {});
}

void SetModuleFileNameForTest(const WCHAR* path)
{
    std::lock_guard lock(g_controlLock);
    g_control.modulePath = path ? std::optional<std::u16string>(path) : std::nullopt;
}

void SetCommandLineForTest(const WCHAR* commandLine)
{
    std::lock_guard lock(g_controlLock);
    g_control.commandLine = commandLine ? std::optional<std::u16string>(commandLine) : std::nullopt;
}

void SetHostProfile(const HostProfile& profile)
{
    std::lock_guard lock(g_controlLock);
    g_control.profile = profile;
}

HostProfile GetHostProfile()
{
    std::lock_guard lock(g_controlLock);
    return g_control.profile;
}

size_t ArmedRegistryNotifications()
{
    return detail::registry::ArmedNotificationCount();
}

std::string MachineRoot()
{
    std::string root;
    if (const char* env = std::getenv("ORVSIM_ROOT"); env && *env)
        root = env;
    else if (const char* home = std::getenv("HOME"); home && *home)
        root = std::string(home) + "/.orvsim";
    else
        root = "/tmp/orvsim";
    std::error_code ec;
    std::filesystem::create_directories(root, ec);
    return root;
}

void ResetForTest()
{
    ClearFaults();
    FailTaskAllocAt(0);
    FailNothrowNewAt(0);
    SetClockScale(1);
    SetTickCountOffset(0);
    ScriptTickCounts({});
    ResetLocalTimeForTest();
    SetProcessAccount(u"");
    detail::ResetComSecurity();
    std::lock_guard lock(g_controlLock);
    g_control = ControlState{};
}

} // namespace pal

namespace pal::detail {

void EmitDebugOutput(std::u16string_view text)
{
    {
        std::lock_guard lock(g_controlLock);
        if (g_control.fCaptureDebug) {
            g_control.debugOutput.emplace_back(text);
            return;
        }
    }
    static const bool fToStderr = std::getenv("ORVSIM_DEBUG_OUTPUT") != nullptr;
    if (fToStderr) {
        std::string narrow = ToUtf8(text);
        std::fwrite(narrow.data(), 1, narrow.size(), stderr);
    }
}

void EmitMessageBox(std::u16string_view caption, std::u16string_view text, UINT type)
{
    {
        std::lock_guard lock(g_controlLock);
        if (g_control.fCaptureBoxes) {
            g_control.boxes.push_back({std::u16string(caption), std::u16string(text), type});
            return;
        }
    }
    std::fprintf(stderr, "[%s] %s\n", ToUtf8(caption).c_str(), ToUtf8(text).c_str());
}

std::optional<std::u16string> ModuleFileNameOverride()
{
    std::lock_guard lock(g_controlLock);
    return g_control.modulePath;
}

std::optional<std::u16string> CommandLineOverride()
{
    std::lock_guard lock(g_controlLock);
    return g_control.commandLine;
}

} // namespace pal::detail
