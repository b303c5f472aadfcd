// The backing images of the simulated LUNs and snapshots: small files under the machine root.
// Failures throw std::filesystem::filesystem_error, which the operation frame turns into
// TESSERA_E_STATE.
#pragma once

#include "pal/windef.h"

#include <string>

namespace storagesim::detail {

std::string LunImagePath(LONGLONG llLun);
std::string SnapshotImagePath(LONGLONG llSnapshot);
// A new image of kImageBytes zero bytes.
void CreateImage(const std::string& path);
void CopyImage(const std::string& from, const std::string& to);
void RemoveImage(const std::string& path);
void WriteImage(const std::string& path, DWORD dwOffset, const std::string& data);
std::string ReadImage(const std::string& path, DWORD dwOffset, DWORD cb);

} // namespace storagesim::detail
