// The LUN/clone pairs of a set as the store takes them: one contiguous array of the task
// allocator, which belongs to the store once it has accepted it.
#pragma once

#include "core/lcpair.h"
#include "core/lcpairtypes.h"
#include "core/linkedlist.h"

#include "pal/windef.h"

// A new array of every pair in list order: filer and LUN path copied when present, device
// copied (absent becomes empty), the attribute; the clone is NULL for the main set, or the
// recorded clone (absent becomes empty) for the backup set. E_OUTOFMEMORY leaves *pArray empty.
HRESULT BuildPairArray(CLinkedList<CLCPair>& lstLCPairs, BOOL fWithClones, LC_PAIR_ARRAY* pArray);

// Frees every string of the array and the array; the array is left empty.
void FreePairArray(LC_PAIR_ARRAY& array);

// An array the caller still owns: freed on every exit until Release hands it on.
class CPairArrayHolder
{
public:
    explicit CPairArrayHolder(LC_PAIR_ARRAY& array) : m_array(array) {}
    ~CPairArrayHolder()
    {
        if (m_fOwned)
            FreePairArray(m_array);
    }
    CPairArrayHolder(const CPairArrayHolder&) = delete;
    CPairArrayHolder& operator=(const CPairArrayHolder&) = delete;
    void Release() { m_fOwned = false; }

private:
    LC_PAIR_ARRAY& m_array;
    bool m_fOwned = true;
};
