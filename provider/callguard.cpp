#include "provider/callguard.h"

#include "diag/trace.h"
#include "res/orvmsg.h"
#include "store/vdcache.h"

#include "pal/combaseapi.h"
#include "pal/winerror.h"

namespace {

struct CReaction
{
    BOOL fKeepOutOfMemory; // the veto-but-memory rule
    BOOL fDropDiskCache;
    DWORD dwEventId; // 0: none
    BOOL fContext;   // the event names the call's context
};

// Indexed by CallGuardOp; OnLoad's event depends on the code and is chosen in the destructor.
constexpr CReaction kReactions[] = {
    {FALSE, TRUE, ORVPROV_EVENT_ARELUNSSUPPORTED_FAILED, FALSE},
    {FALSE, TRUE, ORVPROV_EVENT_BEGINPREPARE_FAILED, FALSE},
    {TRUE, FALSE, ORVPROV_EVENT_GETTARGETLUNS_FAILED, FALSE},
    {TRUE, FALSE, ORVPROV_EVENT_LOCATELUNS_FAILED, FALSE},
    {TRUE, FALSE, ORVPROV_EVENT_ONLUNEMPTY_FAILED, TRUE},
    {TRUE, FALSE, ORVPROV_EVENT_FILLINLUNINFO_FAILED, TRUE},
    {TRUE, FALSE, ORVPROV_EVENT_LUNSTATECHANGE_FAILED, FALSE},
    {TRUE, FALSE, 0, FALSE},
    {TRUE, FALSE, 0, FALSE},
    {TRUE, FALSE, 0, FALSE},
    {TRUE, FALSE, ORVPROV_EVENT_ENDPREPARE_FAILED, TRUE},
    {TRUE, FALSE, ORVPROV_EVENT_LOAD_FAILED, FALSE},
};
static_assert(sizeof(kReactions) / sizeof(kReactions[0]) ==
              static_cast<size_t>(CallGuardOp::OnLoad) + 1);

} // namespace

CCallGuard::CCallGuard(CallGuardOp op, CEventLog* pEventLog, LPCWSTR pszContext)
    : m_op(op), m_pEventLog(pEventLog), m_pszContext(pszContext), m_hr(ORVPROV_E_UNEXPECTED_ERROR)
{}

CCallGuard::~CCallGuard()
{
    for (int i = 0; i < m_cOwned; ++i)
        CoTaskMemFree(m_rgszOwned[i]);
    delete m_pEntry;
    const CReaction& reaction = kReactions[static_cast<int>(m_op)];
    if (FAILED(m_hr)) {
        if (reaction.fDropDiskCache)
            SetVDCacheFalse();
        if (m_pEventLog != nullptr && m_op == CallGuardOp::OnLoad) {
            if (m_hr == ORVPROV_E_INCORRECT_TESSERA)
                m_pEventLog->Log(ORVPROV_EVENT_INCORRECT_TESSERA, m_pszContext, 0);
            else
                m_pEventLog->Log(ORVPROV_EVENT_LOAD_FAILED, static_cast<DWORD>(m_hr));
        } else if (m_pEventLog != nullptr && reaction.dwEventId != 0) {
            if (reaction.fContext)
                m_pEventLog->Log(reaction.dwEventId, m_pszContext, static_cast<DWORD>(m_hr));
            else
                m_pEventLog->Log(reaction.dwEventId, static_cast<DWORD>(m_hr));
        }
    }
    if (m_op != CallGuardOp::OnLoad)
        TRACE(TRACE_LEVEL_INFO, W("Returned hr=0x%08x\n"), m_hr);
}

HRESULT CCallGuard::SetResult(HRESULT hr)
{
    m_hr = hr;
    if (SUCCEEDED(hr))
        return hr;
    if (hr == E_OUTOFMEMORY && kReactions[static_cast<int>(m_op)].fKeepOutOfMemory)
        return hr;
    return VSS_E_PROVIDER_VETO;
}

LPWSTR CCallGuard::Own(LPWSTR psz)
{
    if (m_cOwned < kMaxStrings)
        m_rgszOwned[m_cOwned++] = psz;
    return psz;
}
