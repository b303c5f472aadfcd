// The asynchronous creation of a snapshot: a thread of the service delivers the progress
// events to every advised sink, holds its call at the hand-off until the sinks answer, cuts the
// snapshot at the moment the answer is S_OK and abandons it on a failure.
#pragma once

#include "model.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace storagesim::detail {

class CVssSupport;

// What the creation's thread and its call object share.
class CCreation
{
public:
    CCreation(std::vector<CCreationLun> luns, std::string name, DWORD dwKind)
        : m_luns(std::move(luns)), m_name(std::move(name)), m_dwKind(dwKind)
    {}

    // Blocks until the creation has ended; returns its result and description.
    HRESULT Wait(std::string* pWhy);
    // The client waits in Finish_ or dropped the call: a creation stalled before its
    // hand-off gives up.
    void GiveUp();
    // The client let go of the call. If the creation is still running COM cancels it, and it
    // stops at its next step without cutting anything.
    void Release();

    // Runs the creation on a new thread of the service, which holds pOwner until it ends.
    static void Start(const std::shared_ptr<CCreation>& pCreation, CVssSupport* pOwner);

private:
    void Run(CVssSupport* pOwner);
    void Complete(HRESULT hr, const std::string& why);
    // Each waits until its flag is set (by GiveUp, or by Release) or the service stops.
    void WaitFor(const bool& fFlag);
    void WaitForGiveUp();
    void WaitForRelease();
    bool Cancelled();

    const std::vector<CCreationLun> m_luns;
    const std::string m_name;
    const DWORD m_dwKind;

    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_fDone = false;
    bool m_fGiveUp = false;
    bool m_fCancelled = false;
    bool m_fReleased = false;
    HRESULT m_hr = S_OK;
    std::string m_why;
};

} // namespace storagesim::detail
