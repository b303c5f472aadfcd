// The diskshadow commands that wait for the simulation to do what they ask: exposing a shadow
// copy as a drive, removing it, and importing a transportable set from its metadata. Each is
// recognised here, and only here, so that wiring one to the engine touches this file alone.
#include "diskshadow_session.h"

namespace orvsim {

bool CDiskShadowSession::RunPending(const Words& words, Result* pResult)
{
    std::string command = Lower(words[0]);
    if (command == "load" && words.size() >= 2 && Lower(words[1]) == "metadata")
        command = "load metadata";
    // expose {id|%alias%} E:            -> vsssim::ExposeShadowCopy
    // unexpose {id|E:}                  -> vsssim::UnexposeShadowCopy
    // load metadata FILE, then import   -> the engine's import of the backup components document
    if (command != "expose" && command != "unexpose" && command != "import" &&
        command != "load metadata")
        return false;
    m_out << "The command " << command << " is not supported yet by this simulation.\n";
    *pResult = Result::Failed;
    return true;
}

} // namespace orvsim
