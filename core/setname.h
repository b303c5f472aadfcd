// The text of a snapshot set id, which is the name of the set on the storage system: the GUID
// in lower-case hexadecimal with its braces, 38 characters.
#pragma once

#include "pal/guiddef.h"
#include "pal/windef.h"

// Set names are formatted into zeroed buffers of this many UTF-16 code units; the backup set's
// name adds its suffix in the same buffer.
inline constexpr int SNAPSHOT_SET_NAME_CCH = 64;
inline constexpr WCHAR BACKUP_SET_NAME_SUFFIX[] = W("_backup");

// The arguments of a GUID for the format "{%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}".
#define GUID_FORMAT_ARGS(g)                                                                        \
    (g).Data1, (g).Data2, (g).Data3, (g).Data4[0], (g).Data4[1], (g).Data4[2], (g).Data4[3],       \
        (g).Data4[4], (g).Data4[5], (g).Data4[6], (g).Data4[7]

// Writes the 38 characters and the terminator of the GUID's text into pszName.
void FormatGuidName(const GUID& guid, LPWSTR pszName);

// A set name held on the stack: zeroed, then the text of the set id.
class CSnapshotSetName
{
public:
    explicit CSnapshotSetName(const GUID& guidSnapshotSetId)
    {
        FormatGuidName(guidSnapshotSetId, m_sz);
    }
    LPWSTR Get() { return m_sz; }
    // The backup set's name: the set's text followed by "_backup".
    void AppendBackupSuffix();

private:
    WCHAR m_sz[SNAPSHOT_SET_NAME_CCH] = {};
};
