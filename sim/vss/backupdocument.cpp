// Writing and reading the transportable set's description in a backup components document.
#include "backupdocument.h"

#include <cstdlib>

namespace vsssim::detail {

namespace {

std::string Hex(const std::string& bytes)
{
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned char c : bytes) {
        text.push_back(kDigits[c >> 4]);
        text.push_back(kDigits[c & 15]);
    }
    return text;
}

bool Unhex(const std::string& text, std::string* pBytes)
{
    if (text.size() % 2)
        return false;
    pBytes->clear();
    for (size_t i = 0; i < text.size(); i += 2) {
        char sz[3] = {text[i], text[i + 1], 0};
        char* pEnd = nullptr;
        long l = std::strtol(sz, &pEnd, 16);
        if (*pEnd)
            return false;
        pBytes->push_back(static_cast<char>(l));
    }
    return true;
}

// A volume name in an attribute: its UTF-8 with the markup characters escaped.
std::string Escape(const std::u16string& text)
{
    std::string out;
    for (char16_t c : text) {
        if (c == '&')
            out += "&amp;";
        else if (c == '"')
            out += "&quot;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c < 0x80)
            out.push_back(static_cast<char>(c));
        else
            out += "&#" + std::to_string(static_cast<unsigned>(c)) + ";";
    }
    return out;
}

std::u16string Unescape(const std::string& text)
{
    std::u16string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '&') {
            out.push_back(static_cast<char16_t>(static_cast<unsigned char>(text[i])));
            continue;
        }
        size_t end = text.find(';', i);
        std::string entity = text.substr(i + 1, end - i - 1);
        if (entity == "amp")
            out.push_back('&');
        else if (entity == "quot")
            out.push_back('"');
        else if (entity == "lt")
            out.push_back('<');
        else if (entity == "gt")
            out.push_back('>');
        else if (entity.size() > 1 && entity[0] == '#')
            out.push_back(static_cast<char16_t>(std::strtoul(entity.c_str() + 1, nullptr, 10)));
        i = end == std::string::npos ? text.size() : end;
    }
    return out;
}

// The elements named `tag` in `text` from `pos`: each call gives the next one's attributes
// text, or false when there is none.
bool NextElement(const std::string& text, const std::string& tag, size_t* pPos,
                 std::string* pAttributes)
{
    size_t start = text.find("<" + tag + " ", *pPos);
    if (start == std::string::npos)
        return false;
    size_t end = text.find('>', start);
    if (end == std::string::npos)
        return false;
    *pAttributes = text.substr(start + tag.size() + 2, end - start - tag.size() - 2);
    *pPos = end + 1;
    return true;
}

bool Attribute(const std::string& attributes, const std::string& name, std::string* pValue)
{
    size_t pos = attributes.find(" " + name + "=\"");
    if (pos == std::string::npos && attributes.rfind(name + "=\"", 0) == 0)
        pos = 0;
    else if (pos != std::string::npos)
        ++pos;
    else
        return false;
    size_t start = pos + name.size() + 2;
    size_t end = attributes.find('"', start);
    if (end == std::string::npos)
        return false;
    *pValue = attributes.substr(start, end - start);
    return true;
}

bool Number(const std::string& attributes, const std::string& name, LONGLONG* pValue)
{
    std::string text;
    if (!Attribute(attributes, name, &text) || text.empty())
        return false;
    char* pEnd = nullptr;
    *pValue = std::strtoll(text.c_str(), &pEnd, 10);
    return *pEnd == 0;
}

} // namespace

std::string WriteBackupComponentsDocument(const std::vector<ShadowCopyInfo>& shadowCopies)
{
    const ShadowCopyInfo& first = shadowCopies.front();
    std::string xml = "<BACKUP_COMPONENTS xmlns=\"x-schema:#VssComponentMetadata\" version=\"1.2\""
                      " bootableSystemStateBackup=\"no\" selectComponents=\"no\""
                      " backupType=\"full\" partialFileSupport=\"no\">\n";
    xml += "<SNAPSHOT_SET_DESCRIPTION snapshotSetId=\"" + GuidText(first.setId) + "\" context=\"" +
           std::to_string(first.lContext) + "\">\n";
    for (const ShadowCopyInfo& copy : shadowCopies) {
        xml += "<SNAPSHOT_DESCRIPTION snapshotId=\"" + GuidText(copy.snapshotId) +
               "\" providerId=\"" + GuidText(copy.providerId) + "\" snapshotAttributes=\"" +
               std::to_string(copy.lAttributes) + "\" originalVolumeName=\"" +
               Escape(copy.originalVolume) + "\" timestamp=\"" + std::to_string(copy.tsCreation) +
               "\">\n";
        xml += "<LUN_MAPPING>\n<SOURCE_LUN lunInformation=\"" + Hex(copy.sourceLun) + "\"/>\n";
        xml += "<DESTINATION_LUN lunInformation=\"" + Hex(copy.targetLun) + "\"/>\n";
        xml += "</LUN_MAPPING>\n</SNAPSHOT_DESCRIPTION>\n";
    }
    xml += "</SNAPSHOT_SET_DESCRIPTION>\n</BACKUP_COMPONENTS>\n";
    return xml;
}

HRESULT ReadBackupComponentsDocument(const std::string& document,
                                     std::vector<ShadowCopyInfo>* pShadowCopies)
{
    pShadowCopies->clear();
    size_t pos = 0;
    std::string set, text;
    ShadowCopyInfo base{};
    LONGLONG llContext = 0;
    if (document.find("<BACKUP_COMPONENTS ") == std::string::npos ||
        !NextElement(document, "SNAPSHOT_SET_DESCRIPTION", &pos, &set) ||
        !Attribute(set, "snapshotSetId", &text) || !ParseGuid(text, &base.setId) ||
        !Number(set, "context", &llContext))
        return VSS_E_INVALID_XML_DOCUMENT;
    base.lContext = static_cast<LONG>(llContext);
    std::string snapshot, source, target;
    while (NextElement(document, "SNAPSHOT_DESCRIPTION", &pos, &snapshot)) {
        ShadowCopyInfo copy = base;
        LONGLONG llAttributes = 0;
        std::string volume;
        if (!Attribute(snapshot, "snapshotId", &text) || !ParseGuid(text, &copy.snapshotId) ||
            !Attribute(snapshot, "providerId", &text) || !ParseGuid(text, &copy.providerId) ||
            !Number(snapshot, "snapshotAttributes", &llAttributes) ||
            !Number(snapshot, "timestamp", &copy.tsCreation) ||
            !Attribute(snapshot, "originalVolumeName", &volume) ||
            !NextElement(document, "SOURCE_LUN", &pos, &source) ||
            !Attribute(source, "lunInformation", &text) || !Unhex(text, &copy.sourceLun) ||
            !NextElement(document, "DESTINATION_LUN", &pos, &target) ||
            !Attribute(target, "lunInformation", &text) || !Unhex(text, &copy.targetLun))
            return VSS_E_INVALID_XML_DOCUMENT;
        copy.lAttributes = static_cast<LONG>(llAttributes);
        copy.originalVolume = Unescape(volume);
        pShadowCopies->push_back(std::move(copy));
    }
    return pShadowCopies->empty() ? VSS_E_INVALID_XML_DOCUMENT : S_OK;
}

} // namespace vsssim::detail
