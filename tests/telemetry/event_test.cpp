#include "telemetry/Event.hpp"
#include "tests/support/fake_platform.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

constexpr const char* kUuid = "6F1C2A9E-3B7D-4E51-9A0C-52D8E4F7B613";

const std::string kHead = R"({"id":1,"eventGroupID":"6F1C2A9E-3B7D-4E51-9A0C-52D8E4F7B613",)"
                          R"("AdID":"0D4E8B27-91A3-4C6F-B5E2-7A19C3D8F054",)"
                          R"("UTCDateTimeMillis":0,"LocalDateTimeMillis":0,)";

class EventTest : public testing::Test {
protected:
    void at(double time_s) { m_fake.clock->time_s = time_s; }
    std::string time(bool utc) { return Event::formatCurrentTime(utc, environment()); }
    const sorvel::Environment& environment() { return m_fake.platform; }
    std::string refusal(const std::string& json) { return Event::decode(json, environment()).error; }

    fake::Platform m_fake;
};

TEST_F(EventTest, MicrophoneEventIsThisDocument) {
    EXPECT_EQ(
        Event::microphone(kUuid, true, "not recorded", environment()).encode(),
        kHead + R"("UTCDateTime":"2025-06-12T09:41:07+00:00","LocalDateTime":"2025-06-12T10:41:07+01:00",)"
                R"("IANATimezoze":"Europe\/London","EventCategory":"UBMSDK","EventSubCategory":"Microphone",)"
                R"("EventType":"On","Enviroment":"PROD"})");
    EXPECT_EQ(Event::microphone(kUuid, false, "", environment()).EventType, "Off");
    EXPECT_EQ(Event::microphone(kUuid, std::nullopt, "", environment()).EventType, "Failed");
}

TEST_F(EventTest, DecodeEventIsThisDocumentWhateverTheNumericId) {
    at(1749721335.0);
    EXPECT_EQ(Event::ubm(kUuid, "acme_1234", 42, environment()).encode(),
              kHead +
                  R"("UTCDateTime":"2025-06-12T09:42:15+00:00","LocalDateTime":"2025-06-12T10:42:15+01:00",)"
                  R"("IANATimezoze":"Europe\/London","EventCategory":"UBMSDK","EventSubCategory":"Decode",)"
                  R"("EventType":"Decoded","Data":"{\"ubm\": \"acme_1234\"}","Enviroment":"PROD"})");
}

TEST_F(EventTest, InitialisationEventIsThisDocument) {
    at(1749721258.0);
    EXPECT_EQ(
        Event::success(kUuid, true, "acme", environment()).encode(),
        kHead +
            R"("UTCDateTime":"2025-06-12T09:40:58+00:00","LocalDateTime":"2025-06-12T10:40:58+01:00",)"
            R"("IANATimezoze":"Europe\/London","EventCategory":"UBMSDK","EventSubCategory":"Success",)"
            R"("EventType":"Initialisation","Data":"{\"Success\": \"true\",\"BrandPrefix\": \"acme\",)"
            R"(\"OS\": \"IOS\",\"Version\": \"17.5.1\",\"Device\": \"iPhone15,2\"}","Enviroment":"PROD"})");
}

TEST_F(EventTest, HostilePrefixesStayOneValidDocument) {
    const auto data = [&](const std::string& prefix) {
        const auto document = Event::success(kUuid, false, prefix, environment()).encode();
        const auto decoded = Event::decode(document.value_or(""), environment());
        return decoded.event ? decoded.event->Data.value_or("no data") : decoded.error;
    };
    const auto expected = [](const std::string& prefix) {
        return R"({"Success": "false","BrandPrefix": ")" + prefix +
               R"(","OS": "IOS","Version": "17.5.1","Device": "iPhone15,2"})";
    };
    for (const std::string prefix : {"a\"b\\c/d", "\xC3\xA9t\xC3\xA9", "line\nbreak\x01\x7F", ""})
        EXPECT_EQ(data(prefix), expected(prefix));
    EXPECT_EQ(data(std::string("nul\0nul", 7)), expected(std::string("nul\0nul", 7)));
    // Bytes that are no UTF-8 are replaced: alone, cut short, overlong, a surrogate.
    EXPECT_EQ(data("\xFF"), expected("\xEF\xBF\xBD"));
    for (const std::string prefix : {"\xE2\x82", "\xC0\xAF", "\xED\xA0\x80"})
        EXPECT_NE(data(prefix).find("\xEF\xBF\xBD"), std::string::npos);
}

