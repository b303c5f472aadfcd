// The RPC thread's event loop and the workers of the multithreaded apartment.
#include "pal/src/com/rpc/loop.h"

#include "pal/objbase.h"

#include <condition_variable>
#include <csignal>
#include <deque>
#include <future>
#include <mutex>
#include <sys/eventfd.h>
#include <thread>

namespace pal::detail::rpc {
namespace {

// Failures of the loop's own tasks are the jobs' business: each job settles its waiter itself.
class CIgnoreErrors final : public kj::TaskSet::ErrorHandler
{
public:
    void taskFailed(kj::Exception&&) override {}
};

struct CLoop
{
    kj::AsyncIoProvider* m_pIo = nullptr;
    kj::TaskSet* m_pTasks = nullptr;
    std::thread::id m_idThread;
    int m_fdWake = -1; // eventfd: written when a job is posted
    std::mutex m_lock;
    std::deque<std::function<void()>> m_jobs; // guarded by m_lock
};

void RunPostedJobs(CLoop* pLoop)
{
    std::deque<std::function<void()>> jobs;
    {
        std::lock_guard lock(pLoop->m_lock);
        jobs.swap(pLoop->m_jobs);
    }
    for (auto& job : jobs)
        job();
}

kj::Promise<void> WatchWake(CLoop* pLoop, kj::AsyncInputStream& wake, uint64_t* pCount)
{
    return wake.tryRead(pCount, sizeof(*pCount), sizeof(*pCount))
        .then([pLoop, &wake, pCount](size_t) {
            RunPostedJobs(pLoop);
            return WatchWake(pLoop, wake, pCount);
        });
}

// The thread lives as long as the process: capabilities may be dropped until exit.
void LoopMain(CLoop* pLoop, std::promise<void>* pReady)
{
    auto io = kj::setupAsyncIo();
    CIgnoreErrors errors;
    kj::TaskSet tasks(errors);
    pLoop->m_pIo = io.provider.get();
    pLoop->m_pTasks = &tasks;
    pLoop->m_idThread = std::this_thread::get_id();
    auto wake = io.lowLevelProvider->wrapInputFd(pLoop->m_fdWake);
    uint64_t ullCount = 0;
    pReady->set_value();
    WatchWake(pLoop, *wake, &ullCount).wait(io.waitScope);
}

CLoop& Loop()
{
    static CLoop* pLoop = [] {
        // A peer that goes away mid-write must fail the write, not end the process.
        std::signal(SIGPIPE, SIG_IGN);
        auto* p = new CLoop();
        p->m_fdWake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
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

void PostToLoop(std::function<void()> job)
{
    CLoop& loop = Loop();
    {
        std::lock_guard lock(loop.m_lock);
        loop.m_jobs.push_back(std::move(job));
    }
    eventfd_write(loop.m_fdWake, 1);
}

HRESULT RunOnLoopAndWait(kj::Function<kj::Promise<void>()> job)
{
    auto settle = [](std::promise<HRESULT>* pDone, kj::Promise<void> promise) {
        return promise.then([pDone] { pDone->set_value(S_OK); },
                            [pDone](kj::Exception&& e) {
                                pDone->set_value(e.getType() == kj::Exception::Type::DISCONNECTED
                                                     ? RPC_E_DISCONNECTED
                                                     : RPC_E_SERVERFAULT);
                            });
    };
    if (OnLoopThread()) {
        Loop().m_pTasks->add(kj::evalNow(kj::mv(job)));
        return S_OK;
    }
    std::promise<HRESULT> done;
    PostToLoop([&] { Loop().m_pTasks->add(settle(&done, kj::evalNow(kj::mv(job)))); });
    return done.get_future().get();
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
