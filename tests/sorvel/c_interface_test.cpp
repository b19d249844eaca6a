#include "tests/sorvel/stream.hpp"

#include <gmock/gmock.h>
#include <limits>
#include <set>

namespace {

int codeOf(const sorvel_listener_config& config) {
    auto* listener = reinterpret_cast<sorvel_listener*>(1); // must be replaced in any case
    const int code = sorvel_listener_create(&config, &listener);
    EXPECT_EQ(listener == nullptr, code != SORVEL_OK);
    sorvel_listener_destroy(listener);
    return code;
}

int codeOf(const sorvel_sender_config& config) {
    auto* sender = reinterpret_cast<sorvel_sender*>(1);
    const int code = sorvel_sender_create(&config, &sender);
    EXPECT_EQ(sender == nullptr, code != SORVEL_OK);
    sorvel_sender_destroy(sender);
    return code;
}

/// Its code after `change`.
template <typename Config, typename Change>
int changed(Config config, Change change) {
    change(config);
    return codeOf(config);
}

TEST(CInterface, RefusesWhatItCannotCarryOut) {
    using L = sorvel_listener_config;
    const L good = listening(48000);
    ASSERT_EQ(codeOf(good), SORVEL_OK);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double rate_hz : {0.0, -48000.0, 7999.9, 384001.0, nan, HUGE_VAL})
        EXPECT_EQ(changed(good, [&](L& c) { c.sample_rate_hz = rate_hz; }), SORVEL_ERROR_RATE) << rate_hz;
    EXPECT_EQ(changed(good, [](L& c) { c.channels = 64; }), SORVEL_OK);
    EXPECT_EQ(changed(good, [](L& c) { c.channels = 65; }), SORVEL_ERROR_CHANNELS);
    EXPECT_EQ(changed(good, [](L& c) { c.format = 2; }), SORVEL_ERROR_FORMAT);
    EXPECT_EQ(changed(good, [](L& c) { c.receiver = -1; }), SORVEL_ERROR_RECEIVER);
    EXPECT_EQ(changed(good, [](L& c) { c.prefix = nullptr; }), SORVEL_ERROR_NULL);
    EXPECT_EQ(changed(good, [](L& c) { c.prefix = "sixteen_letters_"; }), SORVEL_ERROR_PREFIX);
    EXPECT_EQ(changed(good, [](L& c) { c.prefix = "acme-"; }), SORVEL_ERROR_PREFIX);
    const std::string longest(140, '-'), longer(141, '-');
    for (const auto& [prefix, code] : {
             std::pair{longest, int{SORVEL_OK}     },
             {longer,  SORVEL_ERROR_PREFIX}
    })
        EXPECT_EQ(codeOf(listening(48000, prefix.c_str(), SORVEL_RECEIVER_MESSAGES)), code);

    using S = sorvel_sender_config;
    const S sender = sending(44100);
    ASSERT_EQ(codeOf(sender), SORVEL_OK);
    for (const double rate_hz : {0.0, 44099.0, 384001.0, nan})
        EXPECT_EQ(changed(sender, [&](S& c) { c.sample_rate_hz = rate_hz; }), SORVEL_ERROR_RATE) << rate_hz;
    EXPECT_EQ(changed(sender, [](S& c) { c.format = -1; }), SORVEL_ERROR_FORMAT);
    EXPECT_EQ(changed(sender, [](S& c) { c.content = 2; }), SORVEL_ERROR_CONTENT);
    for (const int volume : {-1, 101})
        EXPECT_EQ(changed(sender, [&](S& c) { c.volume_percent = volume; }), SORVEL_ERROR_VOLUME);
}

TEST(CInterface, TakesNullWithAnAnswer) {
    const ListenerHandle listener = made(listening(48000));
    const SenderHandle sender = made(sending(48000));
    const auto config = listening(48000);
    const auto other = sending(48000);
    sorvel_heard heard{};
    std::size_t frames = 0;
    EXPECT_EQ(sorvel_listener_create(&config, nullptr), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_sender_create(&other, nullptr), SORVEL_ERROR_NULL);
    sorvel_listener* none = nullptr;
    sorvel_sender* noSender = nullptr;
    EXPECT_EQ(sorvel_listener_create(nullptr, &none), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_sender_create(nullptr, &noSender), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_listener_push(nullptr, &heard, 1), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_listener_push(listener.get(), nullptr, 1), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_listener_push(listener.get(), nullptr, 0), SORVEL_OK);
    EXPECT_EQ(sorvel_listener_finish(nullptr), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_listener_reset(nullptr), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_listener_poll(nullptr, &heard), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_listener_poll(listener.get(), nullptr), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_sender_count(nullptr, "a", 1, &frames), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_sender_count(sender.get(), nullptr, 1, &frames), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_sender_count(sender.get(), "a", 1, nullptr), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_sender_send(sender.get(), "a", 1, nullptr, 1000000, &frames), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_pack(nullptr, 1, nullptr), SORVEL_ERROR_NULL);
    EXPECT_EQ(sorvel_unpack(nullptr, nullptr), SORVEL_ERROR_NULL);
    sorvel_listener_destroy(nullptr);
    sorvel_sender_destroy(nullptr);
}

