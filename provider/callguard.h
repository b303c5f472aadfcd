// The end of a guarded call of the provider front: VSS receives the few codes it expects from a
// hardware provider while the trace and the event log keep the real one; the call's temporary
// strings are freed on every return path; a failed call reports the operation's own event.
#pragma once

#include "core/snapshotentry.h"
#include "host/eventlog.h"

#include "pal/windef.h"

// The guarded operations, each with its mapping rule and failure reaction.
enum class CallGuardOp
{
    AreLunsSupported,
    BeginPrepareSnapshot,
    GetTargetLuns,
    LocateLuns,
    OnLunEmpty,
    FillInLunInfo,
    OnLunStateChange,
    ResyncLuns,
    OnReuseLuns,
    GetProviderCapabilities,
    EndPrepareSnapshots,
    OnLoad,
};

class CCallGuard
{
public:
    // pEventLog: the provider class's writer, or null when there is none (no event is then
    // reported). pszContext: the insertion string of the failure event (the device name, the
    // snapshot set id text, or for OnLoad the storage service's version text); not owned.
    CCallGuard(CallGuardOp op, CEventLog* pEventLog, LPCWSTR pszContext = nullptr);
    ~CCallGuard();
    CCallGuard(const CCallGuard&) = delete;
    CCallGuard& operator=(const CCallGuard&) = delete;

    // Keeps hr as the call's result and returns what VSS receives: success unchanged, and
    // every failure VSS_E_PROVIDER_VETO, but E_OUTOFMEMORY kept where the rule says so.
    HRESULT SetResult(HRESULT hr);
    HRESULT Result() const { return m_hr; }

    // Takes a task-allocated string (null allowed) to free when the call ends; returns it.
    LPWSTR Own(LPWSTR psz);
    // Takes the entry the call is filling, deleted when the call ends.
    void OwnEntry(CSnapshotEntry* pEntry) { m_pEntry = pEntry; }

private:
    static constexpr int kMaxStrings = 6;

    CallGuardOp m_op;
    CEventLog* m_pEventLog;
    LPCWSTR m_pszContext;
    HRESULT m_hr;
    LPWSTR m_rgszOwned[kMaxStrings] = {};
    int m_cOwned = 0;
    CSnapshotEntry* m_pEntry = nullptr;
};
