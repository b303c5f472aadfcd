// How the core finds a record in its lists. Every lookup walks the list from the first record
// with the list's own cursor and stops at the first match, leaving the cursor on it (so the
// caller can RemoveCurrent it) or on the head when nothing matches. No list is sorted.
#pragma once

#include "core/lcpair.h"
#include "core/linkedlist.h"
#include "core/snapshotentry.h"
#include "core/targetluninfo.h"
#include "pal/windef.h"

// The identity rule compares this many UTF-16 code units of two serial numbers: the serial
// numbers of the provider's storage systems are exactly this long.
inline constexpr int SERIAL_NO_IDENTITY_CCH = 12;

// Exact: lstrcmpW finds the whole strings equal (case-sensitive).
BOOL IsExactMatch(LPCWSTR pszGiven, LPCWSTR pszStored);
// Prefix: the stored string begins with the given one (case-sensitive); an empty given string
// matches anything, an absent stored string nothing else.
BOOL IsPrefixMatch(LPCWSTR pszGiven, LPCWSTR pszStored);
// The first 12 code units of both serial numbers agree. A serial number shorter than that is
// never read past its terminator; two equal short serial numbers match. An absent one never
// matches.
BOOL IsSameSerialNoIdentity(LPCWSTR pszGiven, LPCWSTR pszStored);

// The snapshot of a source LUN: vendor id, product id, product revision and serial number,
// each exact.
CSnapshotEntry* FindSnapshotEntryBySourceLun(CLinkedList<CSnapshotEntry>& lstSnapshots,
                                             LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                             LPCWSTR pszProductRevision, LPCWSTR pszSerialNo);

// The entry of the main set whose snapshot a recovered LUN belongs to: vendor id, product id
// and product revision exact against the LUN's identity and SourcePath exact against the
// target record's source LUN path. Entries that take no part in recovery (attribute 0 or
// less) are passed over; tracing them is the caller's business.
CSnapshotEntry* FindBackupSourceEntry(CLinkedList<CSnapshotEntry>& lstSnapshots,
                                      LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                      LPCWSTR pszProductRevision, LPCWSTR pszSourceLunPath);

// The pair of a source LUN: LunPath exact.
CLCPair* FindLCPairByLunPath(CLinkedList<CLCPair>& lstLCPairs, LPCWSTR pszLunPath);

// A mapped target LUN by serial number: SerialNo prefix.
CTargetLunInfo* FindTargetLunBySerialNo(CLinkedList<CTargetLunInfo>& lstTargetLunMap,
                                        LPCWSTR pszSerialNo);

// A mapped target LUN by its identity as the host reports it: ProductId prefix,
// ProductRevision prefix and the 12-code-unit serial number rule. The vendor id is not
// compared.
CTargetLunInfo* FindTargetLunByIdentity(CLinkedList<CTargetLunInfo>& lstTargetLunMap,
                                        LPCWSTR pszProductId, LPCWSTR pszProductRevision,
                                        LPCWSTR pszSerialNo);
