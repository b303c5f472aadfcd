// The diskshadow commands that move a shadow copy beyond the set that made it: exposing it as a
// drive, and importing a transportable set from the metadata its creation wrote.
#include "diskshadow_session.h"

#include "pal/palcontrol.h"

#include <fstream>
#include <sstream>

namespace orvsim {

bool CDiskShadowSession::RunTransport(const Words& words, Result* pResult)
{
    std::string command = Lower(words[0]);
    if (command == "load" && words.size() >= 2 && Lower(words[1]) == "metadata") {
        *pResult = words.size() == 3 ? LoadMetadata(words[2]) : SyntaxError("load metadata");
        return true;
    }
    if (command == "import") {
        *pResult = words.size() == 1 ? Import() : SyntaxError("import");
        return true;
    }
    if (command == "expose") {
        *pResult = words.size() == 3 ? Expose(words[1], words[2]) : SyntaxError("expose");
        return true;
    }
    if (command == "unexpose") {
        *pResult = words.size() == 2 ? Unexpose(words[1]) : SyntaxError("unexpose");
        return true;
    }
    return false;
}

CDiskShadowSession::Result CDiskShadowSession::Expose(const std::string& id,
                                                      const std::string& drive)
{
    GUID snapshotId = GUID_NULL;
    std::u16string root = DriveRoot(drive);
    if (!ParseGuid(id, &snapshotId) || root.empty())
        return SyntaxError("expose " + id + " " + drive);
    std::u16string exposed;
    if (HRESULT hr = vsssim::ExposeShadowCopy(snapshotId, root, &exposed); FAILED(hr))
        return Failure(hr);
    m_out << "The shadow copy was successfully exposed as " << pal::Utf16ToUtf8(exposed) << "\\.\n";
    return Result::Done;
}

// Names the copy by its id or by the drive it is exposed as.
CDiskShadowSession::Result CDiskShadowSession::Unexpose(const std::string& what)
{
    GUID snapshotId = GUID_NULL;
    std::u16string root = DriveRoot(what);
    if (!ParseGuid(what, &snapshotId) && root.empty())
        return SyntaxError("unexpose " + what);
    if (!root.empty()) {
        std::vector<vsssim::ShadowCopyInfo> copies;
        if (HRESULT hr = vsssim::QueryShadowCopies(&copies); FAILED(hr))
            return Failure(hr);
        for (const auto& copy : copies)
            if (!copy.exposedName.empty() && DriveRoot(pal::Utf16ToUtf8(copy.exposedName)) == root)
                snapshotId = copy.snapshotId;
    }
    if (HRESULT hr = vsssim::UnexposeShadowCopy(snapshotId); FAILED(hr))
        return Failure(hr);
    m_out << "The shadow copy with ID " << GuidText(snapshotId) << " is no longer exposed.\n";
    return Result::Done;
}

bool CDiskShadowSession::WriteMetadata(const std::string& document)
{
    std::ofstream file(m_metadataFile, std::ios::binary | std::ios::trunc);
    file << document;
    file.close();
    if (!file) {
        m_out << "The metadata file \"" << m_metadataFile << "\" cannot be written.\n";
        return false;
    }
    return true;
}

CDiskShadowSession::Result CDiskShadowSession::LoadMetadata(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file || text.str().empty()) {
        m_out << "The metadata file \"" << path << "\" cannot be read.\n";
        return Result::Failed;
    }
    m_loadedMetadata = text.str();
    return Result::Done;
}

CDiskShadowSession::Result CDiskShadowSession::Import()
{
    if (m_loadedMetadata.empty()) {
        m_out << "No metadata is loaded: use load metadata first.\n";
        return Result::Failed;
    }
    VSS_ID setId = GUID_NULL;
    if (HRESULT hr = vsssim::ImportShadowCopySet(m_loadedMetadata, &setId); FAILED(hr))
        return Failure(hr);
    std::vector<vsssim::ShadowCopyInfo> copies;
    if (HRESULT hr = vsssim::QueryShadowCopies(&copies); FAILED(hr))
        return Failure(hr);
    std::vector<VSS_ID> ids;
    for (const auto& copy : copies)
        if (copy.setId == setId)
            ids.push_back(copy.snapshotId);
    AnnounceSet(setId, ids, {});
    return ListShadows({"list", "shadows", "set", GuidText(setId)});
}

} // namespace orvsim
