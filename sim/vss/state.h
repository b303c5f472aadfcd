// The coordinator's state: <machine root>/vss.db, opened for each operation (registrations are
// rare, and a fresh connection always sees the current machine root), one transaction each.
#pragma once

#include "pal/vss.h"
#include "pal/windef.h"

#include <string>
#include <vector>

namespace vsssim::detail {

struct ProviderRecord
{
    VSS_ID id;
    CLSID classId;
    std::u16string name;
    VSS_PROVIDER_TYPE type;
    std::u16string version;
    VSS_ID versionId;
};

// Each operation is one write transaction: it first consumes an injected fault for `method`
// (its code is the result, and nothing else happens), then does its work. A database failure
// is VSS_E_UNEXPECTED, the coordinator's code for an unexpected error.

// The system provider, then the registered ones in the order they were registered.
HRESULT ReadProviders(const char* method, std::vector<ProviderRecord>* pRecords);
// VSS_E_PROVIDER_ALREADY_REGISTERED when the id is registered (the system provider's too).
HRESULT AddProvider(const char* method, const ProviderRecord& record);
// VSS_E_PROVIDER_NOT_REGISTERED when no registration has the id (the system provider has none).
HRESULT RemoveProvider(const char* method, const VSS_ID& id);

} // namespace vsssim::detail
