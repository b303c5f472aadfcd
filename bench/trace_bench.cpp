// The cost of a trace line: a written line with its flush against a plain write(2) of the same
// bytes, and a line filtered out by the level test at the call site.
#include "diag/trace.h"
#include "pal/palcontrol.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

std::filesystem::path BenchDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "orvbench-XXXXXX").string();
    return mkdtemp(pattern.data());
}

// "[000001] [03/07 10:20:30 123] " + 4 spaces + the text, as the file receives it.
constexpr const char* LINE_TEXT = "CProviderCore::AddSnapshot() entered\n";

void BM_TraceLineWritten(benchmark::State& state)
{
    std::filesystem::path dir = BenchDir();
    std::u16string wdir = pal::Utf8ToUtf16(dir.string() + "/");
    TraceInit(TRACE_LEVEL_VERBOSE, wdir.c_str(), W("orvp"), 0);
    TraceW(W("\n"));
    CTraceScope scope(W("Bench"));
    for (auto _ : state)
        TRACE(TRACE_LEVEL_VERBOSE, W("%s() entered\n"), W("CProviderCore::AddSnapshot"));
    TraceClose();
    std::filesystem::remove_all(dir);
}
BENCHMARK(BM_TraceLineWritten);

void BM_PlainWriteOfTheSameBytes(benchmark::State& state)
{
    std::filesystem::path dir = BenchDir();
    int fd = open((dir / "plain.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    std::string line = std::string("[000001] [03/07 10:20:30 123]     ") + LINE_TEXT;
    line.replace(line.size() - 1, 1, "\r\n");
    for (auto _ : state)
        benchmark::DoNotOptimize(write(fd, line.data(), line.size()));
    close(fd);
    std::filesystem::remove_all(dir);
}
BENCHMARK(BM_PlainWriteOfTheSameBytes);

void BM_TraceLineFiltered(benchmark::State& state)
{
    TraceInit(TRACE_LEVEL_ERROR, nullptr, nullptr, 0);
    for (auto _ : state)
        TRACE(TRACE_LEVEL_VERBOSE, W("%s() entered\n"), W("CProviderCore::AddSnapshot"));
}
BENCHMARK(BM_TraceLineFiltered);

} // namespace
