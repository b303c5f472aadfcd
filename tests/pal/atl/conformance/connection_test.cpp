// Connection points: advising, unadvising, enumerating and calling sinks.
#include "pal/atlconnpt.h"
#include "pal/objbase.h"
#include "tests/support/conformance.h"

#include <vector>

// {5B1E6C0A-7D3F-4E21-9A4B-0C1D2E3F4A54}
inline constexpr IID IID_ISourceEvents = {
    0x5B1E6C0A, 0x7D3F, 0x4E21, {0x9A, 0x4B, 0x0C, 0x1D, 0x2E, 0x3F, 0x4A, 0x54}};

// The events of CSource.
interface ISourceEvents : public IUnknown
{
    STDMETHOD(OnPing)(LONG lValue) PURE;

protected:
    ~ISourceEvents() = default;
};
PAL_DEFINE_UUIDOF(ISourceEvents, IID_ISourceEvents);

namespace {

// Joins the multithreaded apartment for the test's thread.
class ComTest : public orvtest::ConformanceTest
{
protected:
    void SetUp() override
    {
        orvtest::ConformanceTest::SetUp();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    }
    void TearDown() override
    {
        CoUninitialize();
        orvtest::ConformanceTest::TearDown();
    }
};

// A connectable object with one connection point for ISourceEvents.
class CSource : public CComObjectRootEx<CComMultiThreadModel>, public IConnectionPointContainer
{
public:
    BEGIN_COM_MAP(CSource)
    COM_INTERFACE_ENTRY(IConnectionPointContainer)
    END_COM_MAP()

    CSource() : m_point(this, IID_ISourceEvents) {}

    STDMETHODIMP EnumConnectionPoints(IEnumConnectionPoints** ppEnum) override
    {
        IConnectionPoint* rgPoints[] = {&m_point};
        return CComEnumConnectionPoints::Create(rgPoints, 1, 0, ppEnum);
    }
    STDMETHODIMP FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) override
    {
        if (!ppCP)
            return E_POINTER;
        *ppCP = nullptr;
        if (!IsEqualIID(riid, IID_ISourceEvents))
            return CONNECT_E_NOCONNECTION;
        m_point.AddRef();
        *ppCP = &m_point;
        return S_OK;
    }

    // Calls every sink, outside the point's lock.
    std::vector<HRESULT> Fire(LONG lValue)
    {
        IUnknown* rgSinks[PAL_CONNECTION_POINT_MAX];
        ULONG c = m_point.CopySinks(rgSinks);
        std::vector<HRESULT> results;
        for (ULONG i = 0; i < c; ++i) {
            results.push_back(static_cast<ISourceEvents*>(rgSinks[i])->OnPing(lValue));
            rgSinks[i]->Release();
        }
        return results;
    }

    CComConnectionPoint m_point;
};

class CSink : public CComObjectRootEx<CComMultiThreadModel>, public ISourceEvents
{
public:
    BEGIN_COM_MAP(CSink)
    COM_INTERFACE_ENTRY(ISourceEvents)
    END_COM_MAP()

    STDMETHODIMP OnPing(LONG lValue) override
    {
        m_values.push_back(lValue);
        return m_hrAnswer;
    }

    std::vector<LONG> m_values;
    HRESULT m_hrAnswer = S_OK;
};

// A sink of the wrong interface.
class CStranger : public CComObjectRootEx<CComMultiThreadModel>, public ISupportErrorInfo
{
public:
    BEGIN_COM_MAP(CStranger)
    COM_INTERFACE_ENTRY(ISupportErrorInfo)
    END_COM_MAP()
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID) override { return S_FALSE; }
};

template <class T>
CComPtr<T> Make()
{
    CComObject<T>* p = nullptr;
    EXPECT_HR(S_OK, CComObject<T>::CreateInstance(&p));
    return CComPtr<T>(p);
}

ULONG RefCount(IUnknown* p)
{
    p->AddRef();
    return p->Release();
}

class ComConnectionTest : public ComTest
{
protected:
    void SetUp() override
    {
        ComTest::SetUp();
        m_pSource = Make<CSource>();
        ASSERT_HR(S_OK, m_pSource->FindConnectionPoint(IID_ISourceEvents, &m_pPoint));
    }
    void TearDown() override
    {
        m_pPoint.Release();
        m_pSource.Release();
        ComTest::TearDown();
    }

