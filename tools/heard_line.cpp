#include "tools/heard_line.hpp"

#include <cmath>
#include <nlohmann/json.hpp>

namespace sorvel {

std::string jsonLine(const Heard& heard, const std::string& file) {
    nlohmann::ordered_json line;
    line["text"] = heard.text;
    line["time"] = std::round(heard.time_s * 1000.0) / 1000.0;
    line["file"] = file;
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace sorvel
