#pragma once

#include "telemetry/environment.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// One telemetry record, a plain value; its JSON form is the contract with the back end.
///
/// Make one with a factory, `encode()` it, hand the text to EventHub. The fields stand in the order
/// in which they are written, and their names are the JSON keys, odd spellings included. A field
/// without a value has no key.
///
/// Thread: a value; the factories may be called from any thread. They and the conversions allocate.
class Event {
public:
    std::optional<std::int64_t> id;
    std::optional<std::string> eventGroupID; ///< the listener that produced the event
    std::optional<std::string> AdID;         ///< the install id: random, made once per installation
    std::int64_t UTCDateTimeMillis = 0;      ///< 0 in every event of ours: times travel as text
    std::int64_t LocalDateTimeMillis = 0;
    std::optional<std::string> UTCDateTime;
    std::optional<std::string> LocalDateTime;
    std::optional<std::string> IANATimezoze;
    std::optional<std::string> EventCategory;
    std::optional<std::string> EventSubCategory;
    std::optional<std::string> EventType;
    // Filled by other sources of the same schema, never here:
    std::optional<std::int64_t> Organisation;
    std::optional<std::int64_t> Brand;
    std::optional<std::int64_t> Site;
    std::optional<std::int64_t> ZoneGeoFence;
    std::optional<std::int64_t> ZoneBeacon;
    std::optional<std::int64_t> UBM;
    std::optional<std::int64_t> SiteZone;
    std::optional<std::int64_t> ZoneGroup;
    std::optional<std::int64_t> TriggerID;
    std::optional<std::int64_t> MessageID;
    /// JSON-like text, put together without escaping.
    std::optional<std::string> Data;
    // Never filled here either:
    std::optional<double> GPSLat;
    std::optional<double> GPSLong;
    std::optional<std::string> BeaconUUID;
    std::optional<std::string> BeaconMajor;
    std::optional<std::string> BeaconMinor;
    std::optional<std::string> BeaconMac;
    std::optional<std::string> BeaconBatt;
    std::optional<std::string> BeaconRSSI;
    // Ours again:
    std::optional<std::string> Enviroment;

    /// The microphone went on or off, or (without `on`) failed. `reason` has no place in the record.
    static Event microphone(const std::string& uuid, std::optional<bool> on, const std::string& reason,
                            const sorvel::Environment& environment = sorvel::sharedEnvironment());
    /// A text was heard and delivered. `ubmid` has no place in the record.
    static Event ubm(const std::string& uuid, const std::string& ubm, std::optional<std::int64_t> ubmid,
                     const sorvel::Environment& environment = sorvel::sharedEnvironment());
    /// A listener was made, or refused to be.
    static Event success(const std::string& uuid, bool success, const std::string& prefix,
                         const sorvel::Environment& environment = sorvel::sharedEnvironment());

    /// The current time as "2025-06-12T09:41:07+00:00", in UTC or else in the device's zone; years
    /// 0000 to 9999.
    static std::string
    formatCurrentTime(bool utc, const sorvel::Environment& environment = sorvel::sharedEnvironment());

    /// Compact JSON, UTF-8, keys in field order, `/` written as `\/`; bytes that are not UTF-8
    /// become U+FFFD.
    /// @return nothing if a coordinate is not a finite number, which JSON cannot carry
    std::optional<std::string> encode() const;

    struct Decoded;
    /// Reads a record back. Unknown keys are ignored, null counts as absent; of a repeated key the
    /// last holds. Makes the install id if there is none yet.
    static Decoded decode(std::string_view json,
                          const sorvel::Environment& environment = sorvel::sharedEnvironment());

    bool operator==(const Event&) const = default;

private:
    static Event base(const std::string& uuid, const sorvel::Environment& environment);
    static std::string getaddid(const sorvel::Environment& environment);
};

/// A record, or why there is none: not JSON, not an object, a key missing or of another type (the
/// first in field order, by name).
struct Event::Decoded {
    std::optional<Event> event;
    std::string error; ///< one line; empty with an event
};