/// What a program has that was built with a later header.
template <typename Struct>
struct Later {
    Struct known;
    std::uint32_t added[4];
};

TEST(CInterface, TakesStructsOfEarlierAndLaterHeadersByTheirSize) {
    Later<sorvel_listener_config> config{listening(48000), {}};
    for (const std::uint32_t size : {0U, 4U, std::uint32_t{sizeof config.known} - 8U, 5000U, 0xFFFFFFFFU}) {
        config.known.size = size;
        EXPECT_EQ(codeOf(config.known), SORVEL_ERROR_SIZE) << size;
    }
    config.known.size = sizeof config;
    EXPECT_EQ(codeOf(config.known), SORVEL_OK);
    config.added[3] = 1;
    EXPECT_EQ(codeOf(config.known), SORVEL_ERROR_SIZE); // asks for what is not known here
    Later<sorvel_sender_config> sender{
        sending(48000), {0, 1, 0, 0}
    };
    sender.known.size = sizeof sender;
    EXPECT_EQ(codeOf(sender.known), SORVEL_ERROR_SIZE);

    const ListenerHandle listener = made(listening(48000, ""));
    push(listener.get(), soundOf("acme_1", 48000));
    Later<sorvel_heard> heard{
        {},
        {7, 7, 7, 7}
    };
    EXPECT_EQ(sorvel_listener_poll(listener.get(), &heard.known), SORVEL_ERROR_SIZE);
    heard.known.size = sizeof heard;
    ASSERT_EQ(sorvel_listener_poll(listener.get(), &heard.known), 1); // the error had not taken it
    EXPECT_EQ(textOf(heard.known), "acme_1");
    EXPECT_EQ(heard.known.size, sizeof heard);
    EXPECT_THAT(heard.added, testing::Each(0U));
}

TEST(CInterface, HasALineForEveryCode) {
    std::set<std::string> lines;
    for (int code = SORVEL_ERROR_DAMAGED; code <= SORVEL_OK; ++code) lines.insert(sorvel_error_text(code));
    EXPECT_EQ(lines.size(), std::size_t{1 - SORVEL_ERROR_DAMAGED});
    for (const std::string& line : lines) EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_FALSE(lines.contains(sorvel_error_text(1)));
    EXPECT_STREQ(sorvel_error_text(1), sorvel_error_text(std::numeric_limits<int>::min()));
    EXPECT_EQ(sorvel_version_number(),
              SORVEL_VERSION_MAJOR << 16 | SORVEL_VERSION_MINOR << 8 | SORVEL_VERSION_PATCH);
}

TEST(CInterface, PacksTextsAsTheyAreSent) {
    std::array<std::uint8_t, SORVEL_PAYLOAD_BYTES> payload{};
    std::array<char, SORVEL_MOST_TEXT_CHARACTERS + 1> text{};
    for (const std::string sent : {"a", "acme_0123456789", " _ z"}) {
        ASSERT_EQ(sorvel_pack(sent.data(), sent.size(), payload.data()), SORVEL_OK);
        ASSERT_EQ(sorvel_unpack(payload.data(), text.data()), SORVEL_OK);
        EXPECT_STREQ(text.data(), sent.c_str());
    }
    payload[0] ^= 1;
    EXPECT_EQ(sorvel_unpack(payload.data(), text.data()), SORVEL_ERROR_DAMAGED);
    EXPECT_EQ(sorvel_pack("", 0, payload.data()), SORVEL_ERROR_LENGTH);
    EXPECT_EQ(sorvel_pack("acme_01234567890", 16, payload.data()), SORVEL_ERROR_LENGTH);
    EXPECT_EQ(sorvel_pack("Acme", 4, payload.data()), SORVEL_ERROR_CHARACTER);
    EXPECT_EQ(sorvel_pack("a\0b", 3, payload.data()), SORVEL_ERROR_CHARACTER);
}

} // namespace
