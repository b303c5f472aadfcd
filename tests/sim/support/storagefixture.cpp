#include "tests/sim/support/storagefixture.h"

#include "pal/objbase.h"

#include <chrono>

namespace orvtest::storage {

CDriveList::CDriveList(std::vector<std::u16string> drives) : m_drives(std::move(drives))
{
    for (auto& drive : m_drives)
        m_entries.push_back(DRIVE_ENTRY{drive.data(), 0});
    m_list.Count = static_cast<ULONG>(m_entries.size());
    m_list.Drives = m_entries.empty() ? nullptr : m_entries.data();
}

CPairs::CPairs(std::vector<Pair> pairs) : m_pairs(std::move(pairs))
{
    for (auto& pair : m_pairs)
        m_records.push_back(LC_PAIR{pair.filer.data(), pair.lunPath.data(),
                                    pair.clone.empty() ? nullptr : pair.clone.data(), nullptr, 0});
    m_array.Count = static_cast<ULONG>(m_records.size());
    m_array.Pairs = m_records.empty() ? nullptr : m_records.data();
}

CLocation::CLocation(std::u16string filer, std::u16string path)
    : m_filer(std::move(filer)), m_path(std::move(path))
{
    m_location.filerName = m_filer.data();
    m_location.lunPath = m_path.data();
}

void FreeTargetLunInfo(TARGET_LUN_INFO* pInfo)
{
    if (!pInfo)
        return;
    CoTaskMemFree(pInfo->lunLocation.filerName);
    CoTaskMemFree(pInfo->lunLocation.lunPath);
    CoTaskMemFree(pInfo->serialNumber);
    CoTaskMemFree(pInfo->vendorId);
    CoTaskMemFree(pInfo->productId);
    CoTaskMemFree(pInfo->productRevision);
    CoTaskMemFree(pInfo);
}

void FreeDiskList(VD_INFO_LIST* pList)
{
    for (ULONG i = 0; i < pList->Count; ++i) {
        VD_INFO& disk = pList->Disks[i];
        CoTaskMemFree(disk.ExtraString1);
        CoTaskMemFree(disk.Filer);
        CoTaskMemFree(disk.FilerPath);
        CoTaskMemFree(disk.ExtraString2);
        CoTaskMemFree(disk.SerialNumber);
        CoTaskMemFree(disk.SnapshotName);
        for (ULONG j = 0; j < disk.MountPointCount; ++j)
            CoTaskMemFree(disk.MountPoint[j]);
        CoTaskMemFree(disk.MountPoint);
    }
    CoTaskMemFree(pList->Disks);
    pList->Count = 0;
    pList->Disks = nullptr;
}

ErrorText TakeError()
{
    ErrorText text;
    IErrorInfo* pInfo = nullptr;
    if (GetErrorInfo(0, &pInfo) != S_OK || !pInfo)
        return text;
    text.fPresent = true;
    BSTR bstr = nullptr;
    if (SUCCEEDED(pInfo->GetSource(&bstr)) && bstr)
        text.source = orvtest::Narrow(bstr);
    SysFreeString(bstr);
    bstr = nullptr;
    if (SUCCEEDED(pInfo->GetDescription(&bstr)) && bstr)
        text.description = orvtest::Narrow(bstr);
    SysFreeString(bstr);
    pInfo->Release();
    return text;
}

STDMETHODIMP CTestSink::OnKVXSnapOpProgress(LPCWSTR pszSnapshotName, LPCWSTR pszMachineName,
                                            LONG lProgress)
{
    {
        std::lock_guard lock(m_lock);
        m_snapshotName = orvtest::Narrow(pszSnapshotName);
        m_machineName = orvtest::Narrow(pszMachineName);
    }
    if (lProgress == PROG_HANDOFF)
        return Handoff(lProgress);
    std::lock_guard lock(m_lock);
    m_events.push_back(lProgress);
    m_changed.notify_all();
    return S_OK;
}

STDMETHODIMP CTestSink::OnKVXSnapReady(ULONG_PTR, ULONG_PTR, ULONG_PTR)
{
    return Handoff(kReady);
}

HRESULT CTestSink::Handoff(LONG lEvent)
{
    std::unique_lock lock(m_lock);
    m_events.push_back(lEvent);
    ++m_cHandoffs;
    m_changed.notify_all();
    if (m_fHold)
        m_changed.wait(lock, [this] { return m_fReleased; });
    return m_hrAnswer;
}

void CTestSink::HoldHandoffs()
{
    std::lock_guard lock(m_lock);
    m_fHold = true;
    m_fReleased = false;
}

void CTestSink::AnswerHandoffs(HRESULT hr)
{
    std::lock_guard lock(m_lock);
    m_fHold = false;
    m_hrAnswer = hr;
}

bool CTestSink::WaitForHandoffs(size_t count)
{
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, std::chrono::seconds(30),
                              [this, count] { return m_cHandoffs >= count; });
}

