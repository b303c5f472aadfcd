// The RPC thread's event loop and the workers of the multithreaded apartment.
#include "pal/src/com/rpc/loop.h"

#include "pal/objbase.h"

#include <condition_variable>
#include <csignal>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

namespace pal::detail::rpc {
namespace {

struct CLoop
{
    kj::AsyncIoProvider* m_pIo = nullptr;
    const kj::Executor* m_pExecutor = nullptr;
    std::thread::id m_idThread;
};

// The thread lives as long as the process: capabilities may be dropped until exit.
void LoopMain(CLoop* pLoop, std::promise<void>* pReady)
{
    auto io = kj::setupAsyncIo();
    pLoop->m_pIo = io.provider.get();
    pLoop->m_pExecutor = &kj::getCurrentThreadExecutor();
    pLoop->m_idThread = std::this_thread::get_id();
    pReady->set_value();
    kj::NEVER_DONE.wait(io.waitScope);
}

CLoop& Loop()
{
    static CLoop* pLoop = [] {
        // A peer that goes away mid-write must fail the write, not end the process.
        std::signal(SIGPIPE, SIG_IGN);
        auto* p = new CLoop();
        std::promise<void> ready;
        std::thread(LoopMain, p, &ready).detach();
        ready.get_future().wait();
        return p;
    }();
    return *pLoop;
}

struct CWorkers
{
    std::mutex m_lock;
    std::condition_variable m_cvJob;
    std::deque<std::function<void()>> m_jobs;
};

constexpr int kWorkers = 4;

void WorkerMain(CWorkers* pWorkers)
{
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(pWorkers->m_lock);
            pWorkers->m_cvJob.wait(lock, [&] { return !pWorkers->m_jobs.empty(); });
            job = std::move(pWorkers->m_jobs.front());
            pWorkers->m_jobs.pop_front();
        }
        job();
    }
}

CWorkers& Workers()
{
    static CWorkers* pWorkers = [] {
        auto* p = new CWorkers();
        for (int i = 0; i < kWorkers; ++i)
            std::thread(WorkerMain, p).detach();
        return p;
    }();
    return *pWorkers;
}

} // namespace

kj::AsyncIoProvider& LoopIo()
{
    return *Loop().m_pIo;
}

const kj::Executor& LoopExecutor()
{
    return *Loop().m_pExecutor;
}

bool OnLoopThread()
{
    return std::this_thread::get_id() == Loop().m_idThread;
}

void PostToWorkers(std::function<void()> job)
{
    CWorkers& workers = Workers();
    {
        std::lock_guard lock(workers.m_lock);
        workers.m_jobs.push_back(std::move(job));
    }
    workers.m_cvJob.notify_one();
}

} // namespace pal::detail::rpc
