// The simulated Volume Shadow Copy Service: the coordinator's registry of providers and its
// shadow copies.
//
// The registrations and the inventory of shadow copies live in SQLite under the machine root
// (<root>/vss.db), so that orvsim and the process under test share them. A process that starts
// CVssCoordinator serves CLSID_VSSCoordinator as a local-server class object of its own, whose
// objects implement IVssAdmin (see "VSS coordinator" in docs/ARCHITECTURE.md).
#pragma once

#include "pal/vsadmin.h"
#include "pal/vss.h"
#include "pal/windef.h"
#include "pal/winerror.h"

#include <string>
#include <vector>

namespace vsssim {

// The provider of every Windows machine, listed first and never stored: VSS answers it
// whatever was registered, and it cannot be unregistered.
// {b5946137-7b9f-4925-af80-51abd60b20d5}
inline constexpr VSS_ID kSystemProviderId = {
    0xB5946137, 0x7B9F, 0x4925, {0xAF, 0x80, 0x51, 0xAB, 0xD6, 0x0B, 0x20, 0xD5}};
// {65ee1dba-8ff4-4a58-ac1c-3470ee2f376a}
inline constexpr CLSID kSystemProviderClassId = {
    0x65EE1DBA, 0x8FF4, 0x4A58, {0xAC, 0x1C, 0x34, 0x70, 0xEE, 0x2F, 0x37, 0x6A}};
inline constexpr const WCHAR* kSystemProviderName = u"Microsoft Software Shadow Copy provider 1.0";
inline constexpr const WCHAR* kSystemProviderVersion = u"1.0.0.7";

// ---- Ids as text ----
// "{6a06b0b5-00e8-44b1-99f0-55fe420b2277}": lower case in braces, as VSS's tools and documents
// write ids and as the provider names a set on the storage system.
std::string GuidText(const GUID& id);
// Reads an id with or without its braces, in any case; false for anything else.
bool ParseGuid(const std::string& text, GUID* pId);

// ---- Fault injection ----
// Rules are kept in the state, so that they apply in every process of the machine (a rule set
// by `orvsim vss fault` applies to a later process), one rule per name. A rule applies to the
// next `lTimes` times its point is reached (kEveryCall: until cleared). The names:
//  - "RegisterProvider", "UnregisterProvider", "QueryProviders": the coordinator's method
//    answers `hr` instead of doing its work. The caller's rights and the arguments are checked
//    first: a rule answers the calls that pass them.
//  - "Writer:PrepareForSnapshot", "Writer:Freeze", "Writer:Thaw": a writer vetoes the set at
//    that event, failing with `hr` (a VSS_E_WRITERERROR_* code); the set is aborted and the
//    requester sees the writer's code.
//  - "Call:<method>", <method> one of kProviderMethods: VSS's call of the provider's method
//    fails with `hr` on its way, before it reaches the provider (as a call to a provider whose
//    process refuses it or has gone); VSS treats it as the provider's failure.
//  - "HoldWrites": the hold of writes around the commit outlasts its limit, whatever the clock
//    says; the set fails with `hr` (VSS_E_HOLD_WRITES_TIMEOUT or VSS_E_FLUSH_WRITES_TIMEOUT).
//  - "Kill:<point>", <point> a method of kProviderMethods or a writer event ("Writer:Freeze"):
//    the process playing VSS ends at once with exit code `hr` just before it reaches the point,
//    as VSS's process ending abruptly; the provider is left to COM's rundown.
constexpr LONG kEveryCall = -1;
extern const char* const kProviderMethods[];
extern const size_t kProviderMethodCount;
// E_INVALIDARG for an unknown name or a count of 0 or below kEveryCall.
HRESULT SetFault(const std::string& name, HRESULT hr, LONG lTimes = kEveryCall);
HRESULT ClearFaults();
struct FaultRule
{
    std::string name;
    HRESULT hr;
    LONG lRemaining;
};
// Every rule, ordered by name.
HRESULT ListFaults(std::vector<FaultRule>* pRules);

// ---- Shadow copies ----
// What the inventory keeps of one shadow copy (see "VSS simulation: shadow copies" in
// docs/ARCHITECTURE.md).
struct ShadowCopyInfo
{
    VSS_ID snapshotId;
    VSS_ID setId;
    VSS_ID providerId;
    LONG lContext;                 // the context the set was made in, attributes included
    LONG lAttributes;              // VSS_VOLSNAP_ATTR_* of the shadow copy
    std::u16string originalVolume; // the volume's mount point, "E:\"
    // "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopyN"; empty for a transportable
    // shadow copy, which is not surfaced on this host.
    std::u16string deviceName;
    std::u16string diskName;  // the disk that appeared for it, "\\.\PhysicalDriveN" then
    VSS_TIMESTAMP tsCreation; // FILETIME (UTC) of the commit
    std::string sourceLun;    // the records, as EncodeLunInformation writes them
    std::string targetLun;
    std::u16string exposedName; // empty while not exposed
};

// Makes a shadow copy of each volume (a drive or mount point, "E:" or "E:\") as VSS does
// with the registered hardware providers: the first that supports every volume's LUN does the
// whole set. The context is VSS_CTX_BACKUP or another VSS_CTX_* value, with
// VSS_VOLSNAP_ATTR_PERSISTENT, _NO_AUTO_RELEASE, _TRANSPORTABLE, _NO_AUTORECOVERY or
// _ROLLBACK_RECOVERY added. The calling thread must have initialised COM. Answers VSS's
// codes: E_INVALIDARG for no volume or an unknown context, VSS_E_OBJECT_NOT_FOUND for a volume
// the host does not have, VSS_E_OBJECT_ALREADY_EXISTS for a volume named twice,
// VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED beyond 64, VSS_E_VOLUME_NOT_SUPPORTED when no
// provider supports them all, the provider's VSS code (VSS_E_PROVIDER_VETO, ...) or
// VSS_E_UNEXPECTED_PROVIDER_ERROR when it fails, VSS_E_HOLD_WRITES_TIMEOUT when the commit
// held the volumes' writes longer than 10 seconds. A failed set is aborted and leaves nothing.
HRESULT CreateShadowCopySet(const std::vector<std::u16string>& volumes, LONG lContext,
                            VSS_ID* pSetId, std::vector<VSS_ID>* pSnapshotIds);
// The same; for a transportable set `*pBackupComponentsDocument` is then the description of the
// set a requester keeps in its backup components document (empty for any other set), which
// ImportShadowCopySet takes.
//
// A transportable set whose context has VSS_VOLSNAP_ATTR_AUTORECOVER or
// VSS_VOLSNAP_ATTR_TXF_RECOVERY (what VSS adds for writers' components that need recovery),
// and not VSS_VOLSNAP_ATTR_NO_AUTORECOVERY, is recovered before its final commit: its target
// LUNs are surfaced, OnLunStateChange tells the provider of each volume's LUNs before
// (_NOTIFY_LUN_PRE_RECOVERY) and after (_NOTIFY_LUN_POST_RECOVERY) the recovery, which writes
// "VSS recovery" at byte 4096 of each target LUN, and then asks it to mask them
// (_DO_MASK_LUNS); the set stays transportable.
HRESULT CreateShadowCopySet(const std::vector<std::u16string>& volumes, LONG lContext,
                            VSS_ID* pSetId, std::vector<VSS_ID>* pSnapshotIds,
                            std::string* pBackupComponentsDocument);
// Imports a transportable set on this host, as IVssBackupComponents::ImportSnapshots does with
// the document: its provider (registered here) is loaded and asked to LocateLuns, each disk that
// appears is offered to FillInLunInfo, and the shadow copies are recorded surfaced, with a
// device name, the disk and VSS_VOLSNAP_ATTR_IMPORTED (replacing the records the creating host
// kept). VSS_E_INVALID_XML_DOCUMENT for a document that describes no transportable set,
// VSS_E_OBJECT_ALREADY_EXISTS for a set already imported, VSS_E_PROVIDER_NOT_REGISTERED, a
// provider's failure as VSS passes it on.
HRESULT ImportShadowCopySet(const std::string& backupComponentsDocument, VSS_ID* pSetId);
// Deletes one shadow copy: its provider is told its LUN is empty (OnLunEmpty), then the record
// goes. VSS_E_OBJECT_NOT_FOUND for an unknown id.
HRESULT DeleteShadowCopy(const VSS_ID& snapshotId);
// Every shadow copy of the machine, oldest first.
HRESULT QueryShadowCopies(std::vector<ShadowCopyInfo>* pShadowCopies);

// ---- Exposure ----
// Exposes a surfaced shadow copy locally as a drive letter ("X:" or "X:\"), as
// IVssBackupComponents::ExposeSnapshot does: the disk of its target LUN is mounted read-only at
// the letter and the inventory records the exposed name, which is handed back as "X:".
// E_INVALIDARG for a null pointer or a name that is not a drive letter, VSS_E_OBJECT_NOT_FOUND
// for an unknown id, VSS_E_BAD_STATE for a transportable copy that is not surfaced on this host,
// VSS_E_OBJECT_ALREADY_EXISTS when the copy is exposed already or the letter is in use.
HRESULT ExposeShadowCopy(const VSS_ID& snapshotId, const std::u16string& exposeAs,
                         std::u16string* pExposedName);
// Takes the letter away again; VSS_E_OBJECT_NOT_FOUND for an unknown or unexposed copy.
HRESULT UnexposeShadowCopy(const VSS_ID& snapshotId);

// ---- The host's view of volume data ----
// Reads and writes a volume's bytes as the host sees them ("E:", "E:\", an exposed "X:"): the
// LUN behind the volume's disk, through the simulated storage. A disk the service does not
// manage or no disk at all answers TESSERA_E_DRIVE_NOT_FOUND; a read-only disk (an exposed
// shadow copy) refuses writes with HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT); a range past the
// image is E_INVALIDARG. While VSS holds the writes of a set's volumes around the commit, a write
// to one of them waits until the release, in every process of the machine.
HRESULT WriteVolumeData(const std::u16string& volume, DWORD dwOffset, const std::string& data);
HRESULT ReadVolumeData(const std::u16string& volume, DWORD dwOffset, DWORD cb, std::string* pData);

// ---- Measures of the last set ----
// What the calling process's last CreateShadowCopySet measured, for benchmarks and tests.
struct SetMeasures
{
    ULONGLONG ullHeldTick;     // GetTickCount64 when the writes were held
    ULONGLONG ullReleasedTick; // and when they were released
    LONGLONG llHoldNs;         // the commit window in real time
    LONGLONG llProviderNs;     // time spent in the calls to the provider's process
    LONGLONG llSetNs;          // the whole set, from choosing the provider to the inventory
};
SetMeasures LastSetMeasures();

// ---- The coordinator in this process ----
// Registers the coordinator's class object (CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE). The
// calling thread must have initialised COM. Objects handed out stay usable after Stop, since
// every call reads and writes the state itself.
class CVssCoordinator
{
public:
    CVssCoordinator() = default;
    CVssCoordinator(const CVssCoordinator&) = delete;
    CVssCoordinator& operator=(const CVssCoordinator&) = delete;
    ~CVssCoordinator() { Stop(); }

    HRESULT Start();
    void Stop();
    bool Running() const { return m_dwCookie != 0; }

private:
    DWORD m_dwCookie = 0;
};

} // namespace vsssim
