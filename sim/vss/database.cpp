// The coordinator's database: its schema, the injected faults and the transaction frame.
#include "database.h"

#include "pal/palcontrol.h"
#include "pal/winerror.h"

#include <new>

namespace vsssim::detail {

namespace {

// Tables are named for what they hold. Ids and texts are kept as their bytes (GUIDs as 16
// bytes, names as UTF-16), so that a registration or a shadow copy reads back exactly as it was
// made; a shadow copy's LUN records as EncodeLunInformation writes them.
const char* const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS providers(seq INTEGER PRIMARY KEY AUTOINCREMENT,"
    " id BLOB NOT NULL UNIQUE, class_id BLOB NOT NULL, name BLOB NOT NULL, type INTEGER NOT NULL,"
    " version BLOB NOT NULL, version_id BLOB NOT NULL)",
    "CREATE TABLE IF NOT EXISTS faults(method TEXT PRIMARY KEY, code INTEGER NOT NULL,"
    " remaining INTEGER NOT NULL)",
    "CREATE TABLE IF NOT EXISTS shadow_copies(seq INTEGER PRIMARY KEY AUTOINCREMENT,"
    " snapshot_id BLOB NOT NULL UNIQUE, set_id BLOB NOT NULL, provider_id BLOB NOT NULL,"
    " context INTEGER NOT NULL, attributes INTEGER NOT NULL, original_volume BLOB NOT NULL,"
    " device BLOB NOT NULL, disk BLOB NOT NULL, created INTEGER NOT NULL,"
    " source_lun BLOB NOT NULL, target_lun BLOB NOT NULL, exposed_name BLOB NOT NULL)",
};

} // namespace

bool ConsumeFault(CDatabase& db, const char* method, LONGLONG* pllCode)
{
    CStatement s = db.Prepare("SELECT code, remaining FROM faults WHERE method = ?1");
    s.Bind(1, method);
    if (!s.Step())
        return false;
    *pllCode = s.Int(0);
    LONGLONG remaining = s.Int(1);
    if (remaining == 1)
        db.Prepare("DELETE FROM faults WHERE method = ?1").Bind(1, method).Step();
    else if (remaining > 1)
        db.Prepare("UPDATE faults SET remaining = remaining - 1 WHERE method = ?1")
            .Bind(1, method)
            .Step();
    return true;
}

HRESULT WithState(const char* method, const std::function<HRESULT(CDatabase&)>& operation)
{
    try {
        CDatabase db;
        db.Exec("BEGIN IMMEDIATE");
        for (const char* sql : kSchema)
            db.Exec(sql);
        LONGLONG llCode = S_OK;
        HRESULT hr =
            method && ConsumeFault(db, method, &llCode) ? static_cast<HRESULT>(llCode) : S_OK;
        if (SUCCEEDED(hr))
            hr = operation(db);
        // Operations write only when they succeed, and a consumed fault stays consumed.
        db.Exec("COMMIT");
        return hr;
    } catch (const CDbError&) {
        return VSS_E_UNEXPECTED;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace vsssim::detail
