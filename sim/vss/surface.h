// Target LUNs made to appear on this host: the provider locates them, the host rescans, and each
// new disk is offered to the provider to be recognised as one of them.
#pragma once

#include "loadedprovider.h"
#include "lunbuilder.h"

#include <string>
#include <vector>

namespace vsssim::detail {

// The LUN records of a set, one per volume, each freed with the set.
class CLunRecords
{
public:
    explicit CLunRecords(size_t count) : m_luns(count) {}
    CLunRecords(const CLunRecords&) = delete;
    CLunRecords& operator=(const CLunRecords&) = delete;
    ~CLunRecords()
    {
        for (auto& lun : m_luns)
            FreeLunInformation(lun);
    }
    VDS_LUN_INFORMATION& operator[](size_t i) { return m_luns[i]; }
    VDS_LUN_INFORMATION* Data() { return m_luns.data(); }

private:
    std::vector<VDS_LUN_INFORMATION> m_luns;
};

// LocateLuns for the `count` destinations, then FillInLunInfo for each disk that was not there
// before; a disk the provider completes is matched to a destination by serial number. On
// success every destination has its disk ("\\.\PhysicalDriveN") in `*pDisks`; a destination
// without one is VSS_E_UNEXPECTED_PROVIDER_ERROR, a provider's failure as VSS passes it on.
HRESULT SurfaceTargetLuns(CLoadedProvider& provider, LONG count, VDS_LUN_INFORMATION* pTargets,
                          std::vector<std::u16string>* pDisks);

} // namespace vsssim::detail
