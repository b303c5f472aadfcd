// vssadmin's shadow copy commands over the VSS simulation's inventory.
#include "vssadmin_shadows.h"

#include "shadow_text.h"

#include "sim/vss/vsssim.h"

#include "pal/palcontrol.h"

#include <iostream>

namespace orvsim {

namespace {

// The options of one command: which shadow copies it is about.
struct Selection
{
    bool fSet = false, fShadow = false, fAll = false, fQuiet = false;
    GUID setId = GUID_NULL, shadowId = GUID_NULL;
    std::u16string volume; // "E:\" for /For=E:
};

// Reads "/Name=Value" and "/Name" options; the names each command takes are in `allowed`.
// Answers an error line, empty when they all read.
std::string ParseOptions(const std::vector<std::string>& options,
                         const std::vector<std::string>& allowed, Selection* pSel)
{
    for (const std::string& option : options) {
        size_t eq = option.find('=');
        std::string name = Lower(option.substr(0, eq));
        std::string value = eq == std::string::npos ? "" : option.substr(eq + 1);
        bool fKnown = false;
        for (const auto& a : allowed)
            fKnown = fKnown || a == name;
        if (!fKnown)
            return "Error: Invalid option: '" + option.substr(0, eq) + "'.";
        bool fValue = eq != std::string::npos;
        if (name == "/set") {
            pSel->fSet = true;
            if (!fValue || !ParseGuid(value, &pSel->setId))
                return "Error: Invalid option value.";
        } else if (name == "/shadow") {
            pSel->fShadow = true;
            if (!fValue || !ParseGuid(value, &pSel->shadowId))
                return "Error: Invalid option value.";
        } else if (name == "/for") {
            pSel->volume = DriveRoot(value);
            if (pSel->volume.empty())
                return "Error: Invalid option value.";
        } else if (fValue) {
            return "Error: Invalid option value.";
        } else if (name == "/all") {
            pSel->fAll = true;
        } else if (name == "/quiet") {
            pSel->fQuiet = true;
        }
    }
    if (pSel->fSet && pSel->fShadow)
        return "Error: Invalid option value.";
    return "";
}

bool Selected(const Selection& sel, const vsssim::ShadowCopyInfo& copy)
{
    if (sel.fSet && copy.setId != sel.setId)
        return false;
    if (sel.fShadow && copy.snapshotId != sel.shadowId)
        return false;
    return sel.volume.empty() || copy.originalVolume == sel.volume;
}

HRESULT SelectedCopies(const Selection& sel, std::vector<vsssim::ShadowCopyInfo>* pCopies)
{
    std::vector<vsssim::ShadowCopyInfo> all;
    HRESULT hr = vsssim::QueryShadowCopies(&all);
    if (FAILED(hr))
        return hr;
    pCopies->clear();
    for (auto& copy : all)
        if (Selected(sel, copy))
            pCopies->push_back(std::move(copy));
    return S_OK;
}

void PrintCopy(const vsssim::ShadowCopyInfo& copy, const std::vector<ProviderRecord>& providers)
{
    std::string drive = pal::Utf16ToUtf8(copy.originalVolume);
    if (drive.size() == 3)
        drive.pop_back(); // vssadmin names a drive "(E:)", a mount point with its backslash
    std::cout << "      Shadow Copy ID: " << GuidText(copy.snapshotId) << "\n"
              << "         Original Volume: (" << drive << ")"
              << VolumeGuidPath(copy.originalVolume) << "\n"
              << "         Shadow Copy Volume: " << pal::Utf16ToUtf8(copy.deviceName) << "\n"
              << "         Originating Machine: " << MachineName() << "\n"
              << "         Service Machine: " << MachineName() << "\n"
              << "         Provider: '" << ProviderName(providers, copy.providerId) << "'\n"
              << "         Type: " << VssadminType(copy.lContext) << "\n"
              << "         Attributes: " << VssadminAttributes(copy.lAttributes) << "\n\n";
}

} // namespace

int VssadminUsageError(const std::string& message)
{
    std::cout.flush();
    std::cerr << message << "\n";
    return 1;
}

int ListShadows(const std::vector<std::string>& options)
{
    Selection sel;
    std::string error = ParseOptions(options, {"/for", "/set", "/shadow"}, &sel);
    if (!error.empty())
        return VssadminUsageError(error);
    std::vector<vsssim::ShadowCopyInfo> copies;
    std::vector<ProviderRecord> providers;
    HRESULT hr = SelectedCopies(sel, &copies);
    if (SUCCEEDED(hr))
        hr = QueryProviderRecords(&providers);
    if (FAILED(hr))
        return VssadminFail(hr);
    if (copies.empty()) {
        std::cout << "No items found that satisfy the query.\n";
        return 0;
    }
    // One record per set, in the order of its oldest shadow copy.
    std::vector<bool> printed(copies.size(), false);
    for (size_t i = 0; i < copies.size(); ++i) {
        if (printed[i])
            continue;
        size_t count = 0;
        for (const auto& copy : copies)
            count += copy.setId == copies[i].setId ? 1 : 0;
        std::cout << "Contents of shadow copy set ID: " << GuidText(copies[i].setId) << "\n"
                  << "   Contained " << count
                  << " shadow copies at creation time: " << CreationTimeText(copies[i].tsCreation)
                  << "\n";
        for (size_t j = i; j < copies.size(); ++j) {
            if (copies[j].setId == copies[i].setId) {
                PrintCopy(copies[j], providers);
                printed[j] = true;
            }
        }
    }
    std::cout.flush();
    return std::cout ? 0 : 1;
}

int DeleteShadows(const std::vector<std::string>& options)
{
    Selection sel;
    std::string error = ParseOptions(options, {"/for", "/shadow", "/all", "/quiet"}, &sel);
    // Exactly one of /Shadow, /All and /For says what goes.
    int cChoices = (sel.fShadow ? 1 : 0) + (sel.fAll ? 1 : 0) + (sel.volume.empty() ? 0 : 1);
    if (error.empty() && cChoices != 1)
        error = "Error: Invalid command.";
    if (!error.empty())
        return VssadminUsageError(error);
    // Like every VSS administration call, deletion needs an administrator.
    if (!pal::ProcessAccountIsAdministrator())
        return VssadminFail(E_ACCESSDENIED);
    std::vector<vsssim::ShadowCopyInfo> copies;
    HRESULT hr = SelectedCopies(sel, &copies);
    if (FAILED(hr))
        return VssadminFail(hr);
    if (copies.empty()) {
        std::cout << "No items found that satisfy the query.\n";
        return 0;
    }
    if (!sel.fQuiet) {
        std::cout << "Do you really want to delete " << copies.size()
                  << " shadow copies (Y/N): [N]? " << std::flush;
        std::string answer;
        std::getline(std::cin, answer);
        std::cout << "\n";
        if (Lower(answer) != "y")
            return 0;
    }
    for (const auto& copy : copies) {
        hr = vsssim::DeleteShadowCopy(copy.snapshotId);
        if (FAILED(hr))
            return VssadminFail(hr);
    }
    if (!sel.fQuiet)
        std::cout << "Successfully deleted " << copies.size() << " shadow copies.\n";
    std::cout.flush();
    return std::cout ? 0 : 1;
}

} // namespace orvsim