void CTestSink::Answer(HRESULT hr)
{
    std::lock_guard lock(m_lock);
    m_hrAnswer = hr;
    m_fReleased = true;
    m_changed.notify_all();
}

std::vector<LONG> CTestSink::Events()
{
    std::lock_guard lock(m_lock);
    return m_events;
}

std::string CTestSink::SnapshotName()
{
    std::lock_guard lock(m_lock);
    return m_snapshotName;
}

std::string CTestSink::MachineName()
{
    std::lock_guard lock(m_lock);
    return m_machineName;
}

void StorageTest::SetUp()
{
    orvtest::PalTest::SetUp();
    ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    ASSERT_HR(S_OK, m_service.Start());
}

void StorageTest::TearDown()
{
    m_service.Stop();
    CoUninitialize();
    orvtest::PalTest::TearDown();
}

CComPtr<IVSSSupport> StorageTest::NewVssSupport()
{
    CComPtr<IVSSSupport> p;
    EXPECT_HR(S_OK, p.CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER));
    return p;
}

CComPtr<CTestSink> StorageTest::NewSink()
{
    CComObject<CTestSink>* p = nullptr;
    EXPECT_HR(S_OK, CComObject<CTestSink>::CreateInstance(&p));
    return CComPtr<CTestSink>(p);
}

DWORD StorageTest::Advise(IVSSSupport* pSupport, CTestSink* pSink)
{
    CComPtr<IConnectionPointContainer> pContainer;
    EXPECT_HR(S_OK, pSupport->QueryInterface(IID_IConnectionPointContainer,
                                             reinterpret_cast<void**>(&pContainer)));
    CComPtr<IConnectionPoint> pPoint;
    EXPECT_HR(S_OK, pContainer->FindConnectionPoint(IID__ISnapShotEvents, &pPoint));
    DWORD dwCookie = 0;
    EXPECT_HR(S_OK, pPoint->Advise(pSink->GetUnknown(), &dwCookie));
    return dwCookie;
}

CComPtr<AsyncIVSSSupport> StorageTest::NewCall(IVSSSupport* pSupport)
{
    CComPtr<ICallFactory> pFactory;
    EXPECT_HR(S_OK,
              pSupport->QueryInterface(IID_ICallFactory, reinterpret_cast<void**>(&pFactory)));
    CComPtr<IUnknown> pUnk;
    EXPECT_HR(S_OK,
              pFactory->CreateCall(IID_AsyncIVSSSupport, nullptr, IID_AsyncIVSSSupport, &pUnk));
    CComPtr<AsyncIVSSSupport> pCall;
    pCall.Attach(static_cast<AsyncIVSSSupport*>(pUnk.Detach()));
    return pCall;
}

storagesim::StateView StorageTest::State()
{
    storagesim::StateView view;
    EXPECT_HR(S_OK, storagesim::ReadState(&view));
    return view;
}

bool StorageTest::HasSnapshot(const std::string& filer, const std::string& lunPath,
                              const std::string& name)
{
    for (const auto& s : State().snapshots)
        if (s.filer == filer && s.lunPath == lunPath && s.name == name)
            return true;
    return false;
}

} // namespace orvtest::storage
