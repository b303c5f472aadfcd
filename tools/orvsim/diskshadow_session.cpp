// The commands of a diskshadow session over the VSS simulation, with diskshadow's messages.
#include "diskshadow_session.h"

#include "pal/palcontrol.h"

#include <cstdio>
#include <sstream>

namespace orvsim {

namespace {

std::vector<std::string> SplitWords(const std::string& line)
{
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

bool Is(const std::vector<std::string>& words, size_t i, const char* pszWord)
{
    return words.size() > i && Lower(words[i]) == pszWord;
}

std::string Hex8(DWORD dw)
{
    char sz[16];
    std::snprintf(sz, sizeof(sz), "%08x", static_cast<unsigned>(dw));
    return sz;
}

} // namespace

std::string CDiskShadowSession::Alias(const std::string& name) const
{
    for (const auto& alias : m_aliases)
        if (Lower(alias.first) == Lower(name))
            return alias.second;
    return "";
}

void CDiskShadowSession::SetAlias(const std::string& name, const std::string& value)
{
    for (auto& alias : m_aliases) {
        if (Lower(alias.first) == Lower(name)) {
            alias.second = value;
            return;
        }
    }
    m_aliases.emplace_back(name, value);
}

CDiskShadowSession::Words CDiskShadowSession::Expand(const Words& words)
{
    Words expanded = words;
    for (std::string& word : expanded) {
        std::string name;
        if (word.size() > 2 && word.front() == '%' && word.back() == '%')
            name = word.substr(1, word.size() - 2);
        else if (word.size() > 1 && word.front() == '$')
            name = word.substr(1);
        std::string value = name.empty() ? "" : Alias(name);
        if (value.empty())
            continue;
        m_out << "-> " << word << " = " << value << "\n";
        word = value;
    }
    return expanded;
}

CDiskShadowSession::Result CDiskShadowSession::Failure(HRESULT hr)
{
    m_out << "The last operation failed.\n"
          << "\t- Returned HRESULT: " << Hex8(static_cast<DWORD>(hr)) << "\n"
          << "\t- Error text: " << (VssCodeName(hr).empty() ? "Unknown error" : VssCodeName(hr))
          << "\n";
    return Result::Failed;
}

CDiskShadowSession::Result CDiskShadowSession::SyntaxError(const std::string& line)
{
    m_out << "The syntax of the command is incorrect: \"" << line << "\".\n";
    return Result::Failed;
}

CDiskShadowSession::Result CDiskShadowSession::Execute(const std::string& line)
{
    Words words = SplitWords(line);
    if (words.empty() || words[0][0] == '#' || Is(words, 0, "rem"))
        return Result::Done;
    words = Expand(words);
    Result result = Result::Done;
    if (RunTransport(words, &result))
        return result;
    std::string command = Lower(words[0]);
    if (command == "exit" && words.size() == 1)
        return Result::Exit;
    if (command == "set")
        return Set(words);
    if (command == "add" && Is(words, 1, "volume"))
        return AddVolume(words);
    if (command == "create" && words.size() == 1)
        return Create();
    if (command == "list" && Is(words, 1, "shadows"))
        return ListShadows(words);
    if (command == "list" && Is(words, 1, "providers") && words.size() == 2)
        return ListProviders();
    if (command == "delete" && Is(words, 1, "shadows"))
        return DeleteShadows(words);
    if (command == "reset" && words.size() == 1)
        return Reset();
    // The writers' part of a backup is not simulated: its brackets are accepted.
    if ((command == "begin" || command == "end") && words.size() == 2 &&
        (Is(words, 1, "backup") || Is(words, 1, "restore")))
        return Result::Done;
    bool fKnown = command == "exit" || command == "set" || command == "add" ||
                  command == "create" || command == "list" || command == "delete" ||
                  command == "reset" || command == "begin" || command == "end";
    if (fKnown)
        return SyntaxError(line);
    m_out << "Unrecognized command: \"" << words[0] << "\".\n";
    return Result::Failed;
}

CDiskShadowSession::Result CDiskShadowSession::Set(const Words& words)
{
    std::string what = words.size() >= 3 ? Lower(words[1]) : "";
    std::string value = words.size() >= 3 ? Lower(words[2]) : "";
    if (what == "context" && words.size() <= 4) {
        bool fNoWriters = Is(words, 3, "nowriters");
        if (words.size() == 4 && (!fNoWriters || value == "clientaccessible"))
            return SyntaxError("set context " + value + " " + words[3]);
        LONG lNoWriters = fNoWriters ? LONG{VSS_VOLSNAP_ATTR_NO_WRITERS} : 0;
        if (value == "volatile")
            m_lContext = VSS_CTX_BACKUP | lNoWriters;
        else if (value == "persistent")
            m_lContext = VSS_CTX_APP_ROLLBACK | lNoWriters;
        else if (value == "clientaccessible")
            m_lContext = VSS_CTX_CLIENT_ACCESSIBLE;
        else
            return SyntaxError("set context " + value);
        return Result::Done;
    }
    if (what == "option") {
        // The options the simulation's contexts express; differential and plex are the
        // provider's to choose, and writers' transactions are not simulated.
        LONG lOptions = 0;
        for (size_t i = 2; i < words.size(); ++i) {
            std::string option = Lower(words[i]);
            if (option == "nowriters")
                lOptions |= VSS_VOLSNAP_ATTR_NO_WRITERS;
            else if (option == "transportable")
                lOptions |= VSS_VOLSNAP_ATTR_TRANSPORTABLE;
            else if (option == "noautorecover")
                lOptions |= VSS_VOLSNAP_ATTR_NO_AUTORECOVERY;
            else if (option == "rollbackrecover")
                lOptions |= VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY;
            else
                return SyntaxError("set option " + words[i]);
        }
        m_lOptions = lOptions;
        return Result::Done;
    }
    if (what == "metadata" && words.size() == 3) {
        m_metadataFile = words[2];
        return Result::Done;
    }
    if (what == "verbose" && words.size() == 3 && (value == "on" || value == "off")) {
        m_fVerbose = value == "on";
        return Result::Done;
    }
    return SyntaxError(words.size() >= 2 ? "set " + words[1] : "set");
}

CDiskShadowSession::Result CDiskShadowSession::AddVolume(const Words& words)
{
    bool fAlias = words.size() == 5 && Is(words, 3, "alias");
    if (words.size() != 3 && !fAlias)
        return SyntaxError("add volume");
    std::u16string volume = DriveRoot(words[2]);
    if (volume.empty())
        return SyntaxError("add volume " + words[2]);
    m_volumes.emplace_back(volume, fAlias ? words[4] : "");
    return Result::Done;
}

CDiskShadowSession::Result CDiskShadowSession::Create()
{
    std::vector<std::u16string> volumes;
    std::vector<std::string> aliases;
    for (const auto& volume : m_volumes) {
        volumes.push_back(volume.first);
        aliases.push_back(volume.second);
    }
    VSS_ID setId = GUID_NULL;
    std::vector<VSS_ID> ids;
    std::string document;
    HRESULT hr = vsssim::CreateShadowCopySet(volumes, Context(), &setId, &ids, &document);
    if (FAILED(hr))
        return Failure(hr);
    if ((Context() & VSS_VOLSNAP_ATTR_PERSISTENT) == 0)
        m_volatileIds.insert(m_volatileIds.end(), ids.begin(), ids.end());
    m_volumes.clear(); // the next `add volume` starts another set
    if (!document.empty() && !m_metadataFile.empty() && !WriteMetadata(document))
        return Result::Failed;
    AnnounceSet(setId, ids, aliases);
    return ListShadows({"list", "shadows", "set", GuidText(setId)});
}

void CDiskShadowSession::AnnounceSet(const VSS_ID& setId, const std::vector<VSS_ID>& ids,
                                     const std::vector<std::string>& aliases)
{
    m_out << "\n";
    for (size_t i = 0; i < ids.size(); ++i) {
        std::string alias = i < aliases.size() ? aliases[i] : "";
        if (alias.empty())
            alias = "VSS_SHADOW_" + std::to_string(++m_cShadowAliases);
        SetAlias(alias, GuidText(ids[i]));
        m_out << "Alias " << alias << " for shadow ID " << GuidText(ids[i])
              << " set as environment variable.\n";
    }
    SetAlias("VSS_SHADOW_SET", GuidText(setId));
    m_out << "Alias VSS_SHADOW_SET for shadow set ID " << GuidText(setId)
          << " set as environment variable.\n";
}

CDiskShadowSession::Result CDiskShadowSession::Select(const Words& words, bool fVolume,
                                                      std::vector<vsssim::ShadowCopyInfo>* pCopies,
                                                      std::string* pHeading)
{
    std::string what = words.size() >= 3 ? Lower(words[2]) : "";
    GUID id = GUID_NULL;
    std::u16string volume;
    if (what == "all" && words.size() == 3) {
        *pHeading = "Querying all shadow copies on the computer ...";
    } else if ((what == "set" || what == "id") && words.size() == 4 && ParseGuid(words[3], &id)) {
        *pHeading = what == "set"
                        ? "Querying all shadow copies with the shadow copy set ID " + GuidText(id)
                        : "Querying shadow copy with the ID " + GuidText(id);
    } else if (fVolume && what == "volume" && words.size() == 4 &&
               !(volume = DriveRoot(words[3])).empty()) {
        *pHeading = "";
    } else {
        return SyntaxError(words[0] + " " + words[1] + (words.size() >= 3 ? " " + words[2] : ""));
    }
    std::vector<vsssim::ShadowCopyInfo> all;
    HRESULT hr = vsssim::QueryShadowCopies(&all);
    if (FAILED(hr))
        return Failure(hr);
    pCopies->clear();
    for (auto& copy : all) {
        bool fSelected = what == "all" || (what == "set" && copy.setId == id) ||
                         (what == "id" && copy.snapshotId == id) ||
                         (what == "volume" && copy.originalVolume == volume);
        if (fSelected)
            pCopies->push_back(std::move(copy));
    }
    return Result::Done;
}

void CDiskShadowSession::PrintCopies(const std::vector<vsssim::ShadowCopyInfo>& copies)
{
    std::vector<vsssim::ShadowCopyInfo> all;
    if (FAILED(vsssim::QueryShadowCopies(&all)))
        all = copies;
    // The alias column names the environment variable that holds the id, when one does.
    auto aliasOf = [&](const GUID& id) {
        for (const auto& alias : m_aliases)
            if (alias.second == GuidText(id))
                return "\t\t%" + alias.first + "%";
        return std::string();
    };
    for (const auto& copy : copies) {
        size_t count = 0;
        for (const auto& other : all)
            count += other.setId == copy.setId ? 1 : 0;
        m_out << "\t* Shadow copy ID = " << GuidText(copy.snapshotId) << aliasOf(copy.snapshotId)
              << "\n"
              << "\t\t- Shadow copy set: " << GuidText(copy.setId) << aliasOf(copy.setId) << "\n"
              << "\t\t- Original count of shadow copies = " << count << "\n"
              << "\t\t- Original volume name: " << VolumeGuidPath(copy.originalVolume) << " ["
              << pal::Utf16ToUtf8(copy.originalVolume) << "]\n"
              << "\t\t- Creation time: " << CreationTimeText(copy.tsCreation) << "\n"
              << "\t\t- Shadow copy device name: " << pal::Utf16ToUtf8(copy.deviceName) << "\n"
              << "\t\t- Originating machine: " << MachineName() << "\n"
              << "\t\t- Service machine: " << MachineName() << "\n";
        if (copy.exposedName.empty())
            m_out << "\t\t- Not exposed\n";
        else
            m_out << "\t\t- Exposed name: " << pal::Utf16ToUtf8(copy.exposedName) << "\n";
        m_out << "\t\t- Provider ID: " << GuidText(copy.providerId) << "\n"
              << "\t\t- Attributes:  " << DiskshadowAttributes(copy.lAttributes) << "\n\n";
    }
}

CDiskShadowSession::Result CDiskShadowSession::ListShadows(const Words& words)
{
    std::vector<vsssim::ShadowCopyInfo> copies;
    std::string heading;
    Result result = Select(words, false, &copies, &heading);
    if (result != Result::Done)
        return result;
    m_out << "\n" << heading << "\n\n";
    PrintCopies(copies);
    m_out << "Number of shadow copies listed: " << copies.size() << "\n";
    return Result::Done;
}

CDiskShadowSession::Result CDiskShadowSession::ListProviders()
{
    std::vector<ProviderRecord> providers;
    HRESULT hr = QueryProviderRecords(&providers);
    if (FAILED(hr))
        return Failure(hr);
    static const char* const kTypes[] = {"VSS_PROV_UNKNOWN", "VSS_PROV_SYSTEM", "VSS_PROV_SOFTWARE",
                                         "VSS_PROV_HARDWARE", "VSS_PROV_FILESHARE"};
    m_out << "\n";
    for (const auto& provider : providers) {
        size_t type = static_cast<size_t>(provider.type) < 5 ? provider.type : 0;
        m_out << "\t* ProviderID: " << GuidText(provider.providerId) << "\n"
              << "\t\tType: [" << provider.type << "] " << kTypes[type] << "\n"
              << "\t\tName: " << provider.name << "\n"
              << "\t\tVersion: " << provider.version << "\n"
              << "\t\tCLSID: " << GuidText(provider.classId) << "\n\n";
    }
    m_out << "Number of providers registered: " << providers.size() << "\n";
    return Result::Done;
}

CDiskShadowSession::Result CDiskShadowSession::DeleteShadows(const Words& words)
{
    std::vector<vsssim::ShadowCopyInfo> copies;
    std::string heading;
    Result result = Select(words, true, &copies, &heading);
    if (result != Result::Done)
        return result;
    m_out << "\n";
    for (const auto& copy : copies) {
        m_out << "Deleting shadow copy " << GuidText(copy.snapshotId) << " on volume "
              << VolumeGuidPath(copy.originalVolume) << " from provider "
              << GuidText(copy.providerId) << " [Attributes: 0x"
              << Hex8(static_cast<DWORD>(copy.lAttributes)) << "]...\n";
        HRESULT hr = vsssim::DeleteShadowCopy(copy.snapshotId);
        if (FAILED(hr))
            return Failure(hr);
    }
    m_out << "\nNumber of shadow copies deleted: " << copies.size() << "\n";
    return Result::Done;
}

CDiskShadowSession::Result CDiskShadowSession::Reset()
{
    DeleteVolatileCopies();
    m_lContext = VSS_CTX_BACKUP;
    m_lOptions = 0;
    m_fVerbose = false;
    m_metadataFile.clear();
    m_loadedMetadata.clear();
    m_volumes.clear();
    return Result::Done;
}

void CDiskShadowSession::DeleteVolatileCopies()
{
    // One that is already gone (deleted by a command of the session) is no failure.
    for (const VSS_ID& id : m_volatileIds)
        vsssim::DeleteShadowCopy(id);
    m_volatileIds.clear();
}

} // namespace orvsim
