// Event objects: manual- and auto-reset, named or not.
#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "pal/src/sync/handletable.h"
#include "pal/synchapi.h"
#include "pal/winerror.h"

namespace {

using pal::detail::KernelLock;

constexpr DWORD kEventQueryState = 0x0001;

class EventObject : public pal::detail::KernelObject
{
public:
    EventObject(bool fManualReset, bool fSignaled)
        : m_fManualReset(fManualReset), m_fSignaled(fSignaled)
    {}

    bool IsSignaledLocked() const override { return m_fSignaled; }
    // An auto-reset event lets exactly one waiter through per signal.
    void ConsumeSignalLocked() override
    {
        if (!m_fManualReset)
            m_fSignaled = false;
    }

    const pal::detail::AccessMapping& Mapping() const override
    {
        static const pal::detail::AccessMapping mapping = {
            0x00020000 | kEventQueryState, 0x00020000 | EVENT_MODIFY_STATE,
            0x00020000 | SYNCHRONIZE, EVENT_ALL_ACCESS};
        return mapping;
    }

    void SetLocked(bool fSignaled)
    {
        m_fSignaled = fSignaled;
        if (fSignaled)
            pal::detail::NotifyWaitersLocked();
    }

private:
    const bool m_fManualReset;
    bool m_fSignaled;
};

BOOL SetEventState(HANDLE hEvent, bool fSignaled)
{
    DWORD dwError = 0;
    {
        std::lock_guard lock(KernelLock());
        auto* pEvent =
            pal::detail::LookupHandleAsLocked<EventObject>(hEvent, EVENT_MODIFY_STATE, &dwError);
        if (pEvent) {
            pEvent->SetLocked(fSignaled);
            return TRUE;
        }
    }
    SetLastError(dwError);
    return FALSE;
}

} // namespace

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                           BOOL bInitialState, LPCWSTR lpName)
{
    // Security descriptors and inheritance mean nothing within one process.
    (void)lpEventAttributes;
    if (pal::detail::FailIfInjected("CreateEventW", lpName))
        return nullptr;
    return pal::detail::CreateNamedObject<EventObject>(
        lpName, EVENT_ALL_ACCESS, [bManualReset, bInitialState]() {
            return std::make_shared<EventObject>(bManualReset != FALSE, bInitialState != FALSE);
        });
}

HANDLE WINAPI OpenEventW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName)
{
    (void)bInheritHandle;
    if (pal::detail::FailIfInjected("OpenEventW", lpName))
        return nullptr;
    return pal::detail::OpenNamedObject<EventObject>(lpName, dwDesiredAccess);
}

BOOL WINAPI SetEvent(HANDLE hEvent)
{
    if (pal::detail::FailIfInjected("SetEvent"))
        return FALSE;
    return SetEventState(hEvent, true);
}

BOOL WINAPI ResetEvent(HANDLE hEvent)
{
    return SetEventState(hEvent, false);
}
