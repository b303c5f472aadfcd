// The accounts of the emulated machine.
#include "pal/src/base/accounts.h"

#include "pal/src/base/internal.h"

#include <cstdlib>
#include <mutex>

namespace {

// The machine's own domain: its accounts' SIDs are S-1-5-21-<these three>-<RID>.
#define ORVSIM_DOMAIN_SID u"S-1-5-21-2735118460-1847362950-1650743821"

constexpr char16_t kAdministratorsSid[] = u"S-1-5-32-544";
constexpr char16_t kUsersSid[] = u"S-1-5-32-545";
constexpr char16_t kEveryoneSid[] = u"S-1-1-0";

std::mutex g_accountLock;
const pal::detail::MachineAccount* g_pChosen = nullptr;

} // namespace

namespace pal::detail {

const std::vector<MachineAccount>& MachineAccounts()
{
    static const std::vector<MachineAccount> accounts = {
        {u"LocalSystem", u"S-1-5-18", nullptr, true},
        {u"Administrator", ORVSIM_DOMAIN_SID u"-500", u"Orvsim-Admin1", true},
        {u"User", ORVSIM_DOMAIN_SID u"-1001", u"Orvsim-User1", false},
    };
    return accounts;
}

const MachineAccount* FindAccountByName(std::u16string_view name)
{
    if (EqualNoCase(name, u"NT AUTHORITY\\SYSTEM") || EqualNoCase(name, u".\\LocalSystem"))
        return &MachineAccounts()[0];
    if (size_t slash = name.find(u'\\'); slash != std::u16string_view::npos) {
        std::u16string_view domain = name.substr(0, slash);
        if (domain != u"." && !EqualNoCase(domain, kComputerName))
            return nullptr;
        name = name.substr(slash + 1);
    }
    for (const MachineAccount& account : MachineAccounts())
        if (EqualNoCase(name, account.pszName))
            return &account;
    return nullptr;
}

const MachineAccount* FindAccountBySid(std::u16string_view sid)
{
    for (const MachineAccount& account : MachineAccounts())
        if (EqualNoCase(sid, account.pszSid))
            return &account;
    return nullptr;
}

const char16_t* FindGroupSidByName(std::u16string_view name)
{
    if (size_t slash = name.find(u'\\'); slash != std::u16string_view::npos) {
        if (!EqualNoCase(name.substr(0, slash), u"BUILTIN"))
            return nullptr;
        name = name.substr(slash + 1);
        if (EqualNoCase(name, u"Everyone"))
            return nullptr;
    }
    if (EqualNoCase(name, u"Everyone"))
        return kEveryoneSid;
    if (EqualNoCase(name, u"Administrators"))
        return kAdministratorsSid;
    if (EqualNoCase(name, u"Users"))
        return kUsersSid;
    return nullptr;
}

std::vector<std::u16string> AccountTokenSids(const MachineAccount& account)
{
    std::vector<std::u16string> sids{account.pszSid};
    if (account.fAdministrator)
        sids.emplace_back(kAdministratorsSid);
    sids.emplace_back(kUsersSid);
    sids.emplace_back(kEveryoneSid);
    return sids;
}

const MachineAccount& ProcessAccount()
{
    {
        std::lock_guard lock(g_accountLock);
        if (g_pChosen)
            return *g_pChosen;
    }
    if (const char* env = std::getenv("ORVSIM_ACCOUNT"); env && *env)
        if (const MachineAccount* pAccount = FindAccountByName(ToUtf16(env)))
            return *pAccount;
    return MachineAccounts()[0];
}

} // namespace pal::detail

namespace pal {

bool SetProcessAccount(std::u16string_view name)
{
    const detail::MachineAccount* pAccount = nullptr;
    if (!name.empty()) {
        pAccount = detail::FindAccountByName(name);
        if (!pAccount)
            return false;
    }
    std::lock_guard lock(g_accountLock);
    g_pChosen = pAccount;
    return true;
}

std::u16string ProcessAccountName()
{
    return detail::ProcessAccount().pszName;
}

bool ProcessAccountIsAdministrator()
{
    return detail::ProcessAccount().fAdministrator;
}

} // namespace pal
