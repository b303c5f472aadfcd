// The storage topology: read from JSON, with a built-in default.
#include "images.h"
#include "simcodes.h"
#include "state.h"
#include "storagesim.h"

#include <nlohmann/json.hpp>

namespace storagesim {

using nlohmann::json;

namespace {

// Kept in the source so that a fresh machine needs no file: two filers, the second an older
// system without unlocked clones or backup snapshots; ORVANE LUNs over iSCSI on the first and
// Fibre Channel on the second; a disk of another vendor that the service does not manage.
const char* const kDefaultTopology = R"({
  "version": "3.5.1.0",
  "host": {"name": "ORVHOST01", "hyperVInstalled": true, "hyperVRoleEnabled": true},
  "handoff": "progress",
  "cut": "copy",
  "filers": [
    {"name": "verdane01", "unlockedClone": true, "backupSnapshots": true,
     "volumes": [
       {"name": "vol1", "luns": [
         {"name": "lun1", "serial": "HnLmC0DH4Rdx", "sizeMiB": 10240,
          "host": {"transport": "iscsi", "port": 2, "bus": 0, "target": 0, "lun": 0,
                   "mountPoints": ["E:\\"]}},
         {"name": "lun2", "serial": "HnLmC0DH4Rdy", "sizeMiB": 20480,
          "host": {"transport": "iscsi", "port": 2, "bus": 0, "target": 0, "lun": 1,
                   "mountPoints": ["F:\\"]}}]},
       {"name": "vol2", "luns": [
         {"name": "lun1", "serial": "HnLmC0DH4Rdz", "sizeMiB": 4096,
          "host": {"transport": "iscsi", "port": 2, "bus": 0, "target": 0, "lun": 2,
                   "mountPoints": ["G:\\", "C:\\mnt\\logs\\"], "shared": true}}]}]},
    {"name": "verdane02", "unlockedClone": false, "backupSnapshots": false,
     "volumes": [
       {"name": "vol1", "luns": [
         {"name": "lun1", "serial": "Q7vTk2Pw9sLa", "sizeMiB": 8192,
          "host": {"transport": "fc", "port": 3, "bus": 0, "target": 1, "lun": 0,
                   "mountPoints": ["I:\\"]}},
         {"name": "lun2", "serial": "Q7vTk2Pw9sLb", "sizeMiB": 8192,
          "host": {"transport": "fc", "port": 3, "bus": 0, "target": 1, "lun": 1,
                   "mountPoints": ["J:\\"], "readonly": true}}]}]}],
  "foreignDisks": [
    {"vendor": "ACMEDISK", "product": "FASTARRAY", "revision": "2.10", "serial": "AC00000000K1",
     "sizeMiB": 2048, "transport": "fc", "port": 3, "bus": 0, "target": 2, "lun": 0,
     "mountPoints": ["K:\\"]}]
}
)";

constexpr const char* kVendor = "ORVANE";
constexpr const char* kProduct = "LUN";
constexpr const char* kRevision = "9.1";

void InsertDisk(detail::CState& state, LONGLONG llLun, const std::string& vendor,
                const std::string& product, const std::string& revision, const std::string& serial,
                ULONGLONG ullSize, const json& host)
{
    std::string transport = host.value("transport", "iscsi");
    if (transport != "iscsi" && transport != "fc")
        throw std::invalid_argument("transport must be \"iscsi\" or \"fc\", not \"" + transport +
                                    "\"");
    json mountPoints = host.value("mountPoints", json::array());
    if (!mountPoints.is_array())
        throw std::invalid_argument("mountPoints must be an array");
    auto s = state.Prepare("INSERT INTO disks(lun, vendor, product, revision, serial, size,"
                           " transport, port, bus, target, lunno, mount_points, readonly, shared)"
                           " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14)");
    if (llLun)
        s.Bind(1, llLun);
    else
        s.BindNull(1);
    s.Bind(2, vendor).Bind(3, product).Bind(4, revision).Bind(5, serial);
    s.Bind(6, static_cast<LONGLONG>(ullSize)).Bind(7, transport);
    s.Bind(8, host.value("port", 0)).Bind(9, host.value("bus", 0));
    s.Bind(10, host.value("target", 0)).Bind(11, host.value("lun", 0));
    s.Bind(12, mountPoints.dump()).Bind(13, host.value("readonly", false) ? 1 : 0);
    s.Bind(14, host.value("shared", false) ? 1 : 0);
    s.Run();
}

} // namespace

const std::string& DefaultTopology()
{
    static const std::string text(kDefaultTopology);
    return text;
}

