#include "tools/heard_line.hpp"

#include <cmath>
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

} // namespace

std::string jsonLine(const Heard& heard, const std::string& file) {
    Line line;
    line["text"] = heard.text;
    complete(line, heard.time_s, file);
    if (heard.circumstances) {
        line["snr_db"] = rounded(heard.circumstances->snr_db, 10.0);
        line["speed_m_s"] = rounded(heard.circumstances->speed_m_s, 100.0);
        line["echo"] = rounded(heard.circumstances->echo, 100.0);
        line["margin"] = rounded(heard.circumstances->margin, 10.0);
    }
    return written(line);
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
