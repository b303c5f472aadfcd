// Armed notifications, their matching against changes and the watcher thread.
#include "pal/src/registry/notify.h"

#include "pal/src/registry/call.h"
#include "pal/src/registry/names.h"
#include "pal/src/registry/tree.h"

#include "pal/synchapi.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <thread>

namespace pal::detail::registry {

namespace {

// Often enough that another process's change signals well within 250 ms.
constexpr auto kPollInterval = std::chrono::milliseconds(50);
// A watcher with nothing armed stays this long: a caller that re-arms after each signal does
// not pay for a new thread, nor wait a whole interval for its first read.
constexpr auto kIdleLinger = std::chrono::seconds(2);

// `path` is `ancestor` or lies below it.
bool IsWithin(std::string_view path, std::string_view ancestor)
{
    if (path.size() < ancestor.size() || path.substr(0, ancestor.size()) != ancestor)
        return false;
    return path.size() == ancestor.size() || path[ancestor.size()] == '\\';
}

bool Matches(const Watch& watch, std::string_view changePath, DWORD dwKind)
{
    // Deleting the watched key (or a key above it) ends the watch whatever its filter.
    if (dwKind == kChangeDeleted)
        return IsWithin(watch.path, changePath);
    if ((watch.dwFilter & dwKind) == 0)
        return false;
    return watch.fSubtree ? IsWithin(changePath, watch.path) : changePath == watch.path;
}

void Fire(const Watch& watch)
{
    if (watch.hEvent)
        SetEvent(watch.hEvent);
    if (watch.pWaiter)
        watch.pWaiter->Signal();
}

class Notifier
{
public:
    static Notifier& Instance()
    {
        static Notifier notifier;
        return notifier;
    }

    ~Notifier()
    {
        {
            std::lock_guard lock(m_lock);
            m_fStop = true;
        }
        m_cv.notify_all();
        if (m_thread.joinable())
            m_thread.join();
    }

    void Arm(Watch watch)
    {
        std::lock_guard lock(m_lock);
        m_watches.push_back(std::move(watch));
        if (!m_fRunning) {
            // A watcher that stopped itself is on its way out and needs no lock to finish.
            if (m_thread.joinable())
                m_thread.join();
            m_fRunning = true;
            m_thread = std::thread([this] { Run(); });
        }
    }

    void Publish(const ChangeList& changes)
    {
        std::vector<Watch> fired = Take([&changes](const Watch& w) {
            return std::any_of(changes.begin(), changes.end(), [&w](const Change& change) {
                return change.llSeq > w.llSeen && Matches(w, change.path, change.dwKind);
            });
        });
        for (const Watch& watch : fired)
            Fire(watch);
    }

    void End(HKEY hKey)
    {
        std::vector<Watch> ended = Take([hKey](const Watch& w) { return w.hKey == hKey; });
        for (const Watch& watch : ended)
            Fire(watch);
    }

    void Forget()
    {
        std::vector<Watch> dropped = Take([](const Watch&) { return true; });
        // An event of the old machine may be closed by now; only blocked callers are released.
        for (const Watch& watch : dropped)
            if (watch.pWaiter)
                watch.pWaiter->Signal();
    }

    size_t Count()
    {
        std::lock_guard lock(m_lock);
        return m_watches.size();
    }

private:
    Notifier()
    {
        // Constructed after the session it polls, hence destroyed (and joined) before it.
        (void)RegistryLock();
    }

    // Removes the watches `pred` picks and returns them, under the lock; `pred` may update a
    // watch it leaves armed.
    template <class Pred>
    std::vector<Watch> Take(Pred pred)
    {
        std::vector<Watch> taken;
        std::lock_guard lock(m_lock);
        for (auto it = m_watches.begin(); it != m_watches.end();) {
            if (pred(*it)) {
                taken.push_back(std::move(*it));
                it = m_watches.erase(it);
            } else {
                ++it;
            }
        }
        return taken;
    }

    void Run()
    {
        std::unique_lock lock(m_lock);
        auto idleSince = std::chrono::steady_clock::now();
        for (;;) {
            m_cv.wait_for(lock, kPollInterval, [this] { return m_fStop; });
            auto now = std::chrono::steady_clock::now();
            if (!m_watches.empty())
                idleSince = now;
            if (m_fStop || now - idleSince > kIdleLinger) {
                m_fRunning = false;
                return;
            }
            if (m_watches.empty())
                continue;
            lock.unlock();
            Poll();
            lock.lock();
        }
    }