    CComPtr<CSource> m_pSource;
    CComPtr<IConnectionPoint> m_pPoint;
};

TEST_F(ComConnectionTest, FindConnectionPointKnowsOnlyItsInterfaceAndThePointItsContainer)
{
    // The point holds its container.
    IConnectionPointContainer* pRaw = m_pSource;
    ULONG cBefore = RefCount(pRaw);
    m_pPoint->AddRef();
    EXPECT_EQ(cBefore + 1, RefCount(pRaw));
    m_pPoint->Release();
    EXPECT_EQ(cBefore, RefCount(pRaw));

    IConnectionPoint* pPoint = reinterpret_cast<IConnectionPoint*>(0x1);
    EXPECT_HR(CONNECT_E_NOCONNECTION, m_pSource->FindConnectionPoint(IID_IUnknown, &pPoint));
    EXPECT_EQ(nullptr, pPoint);
    EXPECT_HR(E_POINTER, m_pSource->FindConnectionPoint(IID_ISourceEvents, nullptr));
    IID iid = GUID_NULL;
    EXPECT_HR(S_OK, m_pPoint->GetConnectionInterface(&iid));
    EXPECT_TRUE(IsEqualIID(IID_ISourceEvents, iid));
    CComPtr<IConnectionPointContainer> pContainer;
    EXPECT_HR(S_OK, m_pPoint->GetConnectionPointContainer(&pContainer));
    EXPECT_EQ(static_cast<IConnectionPointContainer*>(m_pSource), pContainer);
}

TEST_F(ComConnectionTest, AdviseHoldsTheSinkUntilUnadvise)
{
    CComPtr<CSink> pSink = Make<CSink>();
    EXPECT_EQ(1u, RefCount(pSink));
    DWORD dwCookie = 0;
    ASSERT_HR(S_OK, m_pPoint->Advise(pSink->GetUnknown(), &dwCookie));
    EXPECT_NE(0u, dwCookie);
    EXPECT_EQ(2u, RefCount(pSink));
    EXPECT_EQ(std::vector<HRESULT>{S_OK}, m_pSource->Fire(7));
    EXPECT_EQ(std::vector<LONG>{7}, pSink->m_values);
    EXPECT_HR(S_OK, m_pPoint->Unadvise(dwCookie));
    EXPECT_EQ(1u, RefCount(pSink));
    EXPECT_HR(CONNECT_E_NOCONNECTION, m_pPoint->Unadvise(dwCookie));
    EXPECT_TRUE(m_pSource->Fire(8).empty());
}

TEST_F(ComConnectionTest, AdviseRefusesWhatCannotConnectAndPastTheLimit)
{
    CComPtr<CStranger> pStranger = Make<CStranger>();
    DWORD dwCookie = 5;
    EXPECT_HR(CONNECT_E_CANNOTCONNECT, m_pPoint->Advise(pStranger->GetUnknown(), &dwCookie));
    EXPECT_EQ(0u, dwCookie);
    EXPECT_EQ(1u, RefCount(pStranger));
    EXPECT_HR(E_POINTER, m_pPoint->Advise(nullptr, &dwCookie));
    CComPtr<CSink> pSink = Make<CSink>();
    EXPECT_HR(E_POINTER, m_pPoint->Advise(pSink->GetUnknown(), nullptr));
    // Nor past the limit.
    for (int i = 0; i < PAL_CONNECTION_POINT_MAX; ++i)
        ASSERT_HR(S_OK, m_pPoint->Advise(pSink->GetUnknown(), &dwCookie));
    EXPECT_HR(CONNECT_E_ADVISELIMIT, m_pPoint->Advise(pSink->GetUnknown(), &dwCookie));
    EXPECT_EQ(0u, dwCookie);
    EXPECT_EQ(ULONG(PAL_CONNECTION_POINT_MAX + 1), RefCount(pSink));
}

