// Kernel objects and the process-wide handle table: what every HANDLE of this layer refers to.
//
// One lock (KernelLock) guards the table, the object namespace and the signal state of every
// object, so a wait can test and consume several objects atomically. Waiters sleep on one
// process-wide condition variable, woken by NotifyWaitersLocked after any state change.
#pragma once

#include "pal/windef.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace pal::detail {

// Generic rights (GENERIC_READ ...) mapped onto an object kind's own rights.
struct AccessMapping
{
    DWORD dwRead;
    DWORD dwWrite;
    DWORD dwExecute;
    DWORD dwAll;
};

// Base of every object a handle can refer to. Objects are shared_ptr-owned (make them with
// std::make_shared): by the handles that refer to them, by waits in progress and, for running
// threads, by the thread itself. The last owner may drop them anywhere but under KernelLock(),
// so destructors may not take it.
class KernelObject : public std::enable_shared_from_this<KernelObject>
{
public:
    KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;
    virtual ~KernelObject() = default;

    // Both are called with KernelLock() held, on the waiting thread (so an object owned by a
    // thread, like a mutex, can ask GetCurrentThreadId). A successful wait calls ConsumeSignal
    // on each object that satisfied it (an auto-reset event resets, a mutex is taken). An
    // object whose state becomes signalled calls NotifyWaitersLocked.
    virtual bool IsSignaledLocked() const { return false; }
    virtual void ConsumeSignalLocked() {}

    virtual const AccessMapping& Mapping() const;

    // The name in the process-wide namespace; empty when unnamed. Set once, before the object
    // is published.
    const std::u16string& Name() const { return m_name; }

private:
    friend class HandleTable;
    std::u16string m_name;
    ULONG m_cHandles = 0; // open handles, guarded by KernelLock()
};

using KernelObjectPtr = std::shared_ptr<KernelObject>;

// Access rights shared by every kind of object.
constexpr DWORD kSynchronize = 0x00100000;
constexpr DWORD kStandardRightsRequired = 0x000F0000;
constexpr DWORD kGenericRead = 0x80000000;
constexpr DWORD kGenericWrite = 0x40000000;
constexpr DWORD kGenericExecute = 0x20000000;
constexpr DWORD kGenericAll = 0x10000000;
constexpr DWORD kMaximumAllowed = 0x02000000;

// Turns generic and MAXIMUM_ALLOWED bits of `dwDesired` into the object's specific rights.
DWORD MapAccess(DWORD dwDesired, const AccessMapping& mapping);

// ---- The lock and the waiters ----
std::mutex& KernelLock();
// Wakes every sleeping waiter so it re-tests its objects. Caller holds KernelLock().
void NotifyWaitersLocked();
// Sleeps until NotifyWaitersLocked or the deadline (none: forever). Returns false once the
// deadline has passed. `lock` holds KernelLock(). May wake spuriously.
bool SleepUntilNotifiedLocked(std::unique_lock<std::mutex>& lock,
                              std::optional<std::chrono::steady_clock::time_point> deadline);
// Threads currently inside SleepUntilNotifiedLocked; lets tests know waiters are blocked.
ULONG SleepingWaiterCount();

// ---- Handles ----
// Pseudo handles that never name a table entry: GetCurrentProcess() and GetCurrentThread().
inline HANDLE CurrentProcessPseudoHandle()
{
    return reinterpret_cast<HANDLE>(LONG_PTR(-1));
}
inline HANDLE CurrentThreadPseudoHandle()
{
    return reinterpret_cast<HANDLE>(LONG_PTR(-2));
}
inline bool IsPseudoHandle(HANDLE h)
{
    return h == CurrentProcessPseudoHandle() || h == CurrentThreadPseudoHandle();
}

// A new handle with `dwAccess` to `object`; nullptr with the last error set when the table is
// full. The Locked form expects KernelLock() held.
HANDLE InsertHandle(KernelObjectPtr object, DWORD dwAccess);
HANDLE InsertHandleLocked(KernelObjectPtr object, DWORD dwAccess);

