// What vssadmin and diskshadow print about shadow copies: GUIDs, volume names, times, contexts,
// attributes and VSS codes, each in the words and form the Windows tools use.
#pragma once

#include "sim/vss/vsssim.h"

#include "pal/vss.h"

#include <string>
#include <vector>

namespace orvsim {

std::string Lower(std::string text);
using vsssim::GuidText;
using vsssim::ParseGuid;

// "E:\" for "e:", "E:" or "e:\"; empty for text that is not a drive.
std::u16string DriveRoot(const std::string& text);
// "\\?\Volume{...}\" of a volume: a GUID derived from its mount point, so that the same
// drive has the same name on every run and every machine.
std::string VolumeGuidPath(const std::u16string& mountPoint);
// A FILETIME (UTC) in the local time, as the tools print it: "9/24/2024 5:54:18 PM".
std::string CreationTimeText(VSS_TIMESTAMP ts);
// The name that reports carry for this machine, as originating and service machine.
std::string MachineName();

// "VSS_E_VOLUME_NOT_SUPPORTED" for its code, "E_INVALIDARG" and the like for the generic
// ones; empty for a code without a name.
std::string VssCodeName(HRESULT hr);

// vssadmin's type of a shadow copy, from the context it was made in: "ApplicationRollback".
std::string VssadminType(LONG lContext);
// vssadmin's attribute words: "Persistent, No auto release, Hardware assisted".
std::string VssadminAttributes(LONG lAttributes);
// diskshadow's attribute words: "No_Auto_Release Persistent Hardware_Assisted".
std::string DiskshadowAttributes(LONG lAttributes);

// A registered provider as the coordinator lists it.
struct ProviderRecord
{
    VSS_ID providerId;
    CLSID classId;
    VSS_PROVIDER_TYPE type;
    std::string name;
    std::string version;
};
// Every registered provider, the system provider first, through the coordinator served in
// this process. The calling thread must have initialised COM.
HRESULT QueryProviderRecords(std::vector<ProviderRecord>* pProviders);
// The name of the provider with this id among the records; its id in text if none has it.
std::string ProviderName(const std::vector<ProviderRecord>& providers, const VSS_ID& id);

} // namespace orvsim
