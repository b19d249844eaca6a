#pragma once

#include "tools/heard.hpp"
#include "tools/message.hpp"

#include <chrono>
#include <string>

namespace sorvel {

/// {"text":...,"time":...,"file":...}, without a line break; from the deep receiver followed by
/// "snr_db", "speed_m_s", "echo" and "margin". A file name that is not UTF-8 has its wrong bytes replaced.
std::string jsonLine(const Heard& heard, const std::string& file);
/// The same with "at" behind "file": when it was heard, by the clock on the wall, as
/// "2026-11-25T17:00:00.123+01:00".
std::string jsonLine(const Heard& heard, const std::string& file, std::chrono::system_clock::time_point at);
/// {"message":...,"hex":...,"time":...,"file":...}, the first only where the bytes are printable.
std::string jsonLine(const HeardMessage& heard, const std::string& file);

} // namespace sorvel
