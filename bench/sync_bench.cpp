// Costs of the synchronisation calls on their fast paths.
#include "pal/handleapi.h"
#include "pal/synchapi.h"

#include <benchmark/benchmark.h>

namespace {

void BM_EnterLeaveCriticalSection(benchmark::State& state)
{
    CRITICAL_SECTION cs;
    InitializeCriticalSection(&cs);
    for (auto _ : state) {
        EnterCriticalSection(&cs);
        LeaveCriticalSection(&cs);
    }
    DeleteCriticalSection(&cs);
}
BENCHMARK(BM_EnterLeaveCriticalSection);

void BM_SetEventThenWaitAutoReset(benchmark::State& state)
{
    HANDLE hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    for (auto _ : state) {
        SetEvent(hEvent);
        benchmark::DoNotOptimize(WaitForSingleObject(hEvent, INFINITE));
    }
    CloseHandle(hEvent);
}
BENCHMARK(BM_SetEventThenWaitAutoReset);

void BM_PollSignalledManualEvent(benchmark::State& state)
{
    HANDLE hEvent = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    for (auto _ : state)
        benchmark::DoNotOptimize(WaitForSingleObject(hEvent, 0));
    CloseHandle(hEvent);
}
BENCHMARK(BM_PollSignalledManualEvent);

} // namespace
