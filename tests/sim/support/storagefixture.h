// Shared pieces of the simulated storage service's tests: a fixture that starts the service in
// the test's machine root, builders of the records clients pass in, and an event sink whose
// answers the test controls.
#pragma once

#include "sim/storage/simcodes.h"
#include "sim/storage/storagesim.h"
#include "store/tessera.h"
#include "tests/support/paltest.h"

#include "pal/atlcom.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace orvtest::storage {

// A DRIVE_LIST with its entries, owned by the test.
class CDriveList
{
public:
    explicit CDriveList(std::vector<std::u16string> drives);
    DRIVE_LIST* Get() { return &m_list; }

private:
    std::vector<std::u16string> m_drives;
    std::vector<DRIVE_ENTRY> m_entries;
    DRIVE_LIST m_list{};
};

// An LC_PAIR_ARRAY of (filer, LUN path) pairs, owned by the test.
class CPairs
{
public:
    struct Pair
    {
        std::u16string filer;
        std::u16string lunPath;
        std::u16string clone;
    };
    explicit CPairs(std::vector<Pair> pairs);
    LC_PAIR_ARRAY* Get() { return &m_array; }

private:
    std::vector<Pair> m_pairs;
    std::vector<LC_PAIR> m_records;
    LC_PAIR_ARRAY m_array{};
};

// A LUN_LOCATION over strings the test keeps.
class CLocation
{
public:
    CLocation(std::u16string filer, std::u16string path);
    LUN_LOCATION* Get() { return &m_location; }

private:
    std::u16string m_filer;
    std::u16string m_path;
    LUN_LOCATION m_location{};
};

void FreeTargetLunInfo(TARGET_LUN_INFO* pInfo);
void FreeDiskList(VD_INFO_LIST* pList);

// What the error object left on this thread says; empty texts when there is none.
struct ErrorText
{
    bool fPresent = false;
    std::string source;
    std::string description;
};
ErrorText TakeError();

// An event sink: records every event (progress code, or "ready"), and answers the hand-off as
// the test says: at once with a code, or held until Answer().
class CTestSink : public CComObjectRootEx<CComMultiThreadModel>, public _ISnapShotEvents
{
public:
    BEGIN_COM_MAP(CTestSink)
    COM_INTERFACE_ENTRY(_ISnapShotEvents)
    END_COM_MAP()

    static constexpr LONG kReady = -1;

    STDMETHODIMP OnKVXSnapOpProgress(LPCWSTR pszSnapshotName, LPCWSTR pszMachineName,
                                     LONG lProgress) override;
    STDMETHODIMP OnKVXSnapReady(ULONG_PTR ulArg1, ULONG_PTR ulArg2, ULONG_PTR ulArg3) override;

    // Hold every hand-off until Answer(hr) answers it.
    void HoldHandoffs();
    // Answer every hand-off at once with hr.
    void AnswerHandoffs(HRESULT hr);
    // Waits until `count` hand-offs have arrived (and are held, when holding).
    bool WaitForHandoffs(size_t count);
    // Answers the held hand-offs with hr; later ones too.
    void Answer(HRESULT hr);
    std::vector<LONG> Events();
    std::string SnapshotName();
    std::string MachineName();

private:
    HRESULT Handoff(LONG lEvent);

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<LONG> m_events;
    std::string m_snapshotName;
    std::string m_machineName;
    size_t m_cHandoffs = 0;
    bool m_fHold = false;
    bool m_fReleased = false;
    HRESULT m_hrAnswer = S_OK;
};

// Starts the simulated service for the test, in the multithreaded apartment.
class StorageTest : public orvtest::PalTest
{
protected:
    void SetUp() override;
    void TearDown() override;

    CComPtr<IVSSSupport> NewVssSupport();
    CComPtr<CTestSink> NewSink();
    // Advises the sink on the object; returns the cookie.
    DWORD Advise(IVSSSupport* pSupport, CTestSink* pSink);
    CComPtr<AsyncIVSSSupport> NewCall(IVSSSupport* pSupport);

    storagesim::StateView State();
    bool HasSnapshot(const std::string& filer, const std::string& lunPath, const std::string& name);

    storagesim::CStorageService m_service;
};

} // namespace orvtest::storage