TEST_F(EventTest, TimesCarryTheOffsetOfTheZone) {
    const auto local = [&](int offset_s) {
        m_fake.facts->offset_s = offset_s;
        return time(false);
    };
    EXPECT_EQ(local(19800), "2025-06-12T15:11:07+05:30");
    EXPECT_EQ(local(-12600), "2025-06-12T06:11:07-03:30");
    EXPECT_EQ(local(0), "2025-06-12T09:41:07+00:00");
    at(1709164799.999); // the second before a leap day, not rounded into it
    EXPECT_EQ(time(true), "2024-02-28T23:59:59+00:00");
    at(-0.5);
    EXPECT_EQ(time(true), "1969-12-31T23:59:59+00:00");
    for (const double hostile : {1e300, -1e300, HUGE_VAL, std::nan("")}) {
        at(hostile);
        EXPECT_EQ(time(true).size(), 25U) << time(true);
    }
}

TEST_F(EventTest, EveryFieldSurvivesARoundTrip) {
    const std::string document =
        R"({"id":-9223372036854775808,"eventGroupID":"g","AdID":"a","UTCDateTimeMillis":9223372036854775807,)"
        R"("LocalDateTimeMillis":-1,"UTCDateTime":"u","LocalDateTime":"l","IANATimezoze":"z","EventCategory":"c",)"
        R"("EventSubCategory":"s","EventType":"t","Organisation":1,"Brand":2,"Site":3,"ZoneGeoFence":4,"ZoneBeacon":5,)"
        R"("UBM":6,"SiteZone":7,"ZoneGroup":8,"TriggerID":9,"MessageID":10,"Data":"d","GPSLat":51.5,"GPSLong":-0.125,)"
        R"("BeaconUUID":"b1","BeaconMajor":"b2","BeaconMinor":"b3","BeaconMac":"b4","BeaconBatt":"b5",)"
        R"("BeaconRSSI":"b6","Enviroment":"e"})";
    const auto decoded = Event::decode(document, environment());
    ASSERT_TRUE(decoded.event) << decoded.error;
    EXPECT_EQ(decoded.event->encode(), document);

    Event unwritable = *decoded.event;
    unwritable.GPSLat = std::numeric_limits<double>::infinity();
    EXPECT_EQ(unwritable.encode(), std::nullopt);
}

TEST_F(EventTest, DecodingTakesNullAndUnknownKeysAndRefusesWrongTypes) {
    const auto sparse = Event::decode(
        R"({"UTCDateTimeMillis":1,"LocalDateTimeMillis":2,"AdID":null,"brand":"x","more":[{}]})",
        environment());
    ASSERT_TRUE(sparse.event) << sparse.error;
    Event expected;
    expected.UTCDateTimeMillis = 1;
    expected.LocalDateTimeMillis = 2;
    EXPECT_EQ(*sparse.event, expected);

    EXPECT_EQ(refusal(R"({"LocalDateTimeMillis":0})"), "no key UTCDateTimeMillis");
    EXPECT_EQ(refusal(R"({"UTCDateTimeMillis":0})"), "no key LocalDateTimeMillis");
    const auto with = [](const std::string& pair) {
        return R"({"UTCDateTimeMillis":0,"LocalDateTimeMillis":0,)" + pair + "}";
    };
    EXPECT_EQ(refusal(with(R"("Data":7)")), "Data is of another type");
    EXPECT_EQ(refusal(with(R"("Brand":"7")")), "Brand is of another type");
    EXPECT_EQ(refusal(with(R"("UBM":9223372036854775808)")), "UBM is of another type");
    for (const char* const wrong : {"null", "1.5", "\"0\"", "9223372036854775808", "true"})
        EXPECT_EQ(refusal(with(std::string(R"("UTCDateTimeMillis":)") + wrong)),
                  "UTCDateTimeMillis is not a 64-bit integer");
    for (const std::string& noObject :
         {std::string(), std::string("[]"), std::string("{"), std::string("1e999"),
          std::string("{\"\xFF\":1}"), std::string(100000, '[')})
        EXPECT_NE(refusal(noObject), "");
}

TEST_F(EventTest, TheInstallIdIsMadeOnceAndKept) {
    sorvel::Environment fresh = environment();
    fresh.store = sorvel::memoryStore();
    EXPECT_FALSE(Event::decode("", fresh).event); // decoding makes it too, before it looks at the document
    const auto made = fresh.store->string("id");
    EXPECT_EQ(made, kUuid);
    EXPECT_EQ(Event::ubm("other", "x", std::nullopt, fresh).AdID, made);
}

TEST(PortableEnvironment, MakesRandomUuidsInTheirStandardForm) {
    const auto uuids = sorvel::portableUuids();
    const std::string first = uuids->make();
    EXPECT_EQ(first.find_first_not_of("0123456789ABCDEF-"), std::string::npos);
    EXPECT_EQ(first[14], '4');
    EXPECT_NE(first, uuids->make());
}

} // namespace
