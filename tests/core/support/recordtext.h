// Helpers of the core tests: printable field values and the fields of the records as lists.
#pragma once

#include "core/snapshotentry.h"
#include "core/targetluninfo.h"
#include "pal/windef.h"

#include <string>
#include <vector>

namespace orvtest {

// A field's text, or "<null>" when the field is absent.
std::string FieldText(LPCWSTR psz);

// The thirteen string fields of an entry, Filer first, in the record's order.
std::vector<LPCWSTR> StringFields(const CSnapshotEntry& entry);
// The ten string fields of a target record, in the record's order.
std::vector<LPCWSTR> StringFields(const CTargetLunInfo& target);

// An entry with every field set: distinct texts prefixed with `tag`.
CSnapshotEntry* NewFullEntry(const std::string& tag);
// A target record with every field set: distinct texts prefixed with `tag`.
CTargetLunInfo* NewFullTarget(const std::string& tag);

// A task-allocated copy of narrow text, for the ownership-taking setters.
LPWSTR TaskString(const std::string& text);

} // namespace orvtest
