// IVssEnumObject over provider records. Each Next hands out new task-allocated strings that the
// caller frees with CoTaskMemFree; clones share the records and keep a position of their own.
#include "enumobject.h"

#include "pal/atlcom.h"
#include "pal/objbase.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace vsssim::detail {

namespace {

VSS_PWSZ CopyString(const std::u16string& text)
{
    size_t cb = (text.size() + 1) * sizeof(WCHAR);
    auto* p = static_cast<VSS_PWSZ>(CoTaskMemAlloc(cb));
    if (p)
        std::memcpy(p, text.c_str(), cb);
    return p;
}

void FreeProviderProp(VSS_OBJECT_PROP* pProp)
{
    CoTaskMemFree(pProp->Obj.Prov.m_pwszProviderName);
    CoTaskMemFree(pProp->Obj.Prov.m_pwszProviderVersion);
    std::memset(pProp, 0, sizeof(*pProp));
}

// Fills *pProp with the record, or leaves it zeroed and answers E_OUTOFMEMORY.
HRESULT FillProviderProp(const ProviderRecord& record, VSS_OBJECT_PROP* pProp)
{
    std::memset(pProp, 0, sizeof(*pProp));
    pProp->Type = VSS_OBJECT_PROVIDER;
    VSS_PROVIDER_PROP& prov = pProp->Obj.Prov;
    prov.m_ProviderId = record.id;
    prov.m_eProviderType = record.type;
    prov.m_ProviderVersionId = record.versionId;
    prov.m_ClassId = record.classId;
    prov.m_pwszProviderName = CopyString(record.name);
    prov.m_pwszProviderVersion = CopyString(record.version);
    if (!prov.m_pwszProviderName || !prov.m_pwszProviderVersion) {
        FreeProviderProp(pProp);
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

class CProviderEnum : public CComObjectRootEx<CComMultiThreadModel>, public IVssEnumObject
{
public:
    BEGIN_COM_MAP(CProviderEnum)
    COM_INTERFACE_ENTRY(IVssEnumObject)
    END_COM_MAP()

    void Init(std::shared_ptr<const std::vector<ProviderRecord>> records, size_t position)
    {
        m_records = std::move(records);
        m_position = position;
    }

    STDMETHODIMP Next(ULONG celt, VSS_OBJECT_PROP* rgelt, ULONG* pceltFetched) override
    {
        if (!rgelt || !pceltFetched)
            return E_POINTER;
        *pceltFetched = 0;
        std::lock_guard lock(m_lock);
        ULONG cFetch = static_cast<ULONG>(std::min<size_t>(celt, Remaining()));
        for (ULONG i = 0; i < cFetch; ++i) {
            if (FAILED(FillProviderProp((*m_records)[m_position + i], &rgelt[i]))) {
                // All or nothing: the position stays and the caller owns no string.
                while (i > 0)
                    FreeProviderProp(&rgelt[--i]);
                return E_OUTOFMEMORY;
            }
        }
        m_position += cFetch;
        *pceltFetched = cFetch;
        return cFetch == celt ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG celt) override
    {
        std::lock_guard lock(m_lock);
        size_t cSkip = std::min<size_t>(celt, Remaining());
        m_position += cSkip;
        return cSkip == celt ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() override
    {
        std::lock_guard lock(m_lock);
        m_position = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(IVssEnumObject** ppenum) override
    {
        if (!ppenum)
            return E_POINTER;
        std::lock_guard lock(m_lock);
        return Create(m_records, m_position, ppenum);
    }

    static HRESULT Create(std::shared_ptr<const std::vector<ProviderRecord>> records,
                          size_t position, IVssEnumObject** ppEnum);

private:
    size_t Remaining() const { return m_records->size() - m_position; }

    std::mutex m_lock;
    std::shared_ptr<const std::vector<ProviderRecord>> m_records;
    size_t m_position = 0;
};

// The coordinator's objects live in its service's process: they do not keep this process's
// module alive.
HRESULT CProviderEnum::Create(std::shared_ptr<const std::vector<ProviderRecord>> records,
                              size_t position, IVssEnumObject** ppEnum)
{
    *ppEnum = nullptr;
    CComObjectNoLock<CProviderEnum>* p = nullptr;
    HRESULT hr = CComObjectNoLock<CProviderEnum>::CreateInstance(&p);
    if (FAILED(hr))
        return hr;
    p->Init(std::move(records), position);
    p->AddRef();
    *ppEnum = p;
    return S_OK;
}

} // namespace

HRESULT CreateProviderEnum(std::shared_ptr<const std::vector<ProviderRecord>> records,
                           IVssEnumObject** ppEnum)
{
    return CProviderEnum::Create(std::move(records), 0, ppEnum);
}

} // namespace vsssim::detail
