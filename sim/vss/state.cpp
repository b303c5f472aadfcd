// The coordinator's SQLite state: the registered providers.
#include "state.h"

#include "database.h"

#include "vsssim.h"

#include "pal/palcontrol.h"
#include "pal/winerror.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <functional>

namespace vsssim::detail {

namespace {

bool IsSystemProvider(const VSS_ID& id)
{
    return IsEqualGUID(id, kSystemProviderId);
}

} // namespace

HRESULT ReadProviders(const char* method, std::vector<ProviderRecord>* pRecords)
{
    pRecords->clear();
    return WithState(method, [&](CDatabase& db) {
        // The system provider's version id is not published.
        pRecords->push_back({kSystemProviderId, kSystemProviderClassId, kSystemProviderName,
                             VSS_PROV_SYSTEM, kSystemProviderVersion, GUID_NULL});
        CStatement s = db.Prepare("SELECT id, class_id, name, type, version, version_id"
                                  " FROM providers ORDER BY seq");
        while (s.Step())
            pRecords->push_back({s.Guid(0), s.Guid(1), s.Text(2),
                                 static_cast<VSS_PROVIDER_TYPE>(s.Int(3)), s.Text(4), s.Guid(5)});
        return S_OK;
    });
}

HRESULT AddProvider(const char* method, const ProviderRecord& record)
{
    return WithState(method, [&](CDatabase& db) {
        if (IsSystemProvider(record.id))
            return VSS_E_PROVIDER_ALREADY_REGISTERED;
        CStatement s = db.Prepare("INSERT OR IGNORE INTO providers(id, class_id, name, type,"
                                  " version, version_id) VALUES (?1, ?2, ?3, ?4, ?5, ?6)");
        s.Bind(1, record.id).Bind(2, record.classId).Bind(3, record.name);
        s.Bind(4, record.type).Bind(5, record.version).Bind(6, record.versionId);
        s.Step();
        return db.Changes() == 1 ? S_OK : VSS_E_PROVIDER_ALREADY_REGISTERED;
    });
}

HRESULT RemoveProvider(const char* method, const VSS_ID& id)
{
    return WithState(method, [&](CDatabase& db) {
        db.Prepare("DELETE FROM providers WHERE id = ?1").Bind(1, id).Step();
        return db.Changes() == 1 ? S_OK : VSS_E_PROVIDER_NOT_REGISTERED;
    });
}

} // namespace vsssim::detail
