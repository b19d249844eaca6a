#pragma once

#include "tools/heard.hpp"
#include "tools/message.hpp"

#include <string>

namespace sorvel {

/// {"text":...,"time":...,"file":...}, without a line break; from the deep receiver followed by
/// "snr_db", "speed_m_s", "echo" and "margin". A file name that is not UTF-8 has its wrong bytes replaced.
std::string jsonLine(const Heard& heard, const std::string& file);
/// {"message":...,"hex":...,"time":...,"file":...}, the first only where the bytes are printable.
std::string jsonLine(const HeardMessage& heard, const std::string& file);

} // namespace sorvel
