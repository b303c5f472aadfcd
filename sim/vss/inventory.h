// The inventory of shadow copies in the coordinator's database.
#pragma once

#include "vsssim.h"

namespace vsssim::detail {

// Records a set's shadow copies in one transaction, giving each surfaced one its device name
// (HarddiskVolumeShadowCopyN, N counting every shadow copy the machine has made).
HRESULT AddShadowCopies(std::vector<ShadowCopyInfo>& shadowCopies);
HRESULT ReadShadowCopies(std::vector<ShadowCopyInfo>* pShadowCopies);
// VSS_E_OBJECT_NOT_FOUND when no shadow copy has the id.
HRESULT FindShadowCopy(const VSS_ID& snapshotId, ShadowCopyInfo* pShadowCopy);
HRESULT RemoveShadowCopy(const VSS_ID& snapshotId);

} // namespace vsssim::detail
