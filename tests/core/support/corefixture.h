// The provider core over the real store subsystem and the simulated storage service, and a
// text of everything the core and the machine hold for a set, so that a test can prove a
// failed operation left it all as it was.
#pragma once

#include "core/providercore.h"
#include "sim/storage/storagesim.h"
#include "tests/support/lunbuilder.h"
#include "tests/support/paltest.h"

#include <memory>
#include <string>

namespace orvtest {

// The identity every LUN of the simulated storage systems reports.
#define CORE_TEST_LUN W("ORVANE"), W("LUN"), W("9.1")

inline constexpr GUID kSetId = {0x5e7a11d0, 0x1111, 0x4a4a, {1, 2, 3, 4, 5, 6, 7, 8}};
inline constexpr GUID kOtherSetId = {0x5e7a11d0, 0x2222, 0x4a4a, {1, 2, 3, 4, 5, 6, 7, 8}};

class CoreTest : public PalTest
{
public:
    void SetUp() override;
    void TearDown() override;

    // A new machine, for the next row of a table.
    void Restart();
    // Replaces the core with a new, initialised one. The old one is aborted first, as VSS does
    // before it lets a provider go: a set held at its cut would hold the service's creation.
    void NewCore();
    // Adopts the set id and adds the LUN with that serial number (device "\\.\PhysicalDriveN").
    HRESULT Add(LPCWSTR pszSerialNo, LONG eSnapshotAttr = 0, const GUID& setId = kSetId);
    // Adds the LUNs, prepares and commits the set, learns and maps its target LUNs.
    void MapSet(std::initializer_list<LPCWSTR> serialNos, LONG eSnapshotAttr = 0);
    // The VDS record of the n-th entry's target LUN, as the host reports the mapped LUN.
    CLunBuilder TargetLun(DWORD n, const char* pszVendorId = "ORVANE");
    CSnapshotEntry& Entry(DWORD n);

    // The core's set, lists and map, and the registry's mapped LUN records, one line each.
    std::string StateText();
    static storagesim::StateView Storage();

    storagesim::CStorageService m_service;
    std::unique_ptr<CProviderCore> m_core;
};

} // namespace orvtest
