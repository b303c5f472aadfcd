// One LUN/clone pair of a snapshot set: a list node that owns one LC_PAIR block of the COM task
// allocator, in the layout that the core later copies into the LC_PAIR_ARRAY for the store.
#pragma once

#include "core/lcpairtypes.h"
#include "core/linkedlist.h"
#include "pal/windef.h"

class CLCPair : public CListNode
{
public:
    CLCPair() = default;
    ~CLCPair();

    // Releases the block held so far, then fills a new zeroed block with a copy of each string
    // that is present and the attribute. FALSE when an allocation fails; the pair then holds
    // no block at all.
    BOOL Set(LPCWSTR pszFiler, LPCWSTR pszLunPath, LPCWSTR pszClone, LPCWSTR pszDevice,
             LONG eSnapshotAttr);

    // Keeps the clone when it already equals the argument; otherwise replaces it with a copy
    // (a null argument becomes the empty string). FALSE when an allocation fails, and the pair
    // is then as it was.
    BOOL SetClone(LPCWSTR pszClone);

    // The block, or null before a successful Set; the caller does not free it.
    const LC_PAIR* Pair() const { return m_pPair; }
    LPCWSTR Filer() const { return m_pPair ? m_pPair->Filer : nullptr; }
    LPCWSTR LunPath() const { return m_pPair ? m_pPair->LunPath : nullptr; }
    LPCWSTR Clone() const { return m_pPair ? m_pPair->Clone : nullptr; }
    LPCWSTR Device() const { return m_pPair ? m_pPair->Device : nullptr; }
    LONG SnapshotAttr() const { return m_pPair ? m_pPair->eSnapshotAttr : 0; }

private:
    void Release();

    LC_PAIR* m_pPair = nullptr;
};
