// The accounts of the emulated machine and the account the calling process runs under.
#pragma once

#include "pal/windef.h"

#include <string>
#include <string_view>
#include <vector>

namespace pal::detail {

// The emulated computer's name, as account names qualify their domain ("ORVSIM\User").
inline constexpr char16_t kComputerName[] = u"ORVSIM";

struct MachineAccount
{
    const char16_t* pszName;     // as services and tools name it: "LocalSystem", "Administrator"
    const char16_t* pszSid;      // textual SID, "S-1-5-18"
    const char16_t* pszPassword; // null: the account has no password to check (LocalSystem)
    bool fAdministrator;         // member of BUILTIN\Administrators (S-1-5-32-544)
};

// The machine's accounts: the local system account, an administrator and a plain user.
const std::vector<MachineAccount>& MachineAccounts();

// An account as a service's configuration or a tool names it, case-insensitively: the plain
// name, ".\Name", "ORVSIM\Name", and for the local system account also "NT AUTHORITY\SYSTEM"
// and ".\LocalSystem". Null when the machine has no such account.
const MachineAccount* FindAccountByName(std::u16string_view name);
// An account by its textual SID ("S-1-5-21-...-500"); null when none has it.
const MachineAccount* FindAccountBySid(std::u16string_view sid);

// The textual SID of one of the machine's groups by its name, case-insensitively: "Everyone",
// "Administrators" and "Users", the last two also as "BUILTIN\Administrators" and
// "BUILTIN\Users". Null when the machine has no such group.
const char16_t* FindGroupSidByName(std::u16string_view name);

// The SIDs a caller of the account presents: its own, then its groups' (Administrators,
// Users, Everyone), as a token lists them.
std::vector<std::u16string> AccountTokenSids(const MachineAccount& account);

// The account the calling process runs under: the one pal::SetProcessAccount chose, else
// $ORVSIM_ACCOUNT (the service control manager sets it for a service's process), else the
// local system account.
const MachineAccount& ProcessAccount();

} // namespace pal::detail
