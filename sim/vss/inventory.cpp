// The inventory of shadow copies: the table shadow_copies of vss.db.
#include "inventory.h"

#include "database.h"

namespace vsssim::detail {

namespace {

constexpr char kColumns[] =
    "snapshot_id, set_id, provider_id, context, attributes, original_volume, device, disk,"
    " created, source_lun, target_lun, exposed_name";

ShadowCopyInfo ReadRow(const CStatement& s)
{
    return {s.Guid(0),
            s.Guid(1),
            s.Guid(2),
            static_cast<LONG>(s.Int(3)),
            static_cast<LONG>(s.Int(4)),
            s.Text(5),
            s.Text(6),
            s.Text(7),
            s.Int(8),
            s.Bytes(9),
            s.Bytes(10),
            s.Text(11)};
}

} // namespace

HRESULT AddShadowCopies(std::vector<ShadowCopyInfo>& shadowCopies)
{
    return WithState(nullptr, [&](CDatabase& db) {
        for (ShadowCopyInfo& copy : shadowCopies) {
            CStatement s = db.Prepare(
                "INSERT INTO shadow_copies(snapshot_id, set_id, provider_id, context, attributes,"
                " original_volume, device, disk, created, source_lun, target_lun, exposed_name)"
                " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12)");
            s.Bind(1, copy.snapshotId).Bind(2, copy.setId).Bind(3, copy.providerId);
            s.Bind(4, copy.lContext).Bind(5, copy.lAttributes).Bind(6, copy.originalVolume);
            s.Bind(7, copy.deviceName).Bind(8, copy.diskName).Bind(9, copy.tsCreation);
            s.Bind(10, copy.sourceLun).Bind(11, copy.targetLun).Bind(12, copy.exposedName);
            s.Step();
            if (copy.diskName.empty())
                continue;
            std::u16string device = u"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy";
            for (char c : std::to_string(db.LastInsertId()))
                device.push_back(static_cast<char16_t>(c));
            db.Prepare("UPDATE shadow_copies SET device = ?1 WHERE seq = ?2")
                .Bind(1, device)
                .Bind(2, db.LastInsertId())
                .Step();
            copy.deviceName = device;
        }
        return S_OK;
    });
}

HRESULT ReadShadowCopies(std::vector<ShadowCopyInfo>* pShadowCopies)
{
    pShadowCopies->clear();
    return WithState(nullptr, [&](CDatabase& db) {
        CStatement s = db.Prepare(
            (std::string("SELECT ") + kColumns + " FROM shadow_copies ORDER BY seq").c_str());
        while (s.Step())
            pShadowCopies->push_back(ReadRow(s));
        return S_OK;
    });
}

HRESULT FindShadowCopy(const VSS_ID& snapshotId, ShadowCopyInfo* pShadowCopy)
{
    return WithState(nullptr, [&](CDatabase& db) {
        CStatement s = db.Prepare(
            (std::string("SELECT ") + kColumns + " FROM shadow_copies WHERE snapshot_id = ?1")
                .c_str());
        s.Bind(1, snapshotId);
        if (!s.Step())
            return VSS_E_OBJECT_NOT_FOUND;
        *pShadowCopy = ReadRow(s);
        return S_OK;
    });
}

HRESULT RemoveShadowCopy(const VSS_ID& snapshotId)
{
    return WithState(nullptr, [&](CDatabase& db) {
        db.Prepare("DELETE FROM shadow_copies WHERE snapshot_id = ?1").Bind(1, snapshotId).Step();
        return db.Changes() == 1 ? S_OK : VSS_E_OBJECT_NOT_FOUND;
    });
}

} // namespace vsssim::detail
