// Reading host disks out of the state, shared by the service's operations and the state's views
// so that both see a disk's address and mount points the same way.
#pragma once

#include "state.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace storagesim::detail {

// Drive letters and filer names compare without regard to case, as on the host.
inline bool EqualNoCase(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

// The mount points column holds a JSON array of strings; anything else in it is no mount point.
inline std::vector<std::string> ParseMountPoints(const std::string& json)
{
    std::vector<std::string> mountPoints;
    nlohmann::json array = nlohmann::json::parse(json, nullptr, false);
    if (array.is_array())
        for (const auto& mountPoint : array)
            if (mountPoint.is_string())
                mountPoints.push_back(mountPoint.get<std::string>());
    return mountPoints;
}

// Reads a disk's transport, port, bus, target, lunno, mount_points, readonly and shared
// columns, selected in that order from column iFirst on, into any record that names them alike.
template <class TDisk>
void ReadDiskAddress(const CStatement& s, int iFirst, TDisk* pDisk)
{
    pDisk->transport = s.Text(iFirst);
    pDisk->port = static_cast<BYTE>(s.Int(iFirst + 1));
    pDisk->bus = static_cast<BYTE>(s.Int(iFirst + 2));
    pDisk->target = static_cast<BYTE>(s.Int(iFirst + 3));
    pDisk->lun = static_cast<BYTE>(s.Int(iFirst + 4));
    for (std::string& mountPoint : ParseMountPoints(s.Text(iFirst + 5)))
        pDisk->mountPoints.push_back(std::move(mountPoint));
    pDisk->fReadonly = s.Int(iFirst + 6) != 0;
    pDisk->fShared = s.Int(iFirst + 7) != 0;
}

} // namespace storagesim::detail
