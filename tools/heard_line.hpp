#pragma once

#include "tools/text_receiver.hpp"

#include <string>

namespace sorvel {

/// {"text":...,"time":...,"file":...}, without a line break. A file name that is not UTF-8 has its wrong
/// bytes replaced.
std::string jsonLine(const Heard& heard, const std::string& file);

} // namespace sorvel
