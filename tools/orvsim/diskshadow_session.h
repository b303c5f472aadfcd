// One diskshadow session: the state its commands build up (context, options, the volumes of the
// next set, aliases) and the commands themselves, run one line at a time.
#pragma once

#include "shadow_text.h"

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace orvsim {

class CDiskShadowSession
{
public:
    enum class Result
    {
        Done,   // the command did what it said
        Failed, // it printed why not
        Exit,   // `exit`: the session ends
    };

    // Writes to `out`; the calling thread must have initialised COM.
    explicit CDiskShadowSession(std::ostream& out) : m_out(out) {}
    CDiskShadowSession(const CDiskShadowSession&) = delete;
    CDiskShadowSession& operator=(const CDiskShadowSession&) = delete;
    // Deletes the volatile shadow copies the session made, as diskshadow does when it ends.
    ~CDiskShadowSession() { DeleteVolatileCopies(); }

    // Runs one line as typed or read from the script (aliases not yet expanded).
    Result Execute(const std::string& line);

    // The state, for the commands that act on what earlier ones set.
    LONG Context() const { return m_lContext | m_lOptions; }
    const std::string& MetadataFile() const { return m_metadataFile; }
    // The value of an alias ("VSS_SHADOW_SET"), empty for none.
    std::string Alias(const std::string& name) const;

private:
    using Words = std::vector<std::string>;

    Result Set(const Words& words);
    Result AddVolume(const Words& words);
    Result Create();
    Result ListShadows(const Words& words);
    Result ListProviders();
    Result DeleteShadows(const Words& words);
    Result Reset();
    // `expose`, `unexpose`, `load metadata` and `import` (diskshadow_transport.cpp); false when
    // the words are none of them.
    bool RunTransport(const Words& words, Result* pResult);
    Result Expose(const std::string& id, const std::string& drive);
    Result Unexpose(const std::string& what);
    Result LoadMetadata(const std::string& path);
    Result Import();
    // Writes a transportable set's document to the file `set metadata` named.
    bool WriteMetadata(const std::string& document);
    // Sets and prints the aliases of a new or imported set's shadow copies (`aliases[i]` names
    // the i-th; an empty or missing one becomes VSS_SHADOW_n) and of the set.
    void AnnounceSet(const VSS_ID& setId, const std::vector<VSS_ID>& ids,
                     const std::vector<std::string>& aliases);

    void SetAlias(const std::string& name, const std::string& value);
    // Replaces %NAME% and $NAME words by their aliases' values, saying so as diskshadow does.
    Words Expand(const Words& words);
    // The shadow copies the words "all", "set {id}", "id {id}" or (fVolume) "volume E:" name,
    // with the line that announces a listing of them; Failed after the line that says why not.
    Result Select(const Words& words, bool fVolume, std::vector<vsssim::ShadowCopyInfo>* pCopies,
                  std::string* pHeading);
    void PrintCopies(const std::vector<vsssim::ShadowCopyInfo>& copies);
    void DeleteVolatileCopies();

    Result Failure(HRESULT hr);
    Result SyntaxError(const std::string& line);

    std::ostream& m_out;
    LONG m_lContext = VSS_CTX_BACKUP; // volatile until `set context` says otherwise
    LONG m_lOptions = 0;              // the attributes of `set option`
    bool m_fVerbose = false;
    std::string m_metadataFile;
    std::string m_loadedMetadata; // the document `load metadata` read, for `import`
    // The volumes of the next set, each with the alias its shadow copy will have (may be empty).
    std::vector<std::pair<std::u16string, std::string>> m_volumes;
    std::vector<std::pair<std::string, std::string>> m_aliases;
    int m_cShadowAliases = 0; // VSS_SHADOW_1, VSS_SHADOW_2, ...
    std::vector<VSS_ID> m_volatileIds;
};

} // namespace orvsim
