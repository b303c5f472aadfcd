// The process's RPC thread, which owns every Cap'n Proto connection and capability, and the
// worker threads that run the calls a server receives.
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"

#include <kj/async-io.h>

#include <functional>
#include <type_traits>
#include <utility>

namespace pal::detail::rpc {

// The loop's provider of sockets; used on the RPC thread only.
kj::AsyncIoProvider& LoopIo();
bool OnLoopThread();

// Runs job on the RPC thread soon, without waiting. Jobs reach the thread through the pal's own
// queue, not kj's cross-thread executor: Debian's kj is not built for ThreadSanitizer, so the
// hand-off inside it would look like a race.
void PostToLoop(std::function<void()> job);

// Runs job on the RPC thread and waits until the promise it returns settles; a failure of the
// connection or the call comes back as the HRESULT a proxy answers. On the RPC thread itself
// the job is started and not waited for.
HRESULT RunOnLoopAndWait(kj::Function<kj::Promise<void>()> job);

template <class F>
HRESULT RunOnLoop(F&& f)
{
    return RunOnLoopAndWait([&f]() -> kj::Promise<void> {
        if constexpr (std::is_void_v<std::invoke_result_t<F&>>) {
            f();
            return kj::READY_NOW;
        } else {
            return f();
        }
    });
}

// Hands a job to the worker threads (members of the process's multithreaded apartment).
void PostToWorkers(std::function<void()> job);

} // namespace pal::detail::rpc
