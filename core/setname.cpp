#include "core/setname.h"

#include "pal/winbase.h"
#include "pal/winuser.h"

void FormatGuidName(const GUID& guid, LPWSTR pszName)
{
    wsprintfW(pszName, W("{%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}"),
              GUID_FORMAT_ARGS(guid));
}

void CSnapshotSetName::AppendBackupSuffix()
{
    const int cch = lstrlenW(m_sz);
    lstrcpynW(m_sz + cch, BACKUP_SET_NAME_SUFFIX, SNAPSHOT_SET_NAME_CCH - cch);
}
