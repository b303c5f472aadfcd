// The snapshot set operations: preparation, the timed commit with the trace file quiet, the
// events that report the commit afterwards, the final clean-up and the abort.
#include "core/setname.h"
#include "diag/trace.h"
#include "provider/callguard.h"
#include "provider/hwprovider.h"
#include "res/orvmsg.h"

#include "pal/interlockedapi.h"
#include "pal/processthreadsapi.h"
#include "pal/sysinfoapi.h"
#include "pal/winuser.h"

namespace {

// A commit longer than this can fail the shadow copy.
constexpr DWORD kSlowCommitMs = 10000;

// Leaves the commit's trace scope before the trace file is resumed, so that not even its
// exited line reaches the file.
class CSuspendedTraceFile
{
public:
    CSuspendedTraceFile() { TraceSuspendFile(); }
    ~CSuspendedTraceFile() { TraceResumeFile(); }
    CSuspendedTraceFile(const CSuspendedTraceFile&) = delete;
    CSuspendedTraceFile& operator=(const CSuspendedTraceFile&) = delete;
};

} // namespace

STDMETHODIMP COrvaneHardwareProvider::SetInternalSnapshotName(GUID* pguidVssSnapshotId,
                                                              BSTR bstrSnapshotName)
{
    CTraceScope scope(W("COrvaneHardwareProvider::SetInternalSnapshotName"));
    UNREFERENCED_PARAMETER(pguidVssSnapshotId);
    UNREFERENCED_PARAMETER(bstrSnapshotName);
    if (TraceIsOn(TRACE_LEVEL_INFO)) {
        TraceW(W("this=0x%08p\n"), this);
        TraceW(W("ThreadId=%d\n"), GetCurrentThreadId());
        TraceW(W("ProcessId=%d\n"), GetCurrentProcessId());
    }
    return S_OK;
}

STDMETHODIMP COrvaneHardwareProvider::EndPrepareSnapshots(VSS_ID SnapshotSetId)
{
    CTraceScope scope(W("COrvaneHardwareProvider::EndPrepareSnapshots"));
    WCHAR szSetId[SNAPSHOT_SET_NAME_CCH] = {};
    CCallGuard guard(CallGuardOp::EndPrepareSnapshots, m_pEvent, szSetId);
    if (m_pProvider == nullptr)
        return guard.SetResult(ORVPROV_E_UNEXPECTED_ERROR);
    FormatGuidName(SnapshotSetId, szSetId);
    TRACE(TRACE_LEVEL_INFO,
          W("guidSnapshotSetId={%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}\n"),
          GUID_FORMAT_ARGS(SnapshotSetId));
    InterlockedExchange(&m_lTargetLunsInfoBuilt, 0);
    HRESULT hr = m_pProvider->EndPrepareSnapshots(&SnapshotSetId);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->EndPrepareSnapshots FAILED [hr=0x%08x]\n"), hr);
        return guard.SetResult(hr);
    }
    return guard.SetResult(S_OK);
}

STDMETHODIMP COrvaneHardwareProvider::PreCommitSnapshots(VSS_ID SnapshotSetId)
{
    CTraceScope scope(W("COrvaneHardwareProvider::PreCommitSnapshots"));
    UNREFERENCED_PARAMETER(SnapshotSetId);
    return S_OK;
}

