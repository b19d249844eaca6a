#include "tools/heard_line.hpp"

#include <array>
#include <cmath>
#include <ctime>
#include <nlohmann/json.hpp>

namespace sorvel {

namespace {

using Line = nlohmann::ordered_json;

/// To `steps` a unit; the sum has no sign where it is zero.
double rounded(double value, double steps) { return std::round(value * steps) / steps + 0.0; }

void complete(Line& line, double time_s, const std::string& file) {
    line["time"] = rounded(time_s, 1000.0);
    line["file"] = file;
}

std::string written(const Line& line) { return line.dump(-1, ' ', false, Line::error_handler_t::replace); }

/// The C library's offset of the time zone has no colon.
std::string wallClock(std::chrono::system_clock::time_point at) {
    const auto since = std::chrono::floor<std::chrono::milliseconds>(at.time_since_epoch());
    const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(since).count();
    std::tm local{};
    if (::localtime_r(&seconds, &local) == nullptr) return {};
    std::array<char, 64> day{}, zone{};
    std::strftime(day.data(), day.size(), "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(zone.data(), zone.size(), "%z", &local);
    const std::string part = std::to_string(1000 + since.count() % 1000).substr(1);
    std::string offset = zone.data();
    return day.data() + ("." + part) + offset.insert(offset.size() - 2, ":");
}

std::string textLine(const Heard& heard, const std::string& file, const std::string& at) {
    Line line;
    line["text"] = heard.text;
    complete(line, heard.time_s, file);
    if (!at.empty()) line["at"] = at;
    if (heard.circumstances) {
        line["snr_db"] = rounded(heard.circumstances->snr_db, 10.0);
        line["speed_m_s"] = rounded(heard.circumstances->speed_m_s, 100.0);
        line["echo"] = rounded(heard.circumstances->echo, 100.0);
        line["margin"] = rounded(heard.circumstances->margin, 10.0);
    }
    return written(line);
}

} // namespace

std::string jsonLine(const Heard& heard, const std::string& file) { return textLine(heard, file, {}); }

std::string jsonLine(const Heard& heard, const std::string& file, std::chrono::system_clock::time_point at) {
    return textLine(heard, file, wallClock(at));
}

std::string jsonLine(const HeardMessage& heard, const std::string& file) {
    const std::string bytes = heard.bytes.value_or("");
    Line line;
    if (isPrintable(bytes)) line["message"] = bytes;
    line["hex"] = inHex(bytes);
    complete(line, heard.time_s, file);
    return written(line);
}

} // namespace sorvel
