// COM error information objects: IErrorInfo, ICreateErrorInfo, ISupportErrorInfo.
#pragma once

#include "pal/oleauto.h"
#include "pal/unknwn.h"

// {1CF2B120-547D-101B-8E65-08002B2BC119}
inline constexpr IID IID_IErrorInfo = {
    0x1CF2B120, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
// {22F03340-547D-101B-8E65-08002B2BC119}
inline constexpr IID IID_ICreateErrorInfo = {
    0x22F03340, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
// {DF0B3D60-548F-101B-8E65-08002B2BD119}
inline constexpr IID IID_ISupportErrorInfo = {
    0xDF0B3D60, 0x548F, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};

interface IErrorInfo : public IUnknown
{
    STDMETHOD(GetGUID)(GUID* pGUID) PURE;
    STDMETHOD(GetSource)(BSTR* pBstrSource) PURE;
    STDMETHOD(GetDescription)(BSTR* pBstrDescription) PURE;
    STDMETHOD(GetHelpFile)(BSTR* pBstrHelpFile) PURE;
    STDMETHOD(GetHelpContext)(DWORD* pdwHelpContext) PURE;

protected:
    ~IErrorInfo() = default;
};

interface ICreateErrorInfo : public IUnknown
{
    STDMETHOD(SetGUID)(REFGUID rguid) PURE;
    STDMETHOD(SetSource)(LPOLESTR szSource) PURE;
    STDMETHOD(SetDescription)(LPOLESTR szDescription) PURE;
    STDMETHOD(SetHelpFile)(LPOLESTR szHelpFile) PURE;
    STDMETHOD(SetHelpContext)(DWORD dwHelpContext) PURE;

protected:
    ~ICreateErrorInfo() = default;
};

interface ISupportErrorInfo : public IUnknown
{
    STDMETHOD(InterfaceSupportsErrorInfo)(REFIID riid) PURE;

protected:
    ~ISupportErrorInfo() = default;
};

// The calling thread's error object. GetErrorInfo hands over the thread's reference and clears
// it (S_FALSE and nullptr when there is none); SetErrorInfo replaces it (nullptr clears).
HRESULT WINAPI GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo);
HRESULT WINAPI SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo);
// A new, empty error object; fills it through ICreateErrorInfo, read it through IErrorInfo.
HRESULT WINAPI CreateErrorInfo(ICreateErrorInfo** pperrinfo);
