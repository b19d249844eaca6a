#include "payload/encoding.hpp"
#include "tests/sorvel/stream.hpp"

#include <gmock/gmock.h>
#include <numbers>

namespace {

/// The modem's own waveform of a text.
Samples modemSound(const std::string& text, int volume) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString(text, payload.data());
    return transmission({payload.data(), payload.size()}, fixedLength(), volume);
}

TEST(Sender, MakesTheModemsWaveformAtItsRateAndAsManySamplesAsItSaidAtOthers) {
    EXPECT_EQ(soundOf("acme_1", 48000), modemSound("acme_1", 50));
    for (const double rate_hz : {44100.0, 88200.0, 96000.0, 192000.0, 384000.0, 44123.4}) {
        const Samples sound = soundOf("acme_1", rate_hz);
        EXPECT_EQ(static_cast<double>(sound.size()), std::round(3.264 * rate_hz));
    }
    // From 48 to 96 kHz, every second sample is one of the modem's.
    const Samples once = soundOf("acme_1", 48000), twice = soundOf("acme_1", 96000);
    double difference = 0.0;
    for (std::size_t i = 0; i < once.size(); ++i)
        difference = std::max(difference, std::fabs(static_cast<double>(once[i] - twice[2 * i])));
    EXPECT_LT(difference, 0.5e-3); // 60 dB below the tones, whose ends are steps
}

TEST(Sender, RoundsToSixteenBitsWithoutWrappingAtFullVolume) {
    for (const double rate_hz : {48000.0, 44100.0}) {
        sorvel_sender_config config = sending(rate_hz);
        config.volume_percent = 100;
        const SenderHandle floats = made(config);
        config.format = SORVEL_FORMAT_I16;
        const SenderHandle integers = made(config);
        std::size_t frames = 0;
        ASSERT_EQ(sorvel_sender_count(floats.get(), "zzzz", 4, &frames), SORVEL_OK);
        Samples samples(frames);
        std::vector<char> bytes(2 * frames + 1); // at an odd address, which must do
        ASSERT_EQ(sorvel_sender_send(floats.get(), "zzzz", 4, samples.data(), frames, nullptr), SORVEL_OK);
        ASSERT_EQ(sorvel_sender_send(integers.get(), "zzzz", 4, bytes.data() + 1, frames, nullptr),
                  SORVEL_OK);
        float highest = 0.0F, largest = 0.0F;
        for (std::size_t i = 0; i < frames; ++i) {
            std::int16_t level = 0;
            std::memcpy(&level, bytes.data() + 1 + 2 * i, sizeof level);
            highest = std::max(highest, std::fabs(samples[i]));
            largest = std::max(largest, std::fabs(samples[i] - static_cast<float>(level) / 32768.0F));
        }
        EXPECT_LE(highest, 1.0F);
        EXPECT_GT(highest, 0.9F);
        EXPECT_LE(largest, 1.0F / 32768.0F);
    }
}

TEST(Sender, RefusesWhatCannotBeSentAndLeavesABufferThatIsTooSmallAlone) {
    const SenderHandle sender = made(sending(48000)),
                       messages = made(sending(48000, SORVEL_CONTENT_MESSAGES));
    std::size_t frames = 1;
    const auto codeOf = [&](const SenderHandle& by, const std::string& content) {
        return sorvel_sender_count(by.get(), content.data(), content.size(), &frames);
    };
    EXPECT_EQ(codeOf(sender, ""), SORVEL_ERROR_LENGTH);
    EXPECT_EQ(frames, 0U);
    EXPECT_EQ(codeOf(sender, "acme_01234567890"), SORVEL_ERROR_LENGTH);
    EXPECT_EQ(codeOf(sender, "ACME"), SORVEL_ERROR_CHARACTER);
    EXPECT_EQ(codeOf(sender, "grüße"), SORVEL_ERROR_CHARACTER);
    EXPECT_EQ(codeOf(messages, std::string(141, 'x')), SORVEL_ERROR_LENGTH);
    EXPECT_EQ(codeOf(messages, ""), SORVEL_ERROR_LENGTH);
    EXPECT_EQ(codeOf(messages, std::string(140, '\xFF')), SORVEL_OK);

    ASSERT_EQ(codeOf(sender, "acme"), SORVEL_OK);
    Samples room(frames, 7.0F);
    std::size_t written = 1;
    EXPECT_EQ(sorvel_sender_send(sender.get(), "acme", 4, room.data(), frames - 1, &written),
              SORVEL_ERROR_ROOM);
    EXPECT_EQ(written, 0U);
    EXPECT_THAT(room, testing::Each(7.0F));
}

} // namespace
