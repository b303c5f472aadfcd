// wsprintfW/wsprintfA on the lines the trace log writes: the time-stamped prefix of every line
// and a function-entry message.
#include "pal/winuser.h"

#include <benchmark/benchmark.h>

namespace {

constexpr size_t kBufferSize = 1025; // wsprintf stores up to 1024 characters and a terminator

void BM_WsprintfW_TracePrefix(benchmark::State& state)
{
    WCHAR buffer[kBufferSize];
    int sequence = 0;
    for (auto _ : state) {
        int n = wsprintfW(buffer, W("[%06d] [%02d/%02d %02d:%02d:%02d %03d] "), sequence, 11, 23, 6,
                          7, 8, 123);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
        ++sequence;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WsprintfW_TracePrefix);

void BM_WsprintfA_TracePrefix(benchmark::State& state)
{
    CHAR buffer[kBufferSize];
    int sequence = 0;
    for (auto _ : state) {
        int n = wsprintfA(buffer, "[%06d] [%02d/%02d %02d:%02d:%02d %03d] ", sequence, 11, 23, 6, 7,
                          8, 123);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
        ++sequence;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WsprintfA_TracePrefix);

void BM_WsprintfW_FunctionEntered(benchmark::State& state)
{
    WCHAR buffer[kBufferSize];
    const WCHAR* function = W("CHwProvider::CommitSnapshots");
    for (auto _ : state) {
        int n = wsprintfW(buffer, W("%s() entered\n"), function);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WsprintfW_FunctionEntered);

void BM_WsprintfA_FunctionEntered(benchmark::State& state)
{
    CHAR buffer[kBufferSize];
    const CHAR* function = "CHwProvider::CommitSnapshots";
    for (auto _ : state) {
        int n = wsprintfA(buffer, "%s() entered\n", function);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WsprintfA_FunctionEntered);

// The same message with the function name of the other width, converted on the way (the
// trace keeps narrow __FUNCTION__ names and writes wide lines).
void BM_WsprintfW_FunctionEnteredNarrowName(benchmark::State& state)
{
    WCHAR buffer[kBufferSize];
    const CHAR* function = "CHwProvider::CommitSnapshots";
    for (auto _ : state) {
        int n = wsprintfW(buffer, W("%S() entered\n"), function);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WsprintfW_FunctionEnteredNarrowName);

void BM_WsprintfA_FunctionEnteredWideName(benchmark::State& state)
{
    CHAR buffer[kBufferSize];
    const WCHAR* function = W("CHwProvider::CommitSnapshots");
    for (auto _ : state) {
        int n = wsprintfA(buffer, "%S() entered\n", function);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WsprintfA_FunctionEnteredWideName);

} // namespace
