#include "tools/heard_line.hpp"

#include <cmath>
#include <nlohmann/json.hpp>

namespace sorvel {

namespace {

std::string completed(nlohmann::ordered_json line, double time_s, const std::string& file) {
    line["time"] = std::round(time_s * 1000.0) / 1000.0;
    line["file"] = file;
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace

std::string jsonLine(const Heard& heard, const std::string& file) {
    nlohmann::ordered_json line;
    line["text"] = heard.text;
    return completed(std::move(line), heard.time_s, file);
}

std::string jsonLine(const HeardMessage& heard, const std::string& file) {
    const std::string bytes = heard.bytes.value_or("");
    nlohmann::ordered_json line;
    if (isPrintable(bytes)) line["message"] = bytes;
    line["hex"] = inHex(bytes);
    return completed(std::move(line), heard.time_s, file);
}

} // namespace sorvel