    // Reads the changes logged since the oldest arming and matches them.
    void Poll()
    {
        struct Row
        {
            LONGLONG llSeq;
            std::string path;
            DWORD dwKind;
        };
        std::vector<Row> rows;
        LONGLONG llLast = 0;
        ULONGLONG ullGeneration = 0;
        try {
            std::lock_guard registryLock(RegistryLock());
            Connection* pConn = OpenConnection();
            if (!pConn)
                return;
            ullGeneration = CurrentGeneration();
            LONGLONG llFrom = 0;
            {
                std::lock_guard lock(m_lock);
                bool fAny = false;
                for (const Watch& w : m_watches)
                    if (w.ullGeneration == ullGeneration && (!fAny || w.llSeen < llFrom)) {
                        llFrom = w.llSeen;
                        fAny = true;
                    }
                if (!fAny)
                    return;
            }
            Transaction tx(*pConn, false);
            llLast = LastChangeSeq(*pConn);
            if (llLast <= llFrom)
                return;
            Statement s =
                pConn->Prepare("SELECT seq, path, kind FROM changes WHERE seq > ?1 ORDER BY seq");
            s.Bind(1, llFrom);
            while (s.Step())
                rows.push_back(
                    Row{s.Int64(0), std::string(s.Text(1)), static_cast<DWORD>(s.Int64(2))});
        } catch (const SqlError&) {
            return; // the next round tries again
        } catch (const std::bad_alloc&) {
            return;
        }
        // Changes after the first one still logged were pruned before this watcher read them.
        LONGLONG llFirst = rows.empty() ? llLast + 1 : rows.front().llSeq;
        std::vector<Watch> fired = Take([&](Watch& w) {
            if (w.ullGeneration != ullGeneration)
                return false;
            bool fMatch = w.llSeen + 1 < llFirst ||
                          std::any_of(rows.begin(), rows.end(), [&w](const Row& row) {
                              return row.llSeq > w.llSeen && Matches(w, row.path, row.dwKind);
                          });
            if (!fMatch && w.llSeen < llLast)
                w.llSeen = llLast;
            return fMatch;
        });
        for (const Watch& watch : fired)
            Fire(watch);
    }

    std::mutex m_lock;
    std::condition_variable m_cv;
    std::list<Watch> m_watches;
    std::thread m_thread;
    bool m_fRunning = false;
    bool m_fStop = false;
};

} // namespace

void NotifyWaiter::Signal()
{
    {
        std::lock_guard lock(m_lock);
        m_fSignaled = true;
    }
    m_cv.notify_all();
}

void NotifyWaiter::Wait()
{
    std::unique_lock lock(m_lock);
    m_cv.wait(lock, [this] { return m_fSignaled; });
}

void ArmNotification(Watch watch)
{
    Notifier::Instance().Arm(std::move(watch));
}

void EndNotifications(HKEY hKey)
{
    Notifier::Instance().End(hKey);
}

void ForgetNotifications()
{
    Notifier::Instance().Forget();
}

size_t ArmedNotificationCount()
{
    return Notifier::Instance().Count();
}

void PublishChanges(const ChangeList& changes)
{
    Notifier::Instance().Publish(changes);
}

} // namespace pal::detail::registry

LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY hKey, BOOL bWatchSubtree, DWORD dwNotifyFilter,
                                       HANDLE hEvent, BOOL fAsynchronous)
{
    using namespace pal::detail::registry;
    Watch watch;
    LONG status = RunCall(
        false,
        [&](Connection& conn, ChangeList&) -> LONG {
            const KeyHandle* pHandle = nullptr;
            if (LONG st = EnterKey(conn, "RegNotifyChangeKeyValue", hKey, KEY_NOTIFY, &pHandle))
                return st;
            if (dwNotifyFilter == 0 || (dwNotifyFilter & ~DWORD(REG_LEGAL_CHANGE_FILTER)) != 0)
                return ERROR_INVALID_PARAMETER;
            if (fAsynchronous && !hEvent)
                return ERROR_INVALID_PARAMETER;
            watch.hKey = hKey;
            watch.path = FoldedPathUtf8(pHandle->path);
            watch.fSubtree = bWatchSubtree != FALSE;
            watch.dwFilter = dwNotifyFilter;
            watch.llSeen = LastChangeSeq(conn);
            watch.ullGeneration = CurrentGeneration();
            if (fAsynchronous)
                watch.hEvent = hEvent;
            else
                watch.pWaiter = std::make_shared<NotifyWaiter>();
            return ERROR_SUCCESS;
        },
        [&] { ArmNotification(watch); });
    if (status == ERROR_SUCCESS && watch.pWaiter)
        watch.pWaiter->Wait();
    return status;
}
