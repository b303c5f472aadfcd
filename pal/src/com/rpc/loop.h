// The process's RPC thread, which owns every Cap'n Proto connection and capability, and the
// worker threads that run the calls a server receives.
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"

#include <kj/async-io.h>

#include <functional>
#include <utility>

namespace pal::detail::rpc {

// The loop's provider of sockets; used on the RPC thread only.
kj::AsyncIoProvider& LoopIo();
const kj::Executor& LoopExecutor();
bool OnLoopThread();

// Runs f on the RPC thread and waits for it (and for the promise it returns); a failure of the
// connection or the call comes back as the HRESULT a proxy answers.
template <class F>
HRESULT RunOnLoop(F&& f)
{
    try {
        LoopExecutor().executeSync(std::forward<F>(f));
        return S_OK;
    } catch (const kj::Exception& e) {
        return e.getType() == kj::Exception::Type::DISCONNECTED ? RPC_E_DISCONNECTED
                                                                : RPC_E_SERVERFAULT;
    } catch (...) {
        return RPC_E_SERVERFAULT;
    }
}

// Hands a job to the worker threads (members of the process's multithreaded apartment).
void PostToWorkers(std::function<void()> job);

} // namespace pal::detail::rpc
