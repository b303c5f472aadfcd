#include "core/lcpair.h"

#include "core/fields.h"
#include "core/snapshotattr.h"
#include "pal/combaseapi.h"
#include "pal/winbase.h"
#include "provider/strings.h"
#include "provider/taskmem.h"

namespace {

LC_PAIR* AllocateZeroedPair()
{
    LC_PAIR* pPair = static_cast<LC_PAIR*>(CoTaskMemAlloc(sizeof(LC_PAIR)));
    if (pPair) {
        pPair->Filer = nullptr;
        pPair->LunPath = nullptr;
        pPair->Clone = nullptr;
        pPair->Device = nullptr;
        pPair->eSnapshotAttr = SNAPSHOT_ATTR_NONE;
    }
    return pPair;
}

void FreePair(LC_PAIR* pPair)
{
    if (!pPair)
        return;
    FreeField(pPair->Filer);
    FreeField(pPair->LunPath);
    FreeField(pPair->Clone);
    FreeField(pPair->Device);
    CoTaskMemFree(pPair);
}

// Frees the block and its strings on every exit unless handed on.
class CPairHolder
{
public:
    explicit CPairHolder(LC_PAIR* pPair) : m_pPair(pPair) {}
    ~CPairHolder() { FreePair(m_pPair); }
    CPairHolder(const CPairHolder&) = delete;
    CPairHolder& operator=(const CPairHolder&) = delete;

    LC_PAIR* Get() const { return m_pPair; }
    LC_PAIR* Detach()
    {
        LC_PAIR* pPair = m_pPair;
        m_pPair = nullptr;
        return pPair;
    }

private:
    LC_PAIR* m_pPair;
};

} // namespace

CLCPair::~CLCPair()
{
    Release();
}

void CLCPair::Release()
{
    FreePair(m_pPair);
    m_pPair = nullptr;
}

BOOL CLCPair::Set(LPCWSTR pszFiler, LPCWSTR pszLunPath, LPCWSTR pszClone, LPCWSTR pszDevice,
                  LONG eSnapshotAttr)
{
    Release();
    CPairHolder pair(AllocateZeroedPair());
    if (!pair.Get())
        return FALSE;
    if (!CopyFieldIfPresent(pair.Get()->Filer, pszFiler) ||
        !CopyFieldIfPresent(pair.Get()->LunPath, pszLunPath) ||
        !CopyFieldIfPresent(pair.Get()->Clone, pszClone) ||
        !CopyFieldIfPresent(pair.Get()->Device, pszDevice))
        return FALSE;
    pair.Get()->eSnapshotAttr = eSnapshotAttr;
    m_pPair = pair.Detach();
    return TRUE;
}

BOOL CLCPair::SetClone(LPCWSTR pszClone)
{
    if (m_pPair && m_pPair->Clone && lstrcmpW(m_pPair->Clone, pszClone) == 0)
        return TRUE;
    CTaskMemPtr<WCHAR> szClone(DuplicateString(pszClone));
    if (!szClone)
        return FALSE;
    if (!m_pPair) {
        m_pPair = AllocateZeroedPair();
        if (!m_pPair)
            return FALSE;
    }
    FreeField(m_pPair->Clone);
    m_pPair->Clone = szClone.Detach();
    return TRUE;
}
