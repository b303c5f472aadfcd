// The demonstration's writer thread.
#include "writer.h"

#include "sim/vss/vsssim.h"

#include "pal/sysinfoapi.h"

#include <cstdio>
#include <cstdlib>

namespace orvdemo {

std::string CWriter::Stamp(ULONG ulGeneration)
{
    char sz[24];
    std::snprintf(sz, sizeof(sz), "gen %08lu",
                  static_cast<unsigned long>(ulGeneration % 100000000));
    return std::string(sz, kStampBytes);
}

ULONG CWriter::Generation(const std::string& stamp)
{
    if (stamp.size() < kStampBytes || stamp.compare(0, 4, "gen ") != 0)
        return 0;
    return static_cast<ULONG>(std::strtoul(stamp.substr(4, 8).c_str(), nullptr, 10));
}

void CWriter::Start()
{
    m_fStop = false;
    m_thread = std::thread([this] { Run(); });
}

void CWriter::Stop()
{
    m_fStop = true;
    if (m_thread.joinable())
        m_thread.join();
}

std::vector<WriteRecord> CWriter::Records() const
{
    std::lock_guard<std::mutex> lock(m_lock);
    return m_records;
}

size_t CWriter::CountEndedSince(ULONGLONG ullTick) const
{
    std::lock_guard<std::mutex> lock(m_lock);
    size_t count = 0;
    for (const WriteRecord& record : m_records)
        count += record.ullEndTick >= ullTick ? 1 : 0;
    return count;
}

void CWriter::Run()
{
    for (ULONG ulGeneration = 1; !m_fStop; ++ulGeneration) {
        const ULONGLONG ullStart = GetTickCount64();
        HRESULT hr = vsssim::WriteVolumeData(m_volume, 0, Stamp(ulGeneration));
        const ULONGLONG ullEnd = GetTickCount64();
        if (FAILED(hr)) {
            m_hrFailure = hr;
            return;
        }
        std::lock_guard<std::mutex> lock(m_lock);
        m_records.push_back({ulGeneration, ullStart, ullEnd});
    }
}

} // namespace orvdemo
