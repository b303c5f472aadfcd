// The creation's thread: events, the hold at the hand-off, the cut.
#include "creation.h"

#include "objects.h"
#include "simcodes.h"
#include "store/tessera.h"
#include "vsssupport.h"

#include "pal/palcontrol.h"
#include "pal/synchapi.h"

#include <thread>

namespace storagesim::detail {

namespace {

enum class CEvent
{
    kProgress,
    kReady,
};

// Calls every advised sink once and collects the answer: S_OK when every sink let the
// creation go on (or none is advised), else the first failure.
HRESULT Deliver(CVssSupport* pOwner, CEvent event, LONG lProgress, const std::u16string& name,
                const std::u16string& machine)
{
    IUnknown* rgSinks[PAL_CONNECTION_POINT_MAX];
    ULONG c = pOwner->CopySinks(rgSinks);
    HRESULT hrAnswer = S_OK;
    for (ULONG i = 0; i < c; ++i) {
        auto* pSink = static_cast<_ISnapShotEvents*>(rgSinks[i]);
        HRESULT hr =
            event == CEvent::kProgress
                ? pSink->OnKVXSnapOpProgress(name.c_str(), machine.c_str(), lProgress)
                : pSink->OnKVXSnapReady(reinterpret_cast<ULONG_PTR>(name.c_str()),
                                        reinterpret_cast<ULONG_PTR>(machine.c_str()), PROG_HANDOFF);
        if (FAILED(hr) && SUCCEEDED(hrAnswer))
            hrAnswer = hr;
        pSink->Release();
    }
    return hrAnswer;
}

} // namespace

void CCreation::Start(const std::shared_ptr<CCreation>& pCreation, CVssSupport* pOwner)
{
    CreationStarted();
    static_cast<IVSSSupport*>(pOwner)->AddRef();
    std::thread([pCreation, pOwner] {
        pCreation->Run(pOwner);
        static_cast<IVSSSupport*>(pOwner)->Release();
        CreationEnded();
    }).detach();
}

HRESULT CCreation::Wait(std::string* pWhy)
{
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [this] { return m_fDone; });
    if (pWhy)
        *pWhy = m_why;
    return m_hr;
}

void CCreation::GiveUp()
{
    std::lock_guard lock(m_lock);
    m_fGiveUp = true;
    m_changed.notify_all();
}

void CCreation::Release()
{
    std::lock_guard lock(m_lock);
    m_fCancelled = !m_fDone;
    m_fGiveUp = true;
    m_fReleased = true;
    m_changed.notify_all();
}

bool CCreation::Cancelled()
{
    std::lock_guard lock(m_lock);
    return m_fCancelled;
}

void CCreation::Complete(HRESULT hr, const std::string& why)
{
    std::lock_guard lock(m_lock);
    m_hr = hr;
    m_why = why;
    m_fDone = true;
    m_changed.notify_all();
}

void CCreation::WaitFor(const bool& fFlag)
{
    std::unique_lock lock(m_lock);
    // The service's stop is seen within a tenth of a second.
    while (!fFlag && !ServiceStopping())
        m_changed.wait_for(lock, std::chrono::milliseconds(100));
}

void CCreation::WaitForGiveUp()
{
    WaitFor(m_fGiveUp);
}

void CCreation::WaitForRelease()
{
    WaitFor(m_fReleased);
}

void CCreation::Run(CVssSupport* pOwner)
{
    CFaultHit hit;
    if (HRESULT hr = ConsumeFaults("CreateSnapShot1", &hit); FAILED(hr)) {
        Complete(hr, "The service cannot read its state");
        return;
    }
    if (hit.dwDelayMs)
        Sleep(hit.dwDelayMs);
    CHostSettings settings;
    ReadHostSettings(&settings);
    std::u16string name = pal::Utf8ToUtf16(m_name);
    std::u16string machine = pal::Utf8ToUtf16(settings.machine);

    Deliver(pOwner, CEvent::kProgress, PROG_POLICY_CHECK, name, machine);
    std::string why;
    const bool fInstant = settings.cut == Cut::kInstant;
    CInstantCut instant;
    if (HRESULT hr = CheckCreation(m_luns, m_name, m_dwKind, &why, &instant.lunIds); FAILED(hr)) {
        Complete(hr, why);
        return;
    }
    Deliver(pOwner, CEvent::kProgress, PROG_KVX_SNAPCREATE, name, machine);
    Deliver(pOwner, CEvent::kProgress, PROG_KVX_SNAP_PREPARE, name, machine);

    if (hit.fHandoffNever) {
        WaitForGiveUp();
        Complete(TESSERA_E_CREATION_STALLED,
                 "Snapshot " + m_name + " never became ready to be cut");
        return;
    }

    if (Cancelled()) {
        Complete(RPC_E_CALL_CANCELED, "The creation of snapshot " + m_name + " was cancelled");
        return;
    }

    std::vector<CEvent> handoffs;
    if (settings.handoff != Handoff::kReady)
        handoffs.push_back(CEvent::kProgress);
    if (settings.handoff != Handoff::kProgress)
        handoffs.push_back(CEvent::kReady);
    if (hit.fHandoffTwice) {
        std::vector<CEvent> again = handoffs;
        handoffs.insert(handoffs.end(), again.begin(), again.end());
    }

    // The first answer decides; later deliveries of the hand-off are made and their answers
    // ignored, as a service that repeats its notification does.
    HRESULT hrResult = S_OK;
    for (size_t i = 0; i < handoffs.size(); ++i) {
        HRESULT hrAnswer = Deliver(pOwner, handoffs[i], PROG_HANDOFF, name, machine);
        if (i > 0)
            continue;
        if (FAILED(hrAnswer) || Cancelled()) {
            hrResult = TESSERA_E_CREATION_ABANDONED;
            why = "Snapshot " + m_name + " was abandoned by its client";
            break;
        }
        if (FAILED(hit.hrFail)) {
            hrResult = hit.hrFail;
            why = "CreateSnapShot1 failed (injected fault)";
        } else if (fInstant) {
            hrResult = CaptureInstantCut(&instant, &why);
        } else {
            hrResult = CutSnapshot(m_luns, m_name, m_dwKind, &why);
        }
    }
    Complete(hrResult, why);
    // Recorded once the client has let go of the call, so that the record's write does not
    // compete with the client's last calls. Nobody waits for it: a failure here loses the
    // snapshot, as a storage system that fails after its cut does.
    if (fInstant && SUCCEEDED(hrResult)) {
        WaitForRelease();
        RecordInstantCut(instant, m_name, m_dwKind, nullptr);
    }
}

} // namespace storagesim::detail
