// Helpers of the core tests: printable field values and the fields of the records as lists.
#pragma once

#include "core/snapshotentry.h"
#include "core/targetluninfo.h"
#include "pal/palcontrol.h"
#include "pal/windef.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvtest {

// A field's text, or "<null>" when the field is absent.
std::string FieldText(LPCWSTR psz);

// The texts of `fields`, each as FieldText gives it.
std::vector<std::string> FieldTexts(const std::vector<LPCWSTR>& fields);

// Runs `attempt(n)` for n = 1, 2, ... until it returns true, and returns that n: the attempt
// makes the n-th task allocation of the operation it tries fail (pal::FailTaskAllocAt).
template <class Attempt>
ULONG SweepTaskAllocations(Attempt attempt, ULONG limit = 50)
{
    for (ULONG n = 1; n < limit; ++n) {
        bool fDone = attempt(n);
        pal::FailTaskAllocAt(0);
        if (fDone)
            return n;
    }
    ADD_FAILURE() << "the operation never succeeded";
    return 0;
}

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
