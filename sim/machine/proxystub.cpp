// The machine's proxy/stub registration of the program's own interface,
// IOrvaneHardwareProvider (what the program's proxy/stub DLL registers on Windows), so that
// another process of the machine can call the provider object through it.
#include "pal/oleauto.h"
#include "pal/src/com/rpc/describe.h"
#include "provider/orvprov.h"

#include <cstring>

namespace {

namespace rpc = pal::detail::rpc;

// A BSTR travels as its length and units (it may hold nulls); a null one stays null. The stub's
// copy is a BSTR of its own, freed after the call.
struct BstrCoding
{
    static constexpr size_t kMinBytes = 4;
    static void Put(rpc::CWriter& writer, BSTR bstr)
    {
        writer.PutString(bstr, bstr ? SysStringLen(bstr) : 0);
    }
    static HRESULT Get(rpc::CReader& reader, BSTR* pbstr)
    {
        *pbstr = nullptr;
        const void* pUnits = nullptr;
        uint32_t cch = 0;
        if (!reader.GetStringUnits(&pUnits, &cch))
            return RPC_E_INVALID_DATA;
        if (!pUnits)
            return S_OK;
        BSTR bstr = SysAllocStringLen(nullptr, cch);
        if (!bstr)
            return E_OUTOFMEMORY;
        std::memcpy(bstr, pUnits, size_t{cch} * sizeof(OLECHAR));
        *pbstr = bstr;
        return S_OK;
    }
    static void Free(BSTR& bstr)
    {
        SysFreeString(bstr);
        bstr = nullptr;
    }
};

using OrvaneProvider = rpc::Interface<IOrvaneHardwareProvider, &IID_IOrvaneHardwareProvider,
                                      rpc::Method<&IOrvaneHardwareProvider::SetInternalSnapshotName,
                                                  rpc::InRef<GUID>, rpc::In<BSTR, BstrCoding>>>;

class COrvaneProviderProxy final : public rpc::CProxyOf<OrvaneProvider>
{
public:
    using CProxyOf::CProxyOf;
    STDMETHODIMP SetInternalSnapshotName(GUID* pguidVssSnapshotId, BSTR bstrSnapshotName) override
    {
        return Call<&I::SetInternalSnapshotName>(pguidVssSnapshotId, bstrSnapshotName);
    }
};

const rpc::CMarshalerRegistration
    g_orvaneProvider(OrvaneProvider::Marshaler<COrvaneProviderProxy>());

} // namespace