// The object behind `h` when `h` is open and grants every right in `dwAccess`; otherwise
// nullptr and *pdwError is ERROR_INVALID_HANDLE or ERROR_ACCESS_DENIED. Expects KernelLock();
// the pointer is good while the lock is held (shared_from_this keeps the object longer).
KernelObject* LookupHandleLocked(HANDLE h, DWORD dwAccess, DWORD* pdwError);

// As LookupHandleLocked, for an object of kind T: another kind is ERROR_INVALID_HANDLE (the kind
// is checked before the rights, as Windows does).
template <class T>
T* LookupHandleAsLocked(HANDLE h, DWORD dwAccess, DWORD* pdwError);

// The object behind `h` as a T, taking the lock: nullptr with the last error set when the
// handle is bad, names another kind of object (ERROR_INVALID_HANDLE) or lacks a right
// (ERROR_ACCESS_DENIED).
template <class T>
std::shared_ptr<T> ReferenceHandleAs(HANDLE h, DWORD dwAccess);

// Closes `h`; false with the last error set when it is not open. Pseudo handles close
// successfully without effect, as on Windows.
BOOL CloseKernelHandle(HANDLE h);

// Open handles in the table (for leak checks in tests).
ULONG OpenHandleCount();

// ---- Names ----
// Create-or-open of a named object of kind T, the common part of CreateEventW, CreateMutexW...
// With a null or empty name, `make` creates an unnamed object. When an object of that name
// exists and is a T, returns a new handle to it with ERROR_ALREADY_EXISTS as the last error;
// another kind fails with ERROR_INVALID_HANDLE. Otherwise creates it with `make` and sets the
// last error to 0. Invalid names fail (ERROR_FILENAME_EXCED_RANGE, ERROR_PATH_NOT_FOUND).
template <class T>
HANDLE CreateNamedObject(LPCWSTR lpName, DWORD dwAccess,
                         const std::function<std::shared_ptr<T>()>& make);
// Opens an existing named T: ERROR_INVALID_PARAMETER for a null name, ERROR_FILE_NOT_FOUND
// when no object has the name, ERROR_INVALID_HANDLE when it is another kind.
template <class T>
HANDLE OpenNamedObject(LPCWSTR lpName, DWORD dwDesiredAccess);

// ---- Implementation of the templates ----
using ObjectTypeTest = bool (*)(const KernelObject&);
KernelObject* LookupHandleOfTypeLocked(HANDLE h, DWORD dwAccess, ObjectTypeTest isType,
                                       DWORD* pdwError);
std::shared_ptr<KernelObject> ReferenceHandleOfType(HANDLE h, DWORD dwAccess,
                                                    ObjectTypeTest isType);
HANDLE CreateNamedObjectOfType(LPCWSTR lpName, DWORD dwAccess, ObjectTypeTest isType,
                               const std::function<KernelObjectPtr()>& make);
HANDLE OpenNamedObjectOfType(LPCWSTR lpName, DWORD dwDesiredAccess, ObjectTypeTest isType);

template <class T>
bool IsObjectOfType(const KernelObject& object)
{
    return dynamic_cast<const T*>(&object) != nullptr;
}

template <class T>
T* LookupHandleAsLocked(HANDLE h, DWORD dwAccess, DWORD* pdwError)
{
    return static_cast<T*>(LookupHandleOfTypeLocked(h, dwAccess, &IsObjectOfType<T>, pdwError));
}

template <class T>
std::shared_ptr<T> ReferenceHandleAs(HANDLE h, DWORD dwAccess)
{
    return std::static_pointer_cast<T>(ReferenceHandleOfType(h, dwAccess, &IsObjectOfType<T>));
}

template <class T>
HANDLE CreateNamedObject(LPCWSTR lpName, DWORD dwAccess,
                         const std::function<std::shared_ptr<T>()>& make)
{
    return CreateNamedObjectOfType(lpName, dwAccess, &IsObjectOfType<T>,
                                   [&make]() -> KernelObjectPtr { return make(); });
}

template <class T>
HANDLE OpenNamedObject(LPCWSTR lpName, DWORD dwDesiredAccess)
{
    return OpenNamedObjectOfType(lpName, dwDesiredAccess, &IsObjectOfType<T>);
}

} // namespace pal::detail
