// The hold of a volume's writes, machine-wide: one lock file per LUN under the machine root
// (<root>/vss-writes/), which each write through the host's view takes shared for its duration
// and VSS takes exclusively from the flush to the release around the commit. A write waits on
// the lock, so it waits in any process of the machine, and a hold waits for the writes under
// way to end, as a flush does.
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace vsssim::detail {

class CLunWriteLock
{
public:
    CLunWriteLock() = default;
    CLunWriteLock(const CLunWriteLock&) = delete;
    CLunWriteLock& operator=(const CLunWriteLock&) = delete;
    ~CLunWriteLock() { Release(); }

    // Takes the lock of the LUN (filer and path) shared (a write) or exclusive (a hold); waits
    // while another holder excludes it. E_FAIL when the lock file cannot be opened.
    HRESULT Acquire(const std::string& filer, const std::string& lunPath, bool fExclusive);
    void Release();

private:
    int m_fd = -1;
};

// The hold of a set's volumes ("E:\"), each resolved to its LUN in the storage state; the
// locks are taken in the order of their files, so that two sets never wait on each other. The
// window from the hold to the release is recorded in the process's SetMeasures.
class CWriteHold
{
public:
    CWriteHold() = default;
    CWriteHold(const CWriteHold&) = delete;
    CWriteHold& operator=(const CWriteHold&) = delete;
    ~CWriteHold() { Release(); }

    HRESULT Hold(const std::vector<std::string>& mountPoints);
    void Release();

private:
    std::vector<std::unique_ptr<CLunWriteLock>> m_locks;
    bool m_fHeld = false;
    ULONGLONG m_ullHeldTick = 0;
    std::chrono::steady_clock::time_point m_held;
};

// The process's record of its last set (vsssim::LastSetMeasures).
void RecordHold(ULONGLONG ullHeldTick, ULONGLONG ullReleasedTick, LONGLONG llHoldNs);
void RecordSet(LONGLONG llSetNs, LONGLONG llProviderNs);

} // namespace vsssim::detail
