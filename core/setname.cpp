#include "core/setname.h"

#include "pal/winbase.h"
#include "pal/winuser.h"

void FormatGuidName(const GUID& guid, LPWSTR pszName)
{
    wsprintfW(pszName, W("{%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}"), guid.Data1,
              guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3],
              guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
}

void CSnapshotSetName::AppendBackupSuffix()
{
    const int cch = lstrlenW(m_sz);
    lstrcpynW(m_sz + cch, BACKUP_SET_NAME_SUFFIX, SNAPSHOT_SET_NAME_CCH - cch);
}
