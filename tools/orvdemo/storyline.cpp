// The demonstration's lines and checks.
#include "storyline.h"

#include "tools/orvsim/events_format.h"

#include "pal/palcontrol.h"
#include "pal/winsvc.h"

#include <cstdio>
#include <iostream>

namespace orvdemo {

void CStoryline::Title(const std::string& text)
{
    std::cout << text << "\n\n";
}

void CStoryline::Line(const std::string& label, const std::string& text)
{
    std::string line = label;
    line.resize(9, ' ');
    std::cout << line << text << "\n";
}

bool CStoryline::Check(const std::string& name, bool fHeld)
{
    ++m_cChecks;
    if (!fHeld) {
        m_failed.push_back(name);
        std::cout << "CHECK FAILED: " << name << "\n";
    }
    return fHeld;
}

bool CStoryline::Check(const std::string& name, HRESULT hr)
{
    if (SUCCEEDED(hr))
        return Check(name, true);
    char code[16];
    std::snprintf(code, sizeof(code), "0x%08X", static_cast<unsigned>(hr));
    return Check(name + " (" + code + ")", false);
}

int CStoryline::Finish()
{
    std::cout << "\n";
    if (m_failed.empty()) {
        std::cout << "Result   all " << m_cChecks << " checks held\n";
        return 0;
    }
    std::cout << "Result   " << m_failed.size() << " of " << m_cChecks
              << " checks failed, first: " << m_failed.front() << "\n";
    return 1;
}

std::string Ms(LONGLONG llNanoseconds)
{
    char sz[32];
    std::snprintf(sz, sizeof(sz), "%.1f ms", static_cast<double>(llNanoseconds) / 1e6);
    return sz;
}

std::string StateName(DWORD dwState)
{
    switch (dwState) {
    case SERVICE_STOPPED:
        return "stopped";
    case SERVICE_START_PENDING:
        return "starting";
    case SERVICE_STOP_PENDING:
        return "stopping";
    case SERVICE_RUNNING:
        return "running";
    default:
        return "state " + std::to_string(dwState);
    }
}

std::string EventSummary(const pal::EventLogRecord& record)
{
    std::string text = pal::Utf16ToUtf8(orvsim::events::Describe(record));
    text = text.substr(0, text.find_first_of("\r\n"));
    std::string line = orvsim::events::LevelName(record.wType) + " " +
                       pal::Utf16ToUtf8(record.source) + " " +
                       std::to_string(record.dwEventId & 0xFFFF) + ": " + text;
    if (line.size() > 88)
        line = line.substr(0, 85) + "...";
    return line;
}

} // namespace orvdemo
