// Reading the provider's trace files back into phases with their durations.
#include "tracephases.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace orvdemo {

namespace {

constexpr char kClass[] = "COrvaneHardwareProvider::";

// Milliseconds since the start of the month of a "[thread] [MM/DD hh:mm:ss mmm] " prefix.
bool ParsePrefix(const std::string& line, long* plMs)
{
    unsigned thread = 0, month = 0, day = 0, h = 0, m = 0, s = 0, ms = 0;
    if (std::sscanf(line.c_str(), "[%u] [%u/%u %u:%u:%u %u]", &thread, &month, &day, &h, &m, &s,
                    &ms) != 7)
        return false;
    *plMs = ((static_cast<long>(day) * 24 + h) * 60 + m) * 60000L + s * 1000L + ms;
    return true;
}

// The trace writes wide text as two bytes a character: only the low bytes carry ASCII.
std::string Narrow(const std::string& bytes)
{
    std::string text;
    text.reserve(bytes.size());
    for (char c : bytes)
        if (c != '\0')
            text.push_back(c);
    return text;
}

// The methods VSS calls, each once at a time; the provider's own helpers are left out.
bool IsVssMethod(const std::string& method)
{
    static const char* const kMethods[] = {"OnLoad",
                                           "OnUnload",
                                           "AreLunsSupported",
                                           "BeginPrepareSnapshot",
                                           "EndPrepareSnapshots",
                                           "PreCommitSnapshots",
                                           "CommitSnapshots",
                                           "PostCommitSnapshots",
                                           "GetTargetLuns",
                                           "LocateLuns",
                                           "FillInLunInfo",
                                           "PreFinalCommitSnapshots",
                                           "PostFinalCommitSnapshots",
                                           "AbortSnapshots",
                                           "OnLunEmpty"};
    return std::find(std::begin(kMethods), std::end(kMethods), method) != std::end(kMethods);
}

} // namespace

std::vector<TracePhase> ReadTracePhases(const std::string& directory)
{
    std::vector<std::string> files;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(directory, ec)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("orvp", 0) == 0 && entry.path().extension() == ".log")
            files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    std::vector<TracePhase> phases;
    std::map<std::string, long> open;
    long lLastMs = 0;
    for (const std::string& file : files) {
        std::ifstream in(file, std::ios::binary);
        std::stringstream bytes;
        bytes << in.rdbuf();
        std::istringstream lines(Narrow(bytes.str()));
        for (std::string line; std::getline(lines, line);) {
            // A thread's first line has no prefix: it was written just after the line before.
            ParsePrefix(line, &lLastMs);
            const size_t at = line.find(kClass);
            if (at == std::string::npos)
                continue;
            const std::string rest = line.substr(at + sizeof(kClass) - 1);
            const size_t paren = rest.find("() ");
            if (paren == std::string::npos || !IsVssMethod(rest.substr(0, paren)))
                continue;
            const std::string method = rest.substr(0, paren);
            const std::string what = rest.substr(paren + 3);
            if (what.rfind("entered", 0) == 0) {
                open[method] = lLastMs;
            } else if (what.rfind("exited", 0) == 0) {
                auto it = open.find(method);
                if (it == open.end())
                    continue;
                phases.push_back({method, lLastMs - it->second});
                open.erase(it);
            }
        }
    }
    return phases;
}

} // namespace orvdemo
