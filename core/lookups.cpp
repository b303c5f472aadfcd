#include "core/lookups.h"

#include "core/snapshotattr.h"
#include "pal/crt.h"
#include "pal/winbase.h"

namespace {

template <typename TRecord, typename TPredicate>
TRecord* FindFirst(CLinkedList<TRecord>& lst, TPredicate fnMatches)
{
    for (lst.MoveFirst(); lst.HasCurrent(); lst.MoveNext()) {
        if (fnMatches(*lst.Current()))
            return lst.Current();
    }
    return nullptr;
}

} // namespace

BOOL IsExactMatch(LPCWSTR pszGiven, LPCWSTR pszStored)
{
    return lstrcmpW(pszGiven, pszStored) == 0;
}

BOOL IsPrefixMatch(LPCWSTR pszGiven, LPCWSTR pszStored)
{
    int cchGiven = lstrlenW(pszGiven);
    if (cchGiven == 0)
        return TRUE;
    if (!pszStored)
        return FALSE;
    return wcsncmp(pszGiven, pszStored, static_cast<size_t>(cchGiven)) == 0;
}

BOOL IsSameSerialNoIdentity(LPCWSTR pszGiven, LPCWSTR pszStored)
{
    if (!pszGiven || !pszStored)
        return FALSE;
    for (int i = 0; i < SERIAL_NO_IDENTITY_CCH; ++i) {
        if (pszGiven[i] != pszStored[i])
            return FALSE;
        if (pszGiven[i] == 0)
            return TRUE;
    }
    return TRUE;
}

CSnapshotEntry* FindSnapshotEntryBySourceLun(CLinkedList<CSnapshotEntry>& lstSnapshots,
                                             LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                             LPCWSTR pszProductRevision, LPCWSTR pszSerialNo)
{
    return FindFirst(lstSnapshots, [&](const CSnapshotEntry& entry) {
        return IsExactMatch(pszVendorId, entry.SourceLunVendorId()) &&
               IsExactMatch(pszProductId, entry.SourceLunProductId()) &&
               IsExactMatch(pszProductRevision, entry.SourceLunProductRevision()) &&
               IsExactMatch(pszSerialNo, entry.SourceSerialNo());
    });
}

CSnapshotEntry* FindBackupSourceEntry(CLinkedList<CSnapshotEntry>& lstSnapshots,
                                      LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                      LPCWSTR pszProductRevision, LPCWSTR pszSourceLunPath)
{
    return FindFirst(lstSnapshots, [&](const CSnapshotEntry& entry) {
        return IsExactMatch(pszVendorId, entry.SourceLunVendorId()) &&
               IsExactMatch(pszProductId, entry.SourceLunProductId()) &&
               IsExactMatch(pszProductRevision, entry.SourceLunProductRevision()) &&
               IsExactMatch(pszSourceLunPath, entry.SourcePath()) &&
               IsRecoverySnapshot(entry.SnapshotAttr());
    });
}

CLCPair* FindLCPairByLunPath(CLinkedList<CLCPair>& lstLCPairs, LPCWSTR pszLunPath)
{
    return FindFirst(lstLCPairs,
                     [&](const CLCPair& pair) { return IsExactMatch(pszLunPath, pair.LunPath()); });
}

CTargetLunInfo* FindTargetLunBySerialNo(CLinkedList<CTargetLunInfo>& lstTargetLunMap,
                                        LPCWSTR pszSerialNo)
{
    return FindFirst(lstTargetLunMap, [&](const CTargetLunInfo& target) {
        return IsPrefixMatch(pszSerialNo, target.SerialNo());
    });
}

CTargetLunInfo* FindTargetLunByIdentity(CLinkedList<CTargetLunInfo>& lstTargetLunMap,
                                        LPCWSTR pszProductId, LPCWSTR pszProductRevision,
                                        LPCWSTR pszSerialNo)
{
    return FindFirst(lstTargetLunMap, [&](const CTargetLunInfo& target) {
        return IsPrefixMatch(pszProductId, target.ProductId()) &&
               IsPrefixMatch(pszProductRevision, target.ProductRevision()) &&
               IsSameSerialNoIdentity(pszSerialNo, target.SerialNo());
    });
}
