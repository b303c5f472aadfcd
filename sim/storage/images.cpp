// LUN and snapshot images.
#include "images.h"

#include "state.h"
#include "storagesim.h"

#include <filesystem>
#include <fstream>
#include <system_error>

namespace storagesim::detail {

namespace {

[[noreturn]] void Fail(const std::string& what, const std::string& path)
{
    throw std::filesystem::filesystem_error(what, path, std::make_error_code(std::errc::io_error));
}

} // namespace

std::string LunImagePath(LONGLONG llLun)
{
    return ImageDirectory() + "/lun" + std::to_string(llLun) + ".img";
}

std::string SnapshotImagePath(LONGLONG llSnapshot)
{
    return ImageDirectory() + "/snapshot" + std::to_string(llSnapshot) + ".img";
}

void CreateImage(const std::string& path)
{
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        if (!file)
            Fail("cannot create image", path);
    }
    std::filesystem::resize_file(path, kImageBytes);
}

void CopyImage(const std::string& from, const std::string& to)
{
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
}

void RemoveImage(const std::string& path)
{
    std::error_code ec;
    std::filesystem::remove(path, ec);
}

void WriteImage(const std::string& path, DWORD dwOffset, const std::string& data)
{
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    if (!file)
        Fail("cannot open image", path);
    file.seekp(dwOffset);
    file.write(data.data(), static_cast<std::streamsize>(data.size()));
    file.flush();
    if (!file)
        Fail("cannot write image", path);
}

std::string ReadImage(const std::string& path, DWORD dwOffset, DWORD cb)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        Fail("cannot open image", path);
    std::string data(cb, '\0');
    file.seekg(dwOffset);
    file.read(data.data(), cb);
    if (!file)
        Fail("cannot read image", path);
    return data;
}

} // namespace storagesim::detail
