// The machine-wide lock files of the hold of writes.
#include "writehold.h"

#include "hostdisks.h"

#include "pal/palcontrol.h"
#include "pal/sysinfoapi.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <map>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace vsssim::detail {

namespace {

// One file per LUN, named by its filer and path with every other character than letters and
// digits made '_', so "verdane01:/vol/vol1/lun1" becomes "verdane01__vol_vol1_lun1.lock".
std::string LockPath(const std::string& filer, const std::string& lunPath)
{
    std::string name = filer + ":" + lunPath;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '_';
    return pal::MachineRoot() + "/vss-writes/" + name + ".lock";
}

} // namespace

HRESULT CLunWriteLock::Acquire(const std::string& filer, const std::string& lunPath,
                               bool fExclusive)
{
    Release();
    const std::string path = LockPath(filer, lunPath);
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    m_fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (m_fd < 0)
        return E_FAIL;
    int rc;
    do
        rc = flock(m_fd, fExclusive ? LOCK_EX : LOCK_SH);
    while (rc != 0 && errno == EINTR);
    if (rc != 0) {
        Release();
        return E_FAIL;
    }
    return S_OK;
}

void CLunWriteLock::Release()
{
    if (m_fd >= 0)
        close(m_fd); // closing the file releases its lock
    m_fd = -1;
}

HRESULT CWriteHold::Hold(const std::vector<std::string>& mountPoints)
{
    Release();
    storagesim::StateView view;
    if (FAILED(storagesim::ReadState(&view)))
        return VSS_E_UNEXPECTED;
    std::map<std::string, std::pair<std::string, std::string>> luns;
    for (const std::string& mountPoint : mountPoints) {
        size_t iDisk = 0;
        if (!FindVolumeDisk(view, mountPoint, &iDisk) || view.disks[iDisk].filer.empty())
            continue;
        const storagesim::DiskInfo& disk = view.disks[iDisk];
        luns[LockPath(disk.filer, disk.path)] = {disk.filer, disk.path};
    }
    for (const auto& [path, lun] : luns) {
        m_locks.push_back(std::make_unique<CLunWriteLock>());
        if (FAILED(m_locks.back()->Acquire(lun.first, lun.second, true))) {
            m_locks.clear();
            return VSS_E_UNEXPECTED;
        }
    }
    m_fHeld = true;
    m_ullHeldTick = GetTickCount64();
    m_held = std::chrono::steady_clock::now();
    return S_OK;
}

void CWriteHold::Release()
{
    if (!m_fHeld)
        return;
    // Read before the locks go, so that any write let through ends after the release's tick.
    const auto released = std::chrono::steady_clock::now();
    const ULONGLONG ullReleasedTick = GetTickCount64();
    m_locks.clear();
    m_fHeld = false;
    RecordHold(m_ullHeldTick, ullReleasedTick,
               std::chrono::duration_cast<std::chrono::nanoseconds>(released - m_held).count());
}

} // namespace vsssim::detail