STDMETHODIMP COrvaneHardwareProvider::CommitSnapshots(VSS_ID SnapshotSetId)
{
    // VSS holds every write of the host meanwhile: nothing here writes a file or allocates.
    CSuspendedTraceFile quiet;
    CTraceScope scope(W("COrvaneHardwareProvider::CommitSnapshots"));
    m_fCommitCalled = TRUE;
    m_hrCommit = ORVPROV_E_UNEXPECTED_ERROR;
    m_szSnapshotSetId[0] = 0;
    m_dwCommitTime = 0;
    TRACE(TRACE_LEVEL_INFO,
          W("guidSnapshotSetId={%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}\n"),
          GUID_FORMAT_ARGS(SnapshotSetId));
    FormatGuidName(SnapshotSetId, m_szSnapshotSetId);
    const DWORD dwStart = GetTickCount();
    m_hrCommit = m_pProvider != nullptr ? m_pProvider->CommitSnapshots(&SnapshotSetId)
                                        : ORVPROV_E_UNEXPECTED_ERROR;
    const DWORD dwEnd = GetTickCount();
    if (SUCCEEDED(m_hrCommit)) {
        // Unsigned, so that a wrap of the counter between the readings still gives the time.
        m_dwCommitTime = dwEnd - dwStart;
        TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->CommitSnapshots succeeded in %d milisecs\n"),
              m_dwCommitTime);
    } else {
        TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->CommitSnapshots FAILED [hr=0x%08x]\n"),
              m_hrCommit);
    }
    return m_hrCommit;
}

STDMETHODIMP COrvaneHardwareProvider::PostCommitSnapshots(VSS_ID SnapshotSetId,
                                                          LONG lSnapshotsCount)
{
    CTraceScope scope(W("COrvaneHardwareProvider::PostCommitSnapshots"));
    UNREFERENCED_PARAMETER(SnapshotSetId);
    UNREFERENCED_PARAMETER(lSnapshotsCount);
    WCHAR szMilliseconds[16];
    wsprintfW(szMilliseconds, W("%d"), m_dwCommitTime);
    if (m_pEvent != nullptr)
        m_pEvent->Log(ORVPROV_EVENT_COMMIT_COMPLETED, m_szSnapshotSetId, szMilliseconds, 0);
    return S_OK;
}

STDMETHODIMP COrvaneHardwareProvider::PreFinalCommitSnapshots(VSS_ID SnapshotSetId)
{
    CTraceScope scope(W("COrvaneHardwareProvider::PreFinalCommitSnapshots"));
    UNREFERENCED_PARAMETER(SnapshotSetId);
    return S_OK;
}

STDMETHODIMP COrvaneHardwareProvider::PostFinalCommitSnapshots(VSS_ID SnapshotSetId)
{
    CTraceScope scope(W("COrvaneHardwareProvider::PostFinalCommitSnapshots"));
    if (m_pProvider != nullptr) {
        m_pProvider->PostFinalCommitSnapshots(&SnapshotSetId);
        m_pProvider->ClearSnapshotSetId();
        m_pProvider->DisableRecovery();
    }
    return S_OK;
}

STDMETHODIMP COrvaneHardwareProvider::AbortSnapshots(VSS_ID SnapshotSetId)
{
    CTraceScope scope(W("COrvaneHardwareProvider::AbortSnapshots"));
    // The last commit on this object is reported, whatever set it belonged to.
    if (m_fCommitCalled && m_pEvent != nullptr) {
        if (FAILED(m_hrCommit)) {
            m_pEvent->Log(ORVPROV_EVENT_COMMIT_FAILED, m_szSnapshotSetId,
                          static_cast<DWORD>(m_hrCommit));
        } else if (m_dwCommitTime > kSlowCommitMs) {
            WCHAR szMilliseconds[16];
            wsprintfW(szMilliseconds, W("%d"), m_dwCommitTime);
            m_pEvent->Log(ORVPROV_EVENT_COMMIT_SLOW, m_szSnapshotSetId, szMilliseconds, 0);
        }
    }
    WCHAR szSetId[SNAPSHOT_SET_NAME_CCH] = {};
    FormatGuidName(SnapshotSetId, szSetId);
    TRACE(TRACE_LEVEL_INFO,
          W("guidSnapshotSetId={%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}\n"),
          GUID_FORMAT_ARGS(SnapshotSetId));
    if (m_pEvent != nullptr)
        m_pEvent->Log(ORVPROV_EVENT_ABORT_CALLED, szSetId, 0);
    HRESULT hr = m_pProvider != nullptr ? m_pProvider->AbortSnapshots(&SnapshotSetId) : S_OK;
    if (FAILED(hr))
        TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->AbortSnapshots FAILED [hr=0x%08x]\n"), hr);
    return S_OK;
}