namespace detail {

HRESULT LoadTopology(CState& state, const std::string& text, const std::string& version,
                     std::string* pMessage)
{
    json topology;
    try {
        topology = json::parse(text);
        const json& host = topology.value("host", json::object());
        state.SetSetting("version",
                         version.empty() ? topology.value("version", "3.5.1.0") : version);
        state.SetSetting("machine", host.value("name", "ORVHOST01"));
        state.SetSetting("hyperv_installed", host.value("hyperVInstalled", true) ? "1" : "0");
        state.SetSetting("hyperv_enabled", host.value("hyperVRoleEnabled", true) ? "1" : "0");
        std::string handoff = topology.value("handoff", "progress");
        if (handoff != "progress" && handoff != "ready" && handoff != "both")
            throw std::invalid_argument("handoff must be \"progress\", \"ready\" or \"both\"");
        state.SetSetting("handoff", handoff);
        std::string cut = topology.value("cut", "copy");
        if (cut != "copy" && cut != "instant")
            throw std::invalid_argument("cut must be \"copy\" or \"instant\"");
        state.SetSetting("cut", cut);
        for (const json& filer : topology.at("filers")) {
            state
                .Prepare("INSERT INTO filers(name, unlocked_clone, backup_snapshots)"
                         " VALUES (?1, ?2, ?3)")
                .Bind(1, filer.at("name").get<std::string>())
                .Bind(2, filer.value("unlockedClone", true) ? 1 : 0)
                .Bind(3, filer.value("backupSnapshots", true) ? 1 : 0)
                .Run();
            LONGLONG llFiler = state.LastInsertId();
            for (const json& volume : filer.value("volumes", json::array())) {
                std::string volumeName = volume.at("name").get<std::string>();
                state.Prepare("INSERT INTO volumes(filer, name) VALUES (?1, ?2)")
                    .Bind(1, llFiler)
                    .Bind(2, volumeName)
                    .Run();
                for (const json& lun : volume.value("luns", json::array())) {
                    std::string serial = lun.at("serial").get<std::string>();
                    if (serial.size() != 12)
                        throw std::invalid_argument("serial \"" + serial +
                                                    "\" must have 12 characters");
                    std::string path =
                        "/vol/" + volumeName + "/" + lun.at("name").get<std::string>();
                    ULONGLONG ullSize = lun.value("sizeMiB", 1024ull) * 1024 * 1024;
                    std::string product = lun.value("product", kProduct);
                    std::string revision = lun.value("revision", kRevision);
                    state
                        .Prepare("INSERT INTO luns(filer, path, serial, vendor, product, revision,"
                                 " size) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)")
                        .Bind(1, llFiler)
                        .Bind(2, path)
                        .Bind(3, serial)
                        .Bind(4, kVendor)
                        .Bind(5, product)
                        .Bind(6, revision)
                        .Bind(7, static_cast<LONGLONG>(ullSize))
                        .Run();
                    LONGLONG llLun = state.LastInsertId();
                    CreateImage(LunImagePath(llLun));
                    if (lun.contains("host"))
                        InsertDisk(state, llLun, kVendor, product, revision, serial, ullSize,
                                   lun.at("host"));
                }
            }
        }
        for (const json& disk : topology.value("foreignDisks", json::array()))
            InsertDisk(state, 0, disk.at("vendor").get<std::string>(),
                       disk.value("product", "DISK"), disk.value("revision", "1.0"),
                       disk.at("serial").get<std::string>(),
                       disk.value("sizeMiB", 1024ull) * 1024 * 1024, disk);
        state.SetSetting("initialized", "1");
        return S_OK;
    } catch (const CStateError&) {
        throw;
    } catch (const std::exception& e) {
        if (pMessage)
            *pMessage = std::string("topology: ") + e.what();
        return E_INVALIDARG;
    }
}

} // namespace detail

HRESULT InitializeState(const std::string& topologyJson, const std::string& version,
                        std::string* pMessage)
{
    // A text that is not JSON at all is refused before the old state is cleared.
    try {
        json parsed = json::parse(topologyJson.empty() ? DefaultTopology() : topologyJson);
        if (!parsed.is_object())
            throw std::invalid_argument("the topology must be a JSON object");
    } catch (const std::exception& e) {
        if (pMessage)
            *pMessage = std::string("topology: ") + e.what();
        return E_INVALIDARG;
    }
    return detail::WithState(
        true,
        [&](detail::CState& state) {
            detail::ClearState(state);
            return detail::LoadTopology(
                state, topologyJson.empty() ? DefaultTopology() : topologyJson, version, pMessage);
        },
        pMessage);
}

HRESULT EnsureState()
{
    // Opening the state fills a machine seen for the first time.
    return detail::WithState(false, [](detail::CState&) { return S_OK; });
}

} // namespace storagesim
