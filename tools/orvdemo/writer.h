// A thread that keeps changing a volume through the host's view: each write puts a new
// generation stamp ("gen 00000042") at the start of the volume, and the writer records when
// each write began and ended on the platform clock.
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvdemo {

struct WriteRecord
{
    ULONG ulGeneration;
    ULONGLONG ullStartTick;
    ULONGLONG ullEndTick;
};

class CWriter
{
public:
    explicit CWriter(std::u16string volume) : m_volume(std::move(volume)) {}
    CWriter(const CWriter&) = delete;
    CWriter& operator=(const CWriter&) = delete;
    ~CWriter() { Stop(); }

    void Start();
    // Stops after the current write; the first failure of a write, if any, is kept.
    void Stop();
    std::vector<WriteRecord> Records() const;
    // Writes that ended at or after the tick.
    size_t CountEndedSince(ULONGLONG ullTick) const;
    HRESULT Failure() const { return m_hrFailure; }

    static std::string Stamp(ULONG ulGeneration);
    // The generation of a stamp; 0 when the bytes are not one.
    static ULONG Generation(const std::string& stamp);
    static constexpr DWORD kStampBytes = 12;

private:
    void Run();

    std::u16string m_volume;
    std::thread m_thread;
    std::atomic<bool> m_fStop{false};
    mutable std::mutex m_lock;
    std::vector<WriteRecord> m_records;
    std::atomic<HRESULT> m_hrFailure{S_OK};
};

} // namespace orvdemo
