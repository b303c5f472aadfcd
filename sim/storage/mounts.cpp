// The host's mount points of the service's disks: VSS mounts the disk of a shadow copy's target
// LUN at a drive letter when it exposes the copy, and takes the letter away again.
#include "diskrows.h"
#include "simcodes.h"
#include "state.h"
#include "storagesim.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace storagesim {

using detail::CState;
using detail::WithState;

namespace {

bool MountPointInUse(CState& state, const std::string& mountPoint)
{
    auto s = state.Prepare("SELECT mount_points FROM disks");
    while (s.Step()) {
        for (const std::string& used : detail::ParseMountPoints(s.Text(0)))
            if (detail::EqualNoCase(used, mountPoint))
                return true;
    }
    return false;
}

} // namespace

HRESULT MountDisk(const std::string& serial, const std::string& mountPoint)
{
    if (serial.empty() || mountPoint.empty())
        return E_INVALIDARG;
    return WithState(true, [&](CState& state) {
        auto s = state.Prepare("SELECT id, mount_points FROM disks WHERE serial = ?1");
        s.Bind(1, serial);
        if (!s.Step())
            return TESSERA_E_LUN_NOT_FOUND;
        const LONGLONG llDisk = s.Int(0);
        std::vector<std::string> mountPoints = detail::ParseMountPoints(s.Text(1));
        if (MountPointInUse(state, mountPoint))
            return HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
        mountPoints.push_back(mountPoint);
        // A shadow copy is shown as it was cut: the host sees its disk read-only.
        state.Prepare("UPDATE disks SET mount_points = ?1, readonly = 1 WHERE id = ?2")
            .Bind(1, nlohmann::json(mountPoints).dump())
            .Bind(2, llDisk)
            .Run();
        return S_OK;
    });
}

HRESULT UnmountDisk(const std::string& mountPoint)
{
    return WithState(true, [&](CState& state) {
        auto s = state.Prepare("SELECT id, mount_points FROM disks ORDER BY id");
        while (s.Step()) {
            std::vector<std::string> mountPoints = detail::ParseMountPoints(s.Text(1));
            auto it =
                std::find_if(mountPoints.begin(), mountPoints.end(), [&](const std::string& m) {
                    return detail::EqualNoCase(m, mountPoint);
                });
            if (it == mountPoints.end())
                continue;
            mountPoints.erase(it);
            const LONGLONG llDisk = s.Int(0);
            state.Prepare("UPDATE disks SET mount_points = ?1 WHERE id = ?2")
                .Bind(1, nlohmann::json(mountPoints).dump())
                .Bind(2, llDisk)
                .Run();
            return S_OK;
        }
        return TESSERA_E_DRIVE_NOT_FOUND;
    });
}

} // namespace storagesim
