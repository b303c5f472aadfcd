// The process's table of open registry keys (HKEY values) and the predefined roots.
// Every function expects RegistryLock() held.
#pragma once

#include "pal/winreg.h"

#include <string>

namespace pal::detail::registry {

class Connection;

struct KeyHandle
{
    LONGLONG llKeyId = 0;
    REGSAM samGranted = 0;
    std::u16string path; // canonical full path (see names.h)
    bool fPredefined = false;
};

// Generic rights and MAXIMUM_ALLOWED turned into key rights.
REGSAM MapKeyAccess(REGSAM samDesired);

// A new HKEY for `handle`. Values are never reused within a process, so a stale HKEY fails
// with ERROR_INVALID_HANDLE instead of reaching another key.
HKEY InsertHandle(KeyHandle handle);
// The key behind an open or predefined HKEY; nullptr when there is none.
const KeyHandle* FindHandle(HKEY hKey);
// Forgets an opened HKEY; false when it is not open (predefined keys are never erased).
bool EraseHandle(HKEY hKey);

// Called when the session opens a new database: every opened HKEY becomes invalid and the
// predefined ones point at the new database's roots.
void ForgetHandles();
void ResetPredefinedHandles(const Connection& conn);

bool IsPredefinedKey(HKEY hKey);

} // namespace pal::detail::registry
