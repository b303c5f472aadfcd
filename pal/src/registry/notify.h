// Change notification: the armed RegNotifyChangeKeyValue calls of this process and the watcher
// thread that brings changes made by other processes.
//
// Every committed change is logged in the database with a sequence number. An arming notes the
// last number then; the first later change that matches signals it. Changes made by this
// process are matched as soon as their call commits (PublishChanges); those of other
// processes by a watcher thread that reads the log every 50 ms while anything is armed.
#pragma once

#include "pal/winreg.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

namespace pal::detail::registry {

// The caller of a synchronous RegNotifyChangeKeyValue, blocked until its change.
class NotifyWaiter
{
public:
    void Signal();
    void Wait();

private:
    std::mutex m_lock;
    std::condition_variable m_cv;
    bool m_fSignaled = false;
};

struct Watch
{
    HKEY hKey = nullptr;
    std::string path; // folded canonical path, UTF-8
    bool fSubtree = false;
    DWORD dwFilter = 0;
    LONGLONG llSeen = 0; // changes up to this sequence number do not concern this arming
    ULONGLONG ullGeneration = 0;
    HANDLE hEvent = nullptr;
    std::shared_ptr<NotifyWaiter> pWaiter;
};

// With RegistryLock() held.
void ArmNotification(Watch watch);
// Signals and ends the notifications armed on hKey (it is being closed).
void EndNotifications(HKEY hKey);
// With RegistryLock() held, when the session switches to another database: drops every
// notification (a synchronous caller is released).
void ForgetNotifications();
// Notifications armed in this process (for tests).
size_t ArmedNotificationCount();

} // namespace pal::detail::registry
