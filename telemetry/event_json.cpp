#include "telemetry/Event.hpp"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace {

/// Calls `visit(key, field)` for every field in order: the one list that writing and reading share.
template <typename Record, typename Visitor>
void forEachField(Record& event, Visitor&& visit) {
#define SORVEL_FIELD(name) visit(#name, event.name)
    SORVEL_FIELD(id);
    SORVEL_FIELD(eventGroupID);
    SORVEL_FIELD(AdID);
    SORVEL_FIELD(UTCDateTimeMillis);
    SORVEL_FIELD(LocalDateTimeMillis);
    SORVEL_FIELD(UTCDateTime);
    SORVEL_FIELD(LocalDateTime);
    SORVEL_FIELD(IANATimezoze);
    SORVEL_FIELD(EventCategory);
    SORVEL_FIELD(EventSubCategory);
    SORVEL_FIELD(EventType);
    SORVEL_FIELD(Organisation);
    SORVEL_FIELD(Brand);
    SORVEL_FIELD(Site);
    SORVEL_FIELD(ZoneGeoFence);
    SORVEL_FIELD(ZoneBeacon);
    SORVEL_FIELD(UBM);
    SORVEL_FIELD(SiteZone);
    SORVEL_FIELD(ZoneGroup);
    SORVEL_FIELD(TriggerID);
    SORVEL_FIELD(MessageID);
    SORVEL_FIELD(Data);
    SORVEL_FIELD(GPSLat);
    SORVEL_FIELD(GPSLong);
    SORVEL_FIELD(BeaconUUID);
    SORVEL_FIELD(BeaconMajor);
    SORVEL_FIELD(BeaconMinor);
    SORVEL_FIELD(BeaconMac);
    SORVEL_FIELD(BeaconBatt);
    SORVEL_FIELD(BeaconRSSI);
    SORVEL_FIELD(Enviroment);
#undef SORVEL_FIELD
}

struct Writer {
    nlohmann::ordered_json document = nlohmann::ordered_json::object();
    bool isRepresentable = true;

    void operator()(const char* key, std::int64_t value) { document[key] = value; }
    template <typename Value>
    void operator()(const char* key, const std::optional<Value>& value) {
        if (value) document[key] = *value;
    }
    void operator()(const char* key, const std::optional<double>& value) {
        if (!value) return;
        if (!std::isfinite(*value)) isRepresentable = false;
        document[key] = *value;
    }
};

struct Reader {
    // Sorted keys, not ordered ones: an object of many keys would take time with their square.
    const nlohmann::json& document;
    std::string error{}; // of the first field that failed

    void operator()(const char* key, std::int64_t& value) {
        if (!error.empty()) return;
        const auto found = document.find(key);
        if (found == document.end()) {
            error = std::string("no key ") + key;
        } else if (!take(*found, value)) {
            error = std::string(key) + " is not a 64-bit integer";
        }
    }

    template <typename Value>
    void operator()(const char* key, std::optional<Value>& field) {
        if (!error.empty()) return;
        field.reset();
        const auto found = document.find(key);
        if (found == document.end() || found->is_null()) return;
        Value value{};
        if (take(*found, value)) {
            field = std::move(value);
        } else {
            error = std::string(key) + " is of another type";
        }
    }

private:
    static bool take(const nlohmann::json& from, std::int64_t& to) {
        if (!from.is_number_integer()) return false;
        constexpr auto kHighest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        if (from.is_number_unsigned() && from.get<std::uint64_t>() > kHighest) return false;
        to = from.get<std::int64_t>();
        return true;
    }
    static bool take(const nlohmann::json& from, double& to) {
        if (!from.is_number()) return false;
        to = from.get<double>();
        return true;
    }
    static bool take(const nlohmann::json& from, std::string& to) {
        if (!from.is_string()) return false;
        to = from.get_ref<const std::string&>();
        return true;
    }
};

} // namespace

std::optional<std::string> Event::encode() const {
    Writer writer;
    forEachField(*this, writer);
    if (!writer.isRepresentable) return std::nullopt;

    constexpr int kCompact = -1;
    const std::string plain =
        writer.document.dump(kCompact, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::string text;
    text.reserve(plain.size() + 16);
    for (const char character : plain) { // a slash occurs inside strings only
        if (character == '/') text += '\\';
        text += character;
    }
    return text;
}

Event::Decoded Event::decode(std::string_view json, const sorvel::Environment& environment) {
    Event event;
    event.AdID =
        getaddid(environment); // from here on the installation has its id, whatever the document says

    const nlohmann::json document = nlohmann::json::parse(json, nullptr, /*allow_exceptions=*/false);
    if (!document.is_object()) {
        return {std::nullopt,
                document.is_discarded() ? "the document is not JSON" : "the document is not an object"};
    }
    Reader reader{document};
    forEachField(event, reader);
    if (!reader.error.empty()) return {std::nullopt, reader.error};
    return {std::move(event), {}};
}
