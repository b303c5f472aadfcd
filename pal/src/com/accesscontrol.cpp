// The runtime's access control object (CLSID_DCOMAccessControl): a list of entries allowing or
// denying COM_RIGHTS_EXECUTE to trustees, and the check of a trustee against it. COM may ask it
// from any thread, so every method takes the object's lock.
#include "pal/iaccess.h"
#include "pal/objbase.h"
#include "pal/securitybaseapi.h"
#include "pal/src/base/accounts.h"
#include "pal/src/com/runtime.h"
#include "pal/src/security/sid.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

namespace {

using pal::detail::MachineAccount;

// One entry: the trustee in the form it was given in, and the SID it stands for.
struct CEntry
{
    bool fDenied;
    TRUSTEE_FORM form;
    TRUSTEE_TYPE type;
    std::u16string name;    // of a TRUSTEE_IS_NAME trustee
    std::vector<BYTE> sid;  // of a TRUSTEE_IS_SID trustee
    std::u16string sidText; // whom the entry is for, either way
};

// The SID a single trustee given by SID or by name stands for.
HRESULT ResolveTrustee(const TRUSTEE_W* pTrustee, std::u16string* pSidText)
{
    if (!pTrustee || pTrustee->pMultipleTrustee ||
        pTrustee->MultipleTrusteeOperation != NO_MULTIPLE_TRUSTEE || !pTrustee->ptstrName)
        return E_INVALIDARG;
    if (pTrustee->TrusteeForm == TRUSTEE_IS_SID) {
        *pSidText = pal::detail::SidToText(pTrustee->ptstrName);
        return pSidText->empty() ? E_INVALIDARG : S_OK;
    }
    if (pTrustee->TrusteeForm != TRUSTEE_IS_NAME)
        return E_INVALIDARG;
    std::u16string_view name(pTrustee->ptstrName);
    if (const MachineAccount* pAccount = pal::detail::FindAccountByName(name))
        *pSidText = pAccount->pszSid;
    else if (const char16_t* pszGroup = pal::detail::FindGroupSidByName(name))
        *pSidText = pszGroup;
    else
        return HRESULT_FROM_WIN32(ERROR_NONE_MAPPED);
    return S_OK;
}

HRESULT MakeEntry(const ACTRL_ACCESS_ENTRYW& given, CEntry* pEntry)
{
    if ((given.fAccessFlags != ACTRL_ACCESS_ALLOWED && given.fAccessFlags != ACTRL_ACCESS_DENIED) ||
        given.Access != COM_RIGHTS_EXECUTE || given.Inheritance != NO_INHERITANCE)
        return E_INVALIDARG;
    const TRUSTEE_W& trustee = given.Trustee;
    if (HRESULT hr = ResolveTrustee(&trustee, &pEntry->sidText); FAILED(hr))
        return hr;
    pEntry->fDenied = given.fAccessFlags == ACTRL_ACCESS_DENIED;
    pEntry->form = trustee.TrusteeForm;
    pEntry->type = trustee.TrusteeType;
    if (trustee.TrusteeForm == TRUSTEE_IS_NAME) {
        pEntry->name = trustee.ptstrName;
    } else {
        const BYTE* pb = reinterpret_cast<const BYTE*>(trustee.ptstrName);
        pEntry->sid.assign(pb, pb + GetLengthSid(trustee.ptstrName));
    }
    return S_OK;
}

// The entries of a list as the object will keep them, denied ones first.
HRESULT ReadList(const ACTRL_ACCESSW* pAccessList, std::vector<CEntry>* pEntries)
{
    // The system's implementation takes one property entry: the object itself.
    if (!pAccessList || pAccessList->cEntries != 1 || !pAccessList->pPropertyAccessList)
        return E_INVALIDARG;
    const ACTRL_PROPERTY_ENTRYW& property = pAccessList->pPropertyAccessList[0];
    const ACTRL_ACCESS_ENTRY_LISTW* pList = property.pAccessEntryList;
    if (property.lpProperty || !pList || (pList->cEntries > 0 && !pList->pAccessList))
        return E_INVALIDARG;
    for (ULONG i = 0; i < pList->cEntries; ++i) {
        CEntry entry;
        if (HRESULT hr = MakeEntry(pList->pAccessList[i], &entry); FAILED(hr))
            return hr;
        pEntries->push_back(std::move(entry));
    }
    std::stable_partition(pEntries->begin(), pEntries->end(),
                          [](const CEntry& e) { return e.fDenied; });
    return S_OK;
}

size_t RoundUp(size_t cb)
{
    return (cb + 7) & ~size_t(7);
}

// The bytes an entry's trustee takes after the structures of a copied list.
size_t TrusteeBytes(const CEntry& entry)
{
    return RoundUp(entry.form == TRUSTEE_IS_NAME ? (entry.name.size() + 1) * sizeof(WCHAR)
                                                 : entry.sid.size());
}

class CAccessControl final : public IAccessControl
{
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IAccessControl)) {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *ppv = static_cast<IAccessControl*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_cRef; }
    STDMETHODIMP_(ULONG) Release() override
    {
        ULONG cRef = --m_cRef;
        if (cRef == 0)
            delete this;
        return cRef;
    }

    STDMETHODIMP GrantAccessRights(PACTRL_ACCESSW pAccessList) override
    {
        return Update(pAccessList, false);
    }
    STDMETHODIMP SetAccessRights(PACTRL_ACCESSW pAccessList) override
    {
        return Update(pAccessList, true);
    }
    STDMETHODIMP SetOwner(PTRUSTEEW, PTRUSTEEW) override { return E_NOTIMPL; }

    STDMETHODIMP RevokeAccessRights(LPWSTR lpProperty, ULONG cTrustees,
                                    TRUSTEEW prgTrustees[]) override
    {
        if (lpProperty || cTrustees == 0 || !prgTrustees)
            return E_INVALIDARG;
        try {
            std::vector<std::u16string> sids(cTrustees);
            for (ULONG i = 0; i < cTrustees; ++i)
                if (HRESULT hr = ResolveTrustee(&prgTrustees[i], &sids[i]); FAILED(hr))
                    return hr;
            std::lock_guard lock(m_lock);
            std::erase_if(m_entries, [&](const CEntry& e) {
                return std::find(sids.begin(), sids.end(), e.sidText) != sids.end();
            });
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    STDMETHODIMP GetAllAccessRights(LPWSTR lpProperty,
                                    PACTRL_ACCESSW_ALLOCATE_ALL_NODES* ppAccessList,
                                    PTRUSTEEW* ppOwner, PTRUSTEEW* ppGroup) override
    {
        if (!ppAccessList)
            return E_INVALIDARG;
        *ppAccessList = nullptr;
        if (ppOwner)
            *ppOwner = nullptr;
        if (ppGroup)
            *ppGroup = nullptr;
        if (lpProperty)
            return E_INVALIDARG;
        std::lock_guard lock(m_lock);
        return CopyList(ppAccessList);
    }

    STDMETHODIMP IsAccessAllowed(PTRUSTEEW pTrustee, LPWSTR lpProperty, ACCESS_RIGHTS AccessRights,
                                 BOOL* pfAccessAllowed) override
    {
        if (!pfAccessAllowed)
            return E_INVALIDARG;
        *pfAccessAllowed = FALSE;
        if (lpProperty || (AccessRights != 0 && AccessRights != COM_RIGHTS_EXECUTE))
            return E_INVALIDARG;
        try {
            std::u16string sidText;
            if (HRESULT hr = ResolveTrustee(pTrustee, &sidText); FAILED(hr))
                return hr;
            // The trustee as its account's token presents it: its own SID and its groups'.
            std::vector<std::u16string> token{sidText};
            if (const MachineAccount* pAccount = pal::detail::FindAccountBySid(sidText))
                token = pal::detail::AccountTokenSids(*pAccount);
            std::lock_guard lock(m_lock);
            // Denied entries come first, so the first entry for the trustee decides.
            for (const CEntry& entry : m_entries) {
                if (std::find(token.begin(), token.end(), entry.sidText) != token.end()) {
                    *pfAccessAllowed = entry.fDenied ? FALSE : TRUE;
                    break;
                }
            }
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

private:
    ~CAccessControl() = default;

    HRESULT Update(const ACTRL_ACCESSW* pAccessList, bool fReplace)
    {
        if (HRESULT hr = pal::detail::InjectedComFault(
                fReplace ? "IAccessControl::SetAccessRights" : "IAccessControl::GrantAccessRights",
                nullptr);
            FAILED(hr))
            return hr;
        try {
            std::vector<CEntry> entries;
            if (HRESULT hr = ReadList(pAccessList, &entries); FAILED(hr))
                return hr;
            std::lock_guard lock(m_lock);
            if (!fReplace) {
                // New denied, old denied, new allowed, old allowed.
                auto firstNewAllowed = std::find_if(entries.begin(), entries.end(),
                                                    [](const CEntry& e) { return !e.fDenied; });
                auto firstOldAllowed = std::find_if(m_entries.begin(), m_entries.end(),
                                                    [](const CEntry& e) { return !e.fDenied; });
                size_t cOldDenied = static_cast<size_t>(firstOldAllowed - m_entries.begin());
                entries.insert(firstNewAllowed, m_entries.begin(), firstOldAllowed);
                entries.insert(entries.end(),
                               m_entries.begin() + static_cast<ptrdiff_t>(cOldDenied),
                               m_entries.end());
            }
            m_entries = std::move(entries);
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    // The entries as one task-allocated block: the list, its one property entry, the entry list,
    // the entries, then each trustee's name or SID.
    HRESULT CopyList(PACTRL_ACCESSW* ppAccessList) const
    {
        size_t cbStructs = sizeof(ACTRL_ACCESSW) + sizeof(ACTRL_PROPERTY_ENTRYW) +
                           sizeof(ACTRL_ACCESS_ENTRY_LISTW) +
                           m_entries.size() * sizeof(ACTRL_ACCESS_ENTRYW);
        size_t cb = cbStructs;
        for (const CEntry& entry : m_entries)
            cb += TrusteeBytes(entry);
        auto* pBlock = static_cast<BYTE*>(CoTaskMemAlloc(cb));
        if (!pBlock)
            return E_OUTOFMEMORY;
        std::memset(pBlock, 0, cb);
        auto* pList = reinterpret_cast<ACTRL_ACCESSW*>(pBlock);
        auto* pProperty = reinterpret_cast<ACTRL_PROPERTY_ENTRYW*>(pList + 1);
        auto* pEntryList = reinterpret_cast<ACTRL_ACCESS_ENTRY_LISTW*>(pProperty + 1);
        auto* pEntries = reinterpret_cast<ACTRL_ACCESS_ENTRYW*>(pEntryList + 1);
        pList->cEntries = 1;
        pList->pPropertyAccessList = pProperty;
        pProperty->pAccessEntryList = pEntryList;
        pEntryList->cEntries = static_cast<ULONG>(m_entries.size());
        pEntryList->pAccessList = m_entries.empty() ? nullptr : pEntries;
        BYTE* pData = pBlock + cbStructs;
        for (const CEntry& entry : m_entries) {
            ACTRL_ACCESS_ENTRYW& out = *pEntries++;
            out.Trustee.MultipleTrusteeOperation = NO_MULTIPLE_TRUSTEE;
            out.Trustee.TrusteeForm = entry.form;
            out.Trustee.TrusteeType = entry.type;
            out.Trustee.ptstrName = reinterpret_cast<LPWSTR>(pData);
            out.fAccessFlags = entry.fDenied ? ACTRL_ACCESS_DENIED : ACTRL_ACCESS_ALLOWED;
            out.Access = COM_RIGHTS_EXECUTE;
            out.Inheritance = NO_INHERITANCE;
            if (entry.form == TRUSTEE_IS_NAME)
                std::memcpy(pData, entry.name.data(), entry.name.size() * sizeof(WCHAR));
            else
                std::memcpy(pData, entry.sid.data(), entry.sid.size());
            pData += TrusteeBytes(entry);
        }
        *ppAccessList = pList;
        return S_OK;
    }

    std::atomic<ULONG> m_cRef{1};
    mutable std::mutex m_lock;
    std::vector<CEntry> m_entries; // denied entries first, then allowed ones
};

} // namespace

namespace pal::detail {

HRESULT CreateAccessControlObject(REFIID riid, void** ppv)
{
    auto* p = new (std::nothrow) CAccessControl();
    if (!p)
        return E_OUTOFMEMORY;
    HRESULT hr = p->QueryInterface(riid, ppv);
    p->Release();
    return hr;
}

} // namespace pal::detail
