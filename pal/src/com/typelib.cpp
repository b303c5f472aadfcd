// Loaded type libraries: LoadTypeLib(Ex) finds the bytes (a registered resource of the program
// or a file), the MSFT reader takes what the pal needs, and CTypeLib answers ITypeLib from it.
#include "pal/libloaderapi.h"
#include "pal/oleauto.h"
#include "pal/src/base/internal.h"
#include "pal/src/com/runtime.h"
#include "pal/src/com/typelibdata.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <new>
#include <utility>
#include <vector>

namespace {

using pal::detail::CTypeLibraryData;

class CTypeLib final : public ITypeLib
{
public:
    explicit CTypeLib(CTypeLibraryData&& data) : m_data(std::move(data)) {}
    const CTypeLibraryData& Data() const { return m_data; }

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_ITypeLib))
            return E_NOINTERFACE;
        AddRef();
        *ppv = static_cast<ITypeLib*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_cRef; }
    STDMETHODIMP_(ULONG) Release() override
    {
        ULONG cRef = --m_cRef;
        if (cRef == 0)
            delete this;
        return cRef;
    }

    STDMETHODIMP_(UINT) GetTypeInfoCount() override { return UINT(m_data.m_types.size()); }
    STDMETHODIMP GetTypeInfo(UINT, ITypeInfo** ppTInfo) override { return NotImplemented(ppTInfo); }
    STDMETHODIMP GetTypeInfoType(UINT index, TYPEKIND* pTKind) override
    {
        if (!pTKind)
            return E_INVALIDARG;
        if (index >= m_data.m_types.size())
            return TYPE_E_ELEMENTNOTFOUND;
        *pTKind = m_data.m_types[index].m_kind;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfoOfGuid(REFGUID, ITypeInfo** ppTInfo) override
    {
        return NotImplemented(ppTInfo);
    }
    STDMETHODIMP GetLibAttr(TLIBATTR** ppTLibAttr) override
    {
        if (!ppTLibAttr)
            return E_INVALIDARG;
        *ppTLibAttr = new (std::nothrow) TLIBATTR(m_data.m_attr);
        return *ppTLibAttr ? S_OK : E_OUTOFMEMORY;
    }
    STDMETHODIMP GetTypeComp(ITypeComp** ppTComp) override { return NotImplemented(ppTComp); }
    STDMETHODIMP GetDocumentation(INT index, BSTR* pBstrName, BSTR* pBstrDocString,
                                  DWORD* pdwHelpContext, BSTR* pBstrHelpFile) override
    {
        // A negative index is the library itself; a type description shares its help file.
        if (index >= 0 && size_t(index) >= m_data.m_types.size())
            return TYPE_E_ELEMENTNOTFOUND;
        const auto* pType = index < 0 ? nullptr : &m_data.m_types[size_t(index)];
        const std::u16string* rgText[] = {pType ? &pType->m_name : OrNull(m_data.m_name),
                                          OrNull(pType ? pType->m_doc : m_data.m_doc),
                                          OrNull(m_data.m_helpFile)};
        BSTR* rgOut[] = {pBstrName, pBstrDocString, pBstrHelpFile};
        BSTR rgBstr[3] = {};
        for (size_t i = 0; i < 3; ++i) {
            if (rgOut[i] && rgText[i] && !(rgBstr[i] = SysAllocString(rgText[i]->c_str()))) {
                for (BSTR bstr : rgBstr)
                    SysFreeString(bstr);
                return STG_E_INSUFFICIENTMEMORY;
            }
        }
        for (size_t i = 0; i < 3; ++i) {
            if (rgOut[i])
                *rgOut[i] = rgBstr[i];
        }
        if (pdwHelpContext)
            *pdwHelpContext = pType ? pType->m_dwHelpContext : m_data.m_dwHelpContext;
        return S_OK;
    }
    STDMETHODIMP IsName(LPOLESTR, ULONG, BOOL*) override { return E_NOTIMPL; }
    STDMETHODIMP FindName(LPOLESTR, ULONG, ITypeInfo**, MEMBERID*, USHORT*) override
    {
        return E_NOTIMPL;
    }
    STDMETHODIMP_(void) ReleaseTLibAttr(TLIBATTR* pTLibAttr) override { delete pTLibAttr; }

private:
    ~CTypeLib() = default;

    static const std::u16string* OrNull(const std::optional<std::u16string>& text)
    {
        return text ? &*text : nullptr;
    }
    template <class T>
    static HRESULT NotImplemented(T** pp)
    {
        if (pp)
            *pp = nullptr;
        return E_NOTIMPL;
    }

    std::atomic<ULONG> m_cRef{1};
    CTypeLibraryData m_data;
};

