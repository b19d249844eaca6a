#include "telemetry/Event.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

using sorvel::Environment;

namespace {

// Years 0000 to 9999, the four digits that the text has room for.
constexpr double kEarliest_s = -62167219200.0;
constexpr double kLatest_s = 253402300799.0;

std::string timestamp(double now_s, int offset_s) {
    using namespace std::chrono;
    double shown_s = std::floor(now_s + offset_s);
    if (std::isnan(shown_s)) shown_s = 0;
    const sys_seconds shown{seconds(std::llround(std::clamp(shown_s, kEarliest_s, kLatest_s)))};
    const sys_days day = floor<days>(shown);
    const year_month_day date(day);
    const hh_mm_ss time(shown - day);
    const int offset_min = std::clamp(std::abs(offset_s / 60), 0, 24 * 60);

    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d%c%02d:%02d",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                  offset_s < 0 ? '-' : '+', offset_min / 60, offset_min % 60);
    return text;
}

} // namespace

std::string Event::formatCurrentTime(bool utc, const Environment& environment) {
    const double now_s = environment.clock->now();
    return timestamp(now_s, utc ? 0 : environment.facts->utcOffset_s(now_s));
}

std::string Event::getaddid(const Environment& environment) {
    if (auto stored = environment.store->string("id")) return *std::move(stored);
    std::string fresh = environment.uuids->make();
    environment.store->setString("id", fresh);
    return fresh;
}

Event Event::base(const std::string& uuid, const Environment& environment) {
    Event event;
    event.id = 1;
    event.eventGroupID = uuid;
    event.UTCDateTime = formatCurrentTime(true, environment);
    event.LocalDateTime = formatCurrentTime(false, environment);
    event.AdID = getaddid(environment);
    event.IANATimezoze = environment.facts->timeZoneName();
    event.EventCategory = "UBMSDK";
    event.Enviroment = "PROD";
    return event;
}

Event Event::microphone(const std::string& uuid, std::optional<bool> on, const std::string& /*reason*/,
                        const Environment& environment) {
    Event event = base(uuid, environment);
    event.EventSubCategory = "Microphone";
    event.EventType = !on ? "Failed" : *on ? "On" : "Off";
    return event;
}

Event Event::ubm(const std::string& uuid, const std::string& ubm, std::optional<std::int64_t> /*ubmid*/,
                 const Environment& environment) {
    Event event = base(uuid, environment);
    event.EventSubCategory = "Decode";
    event.EventType = "Decoded";
    event.Data = "{\"ubm\": \"" + ubm + "\"}";
    return event;
}

Event Event::success(const std::string& uuid, bool success, const std::string& prefix,
                     const Environment& environment) {
    Event event = base(uuid, environment);
    event.EventSubCategory = "Success";
    event.EventType = "Initialisation";
    // "IOS" on every platform: the back end knows this source by it.
    event.Data = std::string("{\"Success\": \"") + (success ? "true" : "false") + "\",\"BrandPrefix\": \"" +
                 prefix + "\",\"OS\": \"IOS\",\"Version\": \"" + environment.facts->osVersion() +
                 "\",\"Device\": \"" + environment.facts->modelName() + "\"}";
    return event;
}
