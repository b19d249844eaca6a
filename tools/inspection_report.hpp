/// What `sorvel inspect` says about what it has found.
#pragma once

#include "tools/inspection.hpp"

#include <string>
#include <vector>

namespace sorvel::inspection {

/// For people; those that do not name the file or say what to do have at most 80 columns.
std::vector<std::string> lines(const Report& report);
/// One object, without a line break. A file name that is not UTF-8 has its wrong bytes replaced.
std::string jsonLine(const Report& report);

/// "21 of 34 nibbles clear" and the like, as lines and picture have them.
std::string signalWords(const Best& best);
std::string speedWords(const Best& best);
std::string echoWords(const Best& best);
std::string receiverWords(const Text& text); ///< which receivers delivered it

} // namespace sorvel::inspection
