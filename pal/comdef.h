// The COM error exception: an HRESULT and the error object that came with it.
//
// Raised only by the checked call of the smart pointer (CComPtr::Invoke, pal/atlbase.h), in
// the manner of the wrappers that #import generates, and caught by the code that made the
// call. No exception of this type leaves an operation.
#pragma once

#include "pal/oaidl.h"
#include "pal/unknwn.h"

class _com_error
{
public:
    // Takes over the caller's reference to perrinfo unless fAddRef asks for a new one.
    explicit _com_error(HRESULT hr, IErrorInfo* perrinfo = nullptr, bool fAddRef = false)
        : m_hr(hr), m_perrinfo(perrinfo)
    {
        if (m_perrinfo && fAddRef)
            m_perrinfo->AddRef();
    }
    _com_error(const _com_error& that) : m_hr(that.m_hr), m_perrinfo(that.m_perrinfo)
    {
        if (m_perrinfo)
            m_perrinfo->AddRef();
    }
    _com_error& operator=(const _com_error& that)
    {
        if (this != &that) {
            if (that.m_perrinfo)
                that.m_perrinfo->AddRef();
            if (m_perrinfo)
                m_perrinfo->Release();
            m_hr = that.m_hr;
            m_perrinfo = that.m_perrinfo;
        }
        return *this;
    }
    ~_com_error()
    {
        if (m_perrinfo)
            m_perrinfo->Release();
    }

    HRESULT Error() const { return m_hr; }
    // The error object, with a reference for the caller; null when none came with the error.
    IErrorInfo* ErrorInfo() const
    {
        if (m_perrinfo)
            m_perrinfo->AddRef();
        return m_perrinfo;
    }
    // A new copy of the error object's description or source that the caller frees with
    // SysFreeString; null when there is no error object or it has no such text.
    BSTR Description() const
    {
        BSTR bstr = nullptr;
        if (m_perrinfo && FAILED(m_perrinfo->GetDescription(&bstr)))
            bstr = nullptr;
        return bstr;
    }
    BSTR Source() const
    {
        BSTR bstr = nullptr;
        if (m_perrinfo && FAILED(m_perrinfo->GetSource(&bstr)))
            bstr = nullptr;
        return bstr;
    }

private:
    HRESULT m_hr;
    IErrorInfo* m_perrinfo;
};

// Raises _com_error(hr) without an error object.
[[noreturn]] void WINAPI _com_issue_error(HRESULT hr);
// Raises _com_error(hr) with the error object that punk left for this thread, when punk
// supports error information for riid (ISupportErrorInfo); the thread's object is taken.
[[noreturn]] void WINAPI _com_issue_errorex(HRESULT hr, IUnknown* punk, REFIID riid);
