// The part of a backup components document that describes a transportable shadow copy set: what
// a requester saves with its backup and hands to ImportShadowCopySet on the host that imports it.
#pragma once

#include "vsssim.h"

#include <string>
#include <vector>

namespace vsssim::detail {

// An XML text in the manner of the document VSS writes: a BACKUP_COMPONENTS element holding one
// SNAPSHOT_SET_DESCRIPTION (set id, context) with a SNAPSHOT_DESCRIPTION per shadow copy
// (snapshot and provider ids, attributes, original volume, creation time) and its LUN_MAPPING,
// the SOURCE_LUN and DESTINATION_LUN records as hexadecimal EncodeLunInformation bytes.
std::string WriteBackupComponentsDocument(const std::vector<ShadowCopyInfo>& shadowCopies);
// The shadow copies a document describes (device, disk and exposed name empty);
// VSS_E_INVALID_XML_DOCUMENT for a text that is not such a document or describes none.
HRESULT ReadBackupComponentsDocument(const std::string& document,
                                     std::vector<ShadowCopyInfo>* pShadowCopies);

} // namespace vsssim::detail
