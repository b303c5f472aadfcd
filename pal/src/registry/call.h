// The frame of every registry API call: the process lock, one transaction, the fault hook and
// the checks on the key handle, and the notifications published after commit.
#pragma once

#include "pal/src/registry/handles.h"
#include "pal/src/registry/store.h"

#include <exception>
#include <new>
#include <utility>

namespace pal::detail::registry {

// One API call: under RegistryLock(), in one transaction (BEGIN IMMEDIATE when fWrite), with
// `body(Connection&, ChangeList&)` returning the call's status. Commits only on success; the
// changes recorded are published once the lock is released, so SetEvent never runs under it.
// `committed()` runs under the lock once the transaction has committed: what must not happen
// for a call that fails (a new handle, an armed notification) goes there.
template <class Body, class Committed>
LONG RunCall(bool fWrite, Body&& body, Committed&& committed)
{
    ChangeList changes;
    LONG status = ERROR_SUCCESS;
    {
        std::lock_guard lock(RegistryLock());
        try {
            Connection& conn = CurrentConnection(true);
            Transaction tx(conn, fWrite);
            status = body(conn, changes);
            if (status == ERROR_SUCCESS) {
                tx.Commit();
                committed();
            }
        } catch (const SqlError& e) {
            status = Win32FromSqlite(e.rc);
        } catch (const std::bad_alloc&) {
            status = ERROR_OUTOFMEMORY;
        } catch (const std::exception&) {
            // A thread that could not start; nothing else throws here.
            status = ERROR_NOT_ENOUGH_MEMORY;
        }
    }
    if (status == ERROR_SUCCESS && !changes.empty())
        PublishChanges(changes);
    return status;
}

template <class Body>
LONG RunCall(bool fWrite, Body&& body)
{
    return RunCall(fWrite, std::forward<Body>(body), [] {});
}

// The injected fault for `api` on the key path `path` (nullptr when there is no key), if any.
bool InjectedFault(const char* api, const std::u16string* path, LONG* pStatus);

// The start of a call on an open key, after its fault hook: the handle must be open, grant
// every right of samNeeded (ERROR_ACCESS_DENIED) and name a key that still exists
// (ERROR_KEY_DELETED).
LONG CheckKey(Connection& conn, const KeyHandle* pHandle, REGSAM samNeeded);

// Both of the above for calls whose fault argument is the key's own path.
LONG EnterKey(Connection& conn, const char* api, HKEY hKey, REGSAM samNeeded,
              const KeyHandle** ppHandle);

} // namespace pal::detail::registry
