#include "tools/protocol_file.hpp"

#include "modem/ggwave.h"
#include "tools/command.hpp"

#include <deque>
#include <fstream>
#include <nlohmann/json.hpp>

namespace sorvel {

namespace {

using nlohmann::json;

constexpr int kHighestBin = 512; // half the samples of a frame: half the sampling rate

class Row {
public:
    Row(const json& object, const std::string& where) : m_object(object), m_where(where) {
        if (!object.is_object()) fail("is no object");
        for (const auto& [key, value] : object.items()) {
            static constexpr std::array kKnown{"id",          "name",       "freqStart",
                                               "framesPerTx", "bytesPerTx", "extra"};
            if (std::find(kKnown.begin(), kKnown.end(), key) == kKnown.end())
                fail("has the unknown key \"" + key + "\"");
        }
    }

    int number(const char* key, int least, int most) const {
        const auto found = m_object.find(key);
        if (found == m_object.end()) fail(std::string("lacks \"") + key + "\"");
        const bool isInRange = found->is_number_integer() && *found >= least && *found <= most;
        if (!isInRange)
            fail(std::string("\"") + key + "\" must be a whole number from " + std::to_string(least) +
                 " to " + std::to_string(most));
        return found->get<int>();
    }
    std::string name() const {
        const auto found = m_object.find("name");
        if (found == m_object.end() || !found->is_string() || found->get_ref<const std::string&>().empty())
            fail("needs a \"name\"");
        return found->get<std::string>();
    }
    bool has(const char* key) const { return m_object.contains(key); }
    [[noreturn]] void fail(const std::string& what) const { throw UsageError(m_where + " " + what); }

private:
    const json& m_object;
    std::string m_where;
};

/// At most what 22 rows could need with long names, so that a device without an end ends too.
std::string contentOf(const std::string& file) {
    constexpr std::size_t kMost_bytes = 65536;
    std::ifstream stream(file, std::ios::binary);
    std::string content(kMost_bytes, '\0');
    stream.read(content.data(), static_cast<std::streamsize>(content.size()));
    if (!stream.is_open() || stream.bad())
        throw UsageError(file + " cannot be read; give a JSON file with protocols");
    content.resize(static_cast<std::size_t>(stream.gcount()));
    return content;
}

} // namespace

int useProtocolFile(const std::string& file) {
    const json rows = json::parse(contentOf(file), nullptr, /*allow_exceptions=*/false);
    if (!rows.is_array() || rows.empty())
        throw UsageError(file + " is no JSON array of protocols; see 'sorvel send --help' for its form");

    static std::deque<std::string> names; // the tables keep pointers to them
    GGWave::Protocols table{};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Row row(rows[i], file + ": protocol " + std::to_string(i + 1));
        const auto id = static_cast<std::size_t>(row.number("id", 0, GGWAVE_PROTOCOL_COUNT - 1));
        if (table[id].enabled) row.fail("has the same id as one before, " + std::to_string(id));
        const int bytesPerTx = row.number("bytesPerTx", 1, 16);
        const int freqStart = row.number("freqStart", 1, kHighestBin - 32);
        if (freqStart + 32 * bytesPerTx > kHighestBin)
            row.fail(
                "reaches beyond half the sampling rate: freqStart + 32 * bytesPerTx must be at most 512");
        const int framesPerTx = row.number("framesPerTx", 1, 60);
        if (row.has("extra")) row.number("extra", 1, 1);
        table[id] = {.name = names.emplace_back(row.name()).c_str(),
                     .freqStart = static_cast<std::int16_t>(freqStart),
                     .framesPerTx = static_cast<std::int8_t>(framesPerTx),
                     .bytesPerTx = static_cast<std::int8_t>(bytesPerTx),
                     .extra = 1,
                     .enabled = true};
    }
    GGWave::Protocols::rx() = GGWave::Protocols::tx() = table;
    return rows[0].at("id").get<int>();
}

} // namespace sorvel
