#include "core/pairarray.h"

#include "provider/strings.h"

#include "pal/combaseapi.h"
#include "pal/winerror.h"

#include <cstring>
#include <initializer_list>

namespace {

// A copy of a string that may be absent; false only when a present one cannot be copied.
bool CopyIfPresent(LPCWSTR pszSource, LPWSTR* ppszCopy)
{
    *ppszCopy = pszSource != nullptr ? DuplicateString(pszSource) : nullptr;
    return pszSource == nullptr || *ppszCopy != nullptr;
}

} // namespace

HRESULT BuildPairArray(CLinkedList<CLCPair>& lstLCPairs, BOOL fWithClones, LC_PAIR_ARRAY* pArray)
{
    *pArray = LC_PAIR_ARRAY{};
    const ULONG cPairs = lstLCPairs.GetCount();
    auto* pPairs = static_cast<LC_PAIR*>(CoTaskMemAlloc(sizeof(LC_PAIR) * cPairs));
    if (pPairs == nullptr)
        return E_OUTOFMEMORY;
    std::memset(pPairs, 0, sizeof(LC_PAIR) * cPairs);
    *pArray = LC_PAIR_ARRAY{cPairs, pPairs};
    CPairArrayHolder holder(*pArray);
    LC_PAIR* pPair = pPairs;
    for (lstLCPairs.MoveFirst(); lstLCPairs.HasCurrent(); lstLCPairs.MoveNext(), ++pPair) {
        const CLCPair& source = *lstLCPairs.Current();
        if (!CopyIfPresent(source.Filer(), &pPair->Filer) ||
            !CopyIfPresent(source.LunPath(), &pPair->LunPath))
            return E_OUTOFMEMORY;
        if (fWithClones && (pPair->Clone = DuplicateString(source.Clone())) == nullptr)
            return E_OUTOFMEMORY;
        if ((pPair->Device = DuplicateString(source.Device())) == nullptr)
            return E_OUTOFMEMORY;
        pPair->eSnapshotAttr = source.SnapshotAttr();
    }
    holder.Release();
    return S_OK;
}

void FreePairArray(LC_PAIR_ARRAY& array)
{
    for (ULONG i = 0; array.Pairs != nullptr && i < array.Count; ++i) {
        LC_PAIR& pair = array.Pairs[i];
        for (LPWSTR psz : {pair.Filer, pair.LunPath, pair.Clone, pair.Device})
            CoTaskMemFree(psz);
    }
    CoTaskMemFree(array.Pairs);
    array = LC_PAIR_ARRAY{};
}
