// Connection points: how an object finds the sinks of its outgoing interfaces.
#pragma once

#include "pal/unknwn.h"
#include "pal/uuidof.h"

#include <cstddef>

// {B196B284-BAB4-101A-B69C-00AA00341D07}
inline constexpr IID IID_IConnectionPointContainer = {
    0xB196B284, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};
// {B196B285-BAB4-101A-B69C-00AA00341D07}
inline constexpr IID IID_IEnumConnectionPoints = {
    0xB196B285, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};
// {B196B286-BAB4-101A-B69C-00AA00341D07}
inline constexpr IID IID_IConnectionPoint = {
    0xB196B286, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};
// {B196B287-BAB4-101A-B69C-00AA00341D07}
inline constexpr IID IID_IEnumConnections = {
    0xB196B287, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};

// One advised sink as IEnumConnections hands it out: the receiver releases pUnk.
struct CONNECTDATA
{
    IUnknown* pUnk;
    DWORD dwCookie;
};
using LPCONNECTDATA = CONNECTDATA*;
static_assert(sizeof(CONNECTDATA) == 16);
static_assert(offsetof(CONNECTDATA, pUnk) == 0);
static_assert(offsetof(CONNECTDATA, dwCookie) == 8);

interface IConnectionPointContainer;

interface IEnumConnections : public IUnknown
{
    // S_OK when cConnections entries were returned, S_FALSE when fewer; pcFetched may be null
    // only when cConnections is 1.
    STDMETHOD(Next)(ULONG cConnections, LPCONNECTDATA rgcd, ULONG* pcFetched) PURE;
    STDMETHOD(Skip)(ULONG cConnections) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumConnections** ppEnum) PURE;

protected:
    ~IEnumConnections() = default;
};

interface IConnectionPoint : public IUnknown
{
    STDMETHOD(GetConnectionInterface)(IID* pIID) PURE;
    STDMETHOD(GetConnectionPointContainer)(IConnectionPointContainer** ppCPC) PURE;
    // CONNECT_E_CANNOTCONNECT when pUnkSink does not implement the outgoing interface.
    STDMETHOD(Advise)(IUnknown* pUnkSink, DWORD* pdwCookie) PURE;
    // CONNECT_E_NOCONNECTION for a cookie that is not advised.
    STDMETHOD(Unadvise)(DWORD dwCookie) PURE;
    STDMETHOD(EnumConnections)(IEnumConnections** ppEnum) PURE;

protected:
    ~IConnectionPoint() = default;
};

interface IEnumConnectionPoints : public IUnknown
{
    STDMETHOD(Next)(ULONG cConnections, IConnectionPoint** ppCP, ULONG* pcFetched) PURE;
    STDMETHOD(Skip)(ULONG cConnections) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumConnectionPoints** ppEnum) PURE;

protected:
    ~IEnumConnectionPoints() = default;
};

interface IConnectionPointContainer : public IUnknown
{
    STDMETHOD(EnumConnectionPoints)(IEnumConnectionPoints** ppEnum) PURE;
    // CONNECT_E_NOCONNECTION when the object has no connection point for riid.
    STDMETHOD(FindConnectionPoint)(REFIID riid, IConnectionPoint** ppCP) PURE;

protected:
    ~IConnectionPointContainer() = default;
};

PAL_DEFINE_UUIDOF(IConnectionPointContainer, IID_IConnectionPointContainer);
PAL_DEFINE_UUIDOF(IEnumConnectionPoints, IID_IEnumConnectionPoints);
PAL_DEFINE_UUIDOF(IConnectionPoint, IID_IConnectionPoint);
PAL_DEFINE_UUIDOF(IEnumConnections, IID_IEnumConnections);