TEST_F(ComConnectionTest, SinksAreCalledInAdviseOrderWithTheirOwnAnswers)
{
    CComPtr<CSink> a = Make<CSink>(), b = Make<CSink>(), c = Make<CSink>();
    b->m_hrAnswer = E_UNEXPECTED;
    DWORD dwA = 0, dwB = 0, dwC = 0;
    ASSERT_HR(S_OK, m_pPoint->Advise(a->GetUnknown(), &dwA));
    ASSERT_HR(S_OK, m_pPoint->Advise(b->GetUnknown(), &dwB));
    ASSERT_HR(S_OK, m_pPoint->Unadvise(dwA));
    // The freed slot is reused, yet the new sink comes last.
    ASSERT_HR(S_OK, m_pPoint->Advise(c->GetUnknown(), &dwC));
    ASSERT_HR(S_OK, m_pPoint->Advise(a->GetUnknown(), &dwA));
    EXPECT_EQ((std::vector<HRESULT>{E_UNEXPECTED, S_OK, S_OK}), m_pSource->Fire(1));
    EXPECT_TRUE(dwB < dwC && dwC < dwA);
}

TEST_F(ComConnectionTest, EnumConnectionsIsASnapshotWithReferences)
{
    CComPtr<CSink> a = Make<CSink>(), b = Make<CSink>();
    DWORD dwA = 0, dwB = 0;
    ASSERT_HR(S_OK, m_pPoint->Advise(a->GetUnknown(), &dwA));
    ASSERT_HR(S_OK, m_pPoint->Advise(b->GetUnknown(), &dwB));
    CComPtr<IEnumConnections> pEnum;
    ASSERT_HR(S_OK, m_pPoint->EnumConnections(&pEnum));
    EXPECT_HR(S_OK, m_pPoint->Unadvise(dwA));
    // The snapshot still holds a.
    EXPECT_EQ(2u, RefCount(a));
    CONNECTDATA rg[3] = {};
    ULONG cFetched = 9;
    EXPECT_HR(S_FALSE, pEnum->Next(3, rg, &cFetched));
    ASSERT_EQ(2u, cFetched);
    EXPECT_EQ(dwA, rg[0].dwCookie);
    EXPECT_EQ(a->GetUnknown(), rg[0].pUnk);
    EXPECT_EQ(dwB, rg[1].dwCookie);
    rg[0].pUnk->Release();
    rg[1].pUnk->Release();
    EXPECT_HR(S_FALSE, pEnum->Next(1, rg, nullptr));
    EXPECT_HR(E_POINTER, pEnum->Next(2, rg, nullptr));
    EXPECT_HR(S_OK, pEnum->Reset());
    EXPECT_HR(S_OK, pEnum->Skip(1));
    CComPtr<IEnumConnections> pClone;
    ASSERT_HR(S_OK, pEnum->Clone(&pClone));
    EXPECT_HR(S_OK, pClone->Next(1, rg, nullptr));
    EXPECT_EQ(dwB, rg[0].dwCookie);
    rg[0].pUnk->Release();
    EXPECT_HR(S_FALSE, pEnum->Skip(5));
    pEnum.Release();
    pClone.Release();
    EXPECT_EQ(1u, RefCount(a));
}

TEST_F(ComConnectionTest, EnumConnectionPointsListsThePointAndUnadviseAllDropsEverySink)
{
    CComPtr<CSink> pSink = Make<CSink>();
    DWORD dwCookie = 0;
    ASSERT_HR(S_OK, m_pPoint->Advise(pSink->GetUnknown(), &dwCookie));
    m_pSource->m_point.UnadviseAll();
    EXPECT_EQ(1u, RefCount(pSink));
    EXPECT_HR(CONNECT_E_NOCONNECTION, m_pPoint->Unadvise(dwCookie));

    CComPtr<IEnumConnectionPoints> pEnum;
    ASSERT_HR(S_OK, m_pSource->EnumConnectionPoints(&pEnum));
    IConnectionPoint* rg[2] = {};
    ULONG cFetched = 0;
    EXPECT_HR(S_FALSE, pEnum->Next(2, rg, &cFetched));
    ASSERT_EQ(1u, cFetched);
    EXPECT_EQ(static_cast<IConnectionPoint*>(m_pPoint), rg[0]);
    rg[0]->Release();
}

} // namespace