// The program's own file, as GetModuleFileNameW(NULL) names it.
std::u16string ModulePath()
{
    std::vector<WCHAR> buffer(32768);
    DWORD cch = GetModuleFileNameW(nullptr, buffer.data(), DWORD(buffer.size()));
    return cch < buffer.size() ? std::u16string(buffer.data(), cch) : std::u16string();
}

// The resource id that `file` names: 1 for the program's own file, N for that file followed by
// "\N"; 0 when it names something else.
UINT ResourceIdOf(std::u16string_view file, std::u16string_view module)
{
    if (module.empty() || file.substr(0, module.size()) != module)
        return 0;
    std::u16string_view rest = file.substr(module.size());
    if (rest.empty())
        return 1;
    if (rest.size() < 2 || rest.size() > 6 || rest[0] != u'\\')
        return 0;
    UINT uID = 0;
    for (char16_t c : rest.substr(1)) {
        if (c < u'0' || c > u'9')
            return 0;
        uID = uID * 10 + UINT(c - u'0');
    }
    return uID;
}

// Reads the library that szFile names; *pPath receives the full path to register it under.
HRESULT ReadTypeLib(LPCOLESTR szFile, CTypeLibraryData* pLib, std::u16string* pPath)
{
    std::u16string_view file(szFile, pal::detail::WideLength(szFile));
    if (UINT uID = ResourceIdOf(file, ModulePath())) {
        const BYTE* pData = nullptr;
        DWORD cbData = 0;
        *pPath = file;
        bool fFound = pal::detail::FindRegisteredResource(u"TYPELIB", uID, &pData, &cbData);
        return fFound && pal::detail::ParseMsftTypeLib(pData, cbData, pLib)
                   ? S_OK
                   : TYPE_E_CANTLOADLIBRARY;
    }
    // A file, read whole; anything but a regular file has no size.
    std::filesystem::path path(pal::detail::ToUtf8(file));
    std::error_code ec;
    uintmax_t cb = std::filesystem::file_size(path, ec);
    if (ec)
        return TYPE_E_CANTLOADLIBRARY;
    std::vector<BYTE> bytes(cb);
    std::ifstream stream(path, std::ios::binary);
    stream.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(cb));
    *pPath = pal::detail::ToUtf16(std::filesystem::absolute(path, ec).string());
    return stream && pal::detail::ParseMsftTypeLib(bytes.data(), bytes.size(), pLib)
               ? S_OK
               : TYPE_E_CANTLOADLIBRARY;
}

// Windows registers a library loaded by REGKIND_DEFAULT unless it was named by a full path.
bool IsFullPath(LPCOLESTR szFile)
{
    return (szFile[0] == u'\\' && szFile[1] == u'\\') || (szFile[0] && szFile[1] == u':') ||
           szFile[0] == u'/';
}

} // namespace

namespace pal::detail {

const CTypeLibraryData* TypeLibraryDataOf(ITypeLib* ptlib)
{
    auto* pLib = dynamic_cast<CTypeLib*>(ptlib);
    return pLib ? &pLib->Data() : nullptr;
}

} // namespace pal::detail

HRESULT WINAPI LoadTypeLib(LPCOLESTR szFile, ITypeLib** pptlib)
{
    return LoadTypeLibEx(szFile, REGKIND_DEFAULT, pptlib);
}

HRESULT WINAPI LoadTypeLibEx(LPCOLESTR szFile, REGKIND regkind, ITypeLib** pptlib)
{
    if (!szFile || !pptlib)
        return E_INVALIDARG;
    *pptlib = nullptr;
    if (HRESULT hr = pal::detail::InjectedComFault("LoadTypeLibEx", szFile); FAILED(hr))
        return hr;
    try {
        CTypeLibraryData data;
        std::u16string path;
        HRESULT hr = ReadTypeLib(szFile, &data, &path);
        if (FAILED(hr))
            return hr;
        auto* pLib = new CTypeLib(std::move(data));
        if (regkind == REGKIND_REGISTER || (regkind == REGKIND_DEFAULT && !IsFullPath(szFile))) {
            hr = RegisterTypeLib(pLib, path.c_str(), nullptr);
            if (FAILED(hr)) {
                pLib->Release();
                return hr;
            }
        }
        *pptlib = pLib;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}
