#include "bench/hearing/channel.hpp"
#include "bench/hearing/hostile_sound.hpp"
#include "bench/hearing/trials.hpp"
#include "tools/simulated_air.hpp"
#include "tools/transmission.hpp"

#include <cmath>
#include <gmock/gmock.h>
#include <numbers>

namespace {

using namespace sorvel::hearing;
using Samples = std::vector<float>;

constexpr double kRate_hz = 48000.0;
constexpr Draw kDraw{DrawSet::Tuning, 1, 0};

double decibels(double ratio) { return 10.0 * std::log10(ratio); }

double power(std::span<const float> sound) {
    double sum = 0;
    for (const float x : sound) sum += static_cast<double>(x) * static_cast<double>(x);
    return sum / static_cast<double>(sound.size());
}

/// Power at one frequency, as the plain transform has it. The phasor is turned on, not computed anew:
/// over some 1e5 samples that errs by 1e-11.
double powerAt(std::span<const float> sound, double frequency_hz) {
    const double turn = 2.0 * std::numbers::pi * frequency_hz / kRate_hz;
    const double stepRe = std::cos(turn), stepIm = std::sin(turn);
    double re = 0, im = 0, phasorRe = 1, phasorIm = 0;
    for (const float x : sound) {
        re += static_cast<double>(x) * phasorRe;
        im += static_cast<double>(x) * phasorIm;
        const double next = phasorRe * stepRe - phasorIm * stepIm;
        phasorIm = phasorRe * stepIm + phasorIm * stepRe;
        phasorRe = next;
    }
    return 2.0 * (re * re + im * im) / std::pow(static_cast<double>(sound.size()), 2);
}

/// Power of half a second within 18.0 to 19.5 kHz.
double bandPower(std::span<const float> sound) {
    double sum = 0;
    for (double f = 18001; f < 19500; f += 2) sum += powerAt(sound.first(24000), f); // every bin
    return sum;
}

TEST(HearingWaveform, IsTheTransmittersOwnAtRest) {
    const std::string text = "acme_5 kq0zx89";
    const Samples sent = sorvel::transmission(text, 80);
    Samples sound(sent.size() + 100);
    add(Waveform(text), {kRate_hz, 50 / kRate_hz, 0.0, {}, 1.0}, 0.8, sound);
    for (std::size_t i = 0; i < sent.size(); ++i)
        ASSERT_NEAR(sound[i + 50], sent[i], 4e-4) << i; // the transmitter cuts its ramps to whole samples
    EXPECT_NEAR(power(sent) / (0.64 * Waveform::kPower), 1.0, 0.005);
}

TEST(HearingWaveform, MotionAndClockShiftTheTones) {
    const Waveform waveform("a");
    const auto shifted = [&](double speed_m_s, double ppm, double expected) {
        Motion motion;
        motion.mean_m_s = speed_m_s;
        const Hearing hearing{kRate_hz, 0.1, ppm, motion, 1.0};
        EXPECT_NEAR(hearing.end_s() - 0.1, Waveform::kDuration_s / expected, 1e-9);
        Samples still(9600), moving(9600); // the first chunk
        add(waveform, {kRate_hz, 0.1, 0.0, {}, 1.0}, 1.0, still);
        add(waveform, hearing, 1.0, moving);
        double best_hz = 0;
        for (int i = 384; i < 400; ++i)
            if (powerAt(still, i * 46.875) > powerAt(still, best_hz)) best_hz = i * 46.875;
        const double at = powerAt(moving, best_hz * expected);
        // 96 ms fall off by 5 Hz to either side.
        EXPECT_GT(at, 1.3 * powerAt(moving, best_hz * expected - 5));
        EXPECT_GT(at, 1.3 * powerAt(moving, best_hz * expected + 5));
    };
    shifted(1.5, 0.0, 1.0 + 1.5 / 343);
    shifted(-1.5, 0.0, 1.0 - 1.5 / 343);
    shifted(0.0, 1000.0, 1.001);
}

TEST(HearingMotion, DistanceIsTheIntegralOfSpeed) {
    const Motion motion{0.7, 0.35, 2.0, 1.0, 1.2, 1.0, 0.5};
    double distance = 0;
    for (int i = 0; i < 30000; ++i) {
        ASSERT_NEAR(motion.distance_m(i * 1e-4), distance, 1e-6) << i;
        distance += 1e-4 * motion.speed_m_s((i + 0.5) * 1e-4);
    }
}

struct NoiseCase {
    Colour colour;
    double snr_db;
};
class HearingNoise : public testing::TestWithParam<NoiseCase> {};

TEST_P(HearingNoise, LeavesTheAskedRatioInTheBand) {
    const auto [colour, snr_db] = GetParam();
    Channel channel;
    channel.colour = colour;
    channel.snr_db = snr_db;
    double noise = 0, tones = 0;
    for (std::uint32_t trial = 0; trial < 3; ++trial) {
        const Draw draw{DrawSet::Tuning, 1, trial};
        const Samples sound = makeScene(channel, kRate_hz, draw).sound;
        noise += bandPower(sound); // before the transmission
        const auto within = std::span(sound).subspan(36000, 24000 * 5);
        for (std::size_t i = 0; i < 5; ++i) tones += bandPower(within.subspan(i * 24000)) / 5;
    }
    // 3 times 750 bins: 0.1 dB of deviation; the tones' half seconds hold more or less of the pauses
    EXPECT_NEAR(decibels(tones / noise - 1.0), snr_db, 0.6);
}
INSTANTIATE_TEST_SUITE_P(Colours, HearingNoise,
                         testing::Values(NoiseCase{Colour::White, 0.0}, NoiseCase{Colour::White, 10.0},
                                         NoiseCase{Colour::Pink, 0.0}, NoiseCase{Colour::Pink, 10.0}));

TEST(HearingNoise, PinkFallsBy3dBAnOctave) {
    Samples sound(1U << 17U);
    addNoise(sound, Colour::Pink, 1.0, kRate_hz, kDraw.generator(Stream::Noise));
    const auto around = [&](double frequency_hz) {
        double sum = 0;
        for (int i = -50; i < 50; ++i) sum += powerAt(sound, frequency_hz + i * kRate_hz / 131072);
        return sum;
    };
    EXPECT_NEAR(decibels(around(1000) / around(8000)), 9.03, 1.5); // 100 bins each: 0.6 dB of deviation
}

TEST(HearingRoom, DecaysInItsTimeBehindTheDirectSound) {
    // An impulse is no transmission, so: the end of a transmission, after which only the room sounds.
    const Waveform waveform("acme");
    const Hearing hearing{kRate_hz, 0.1, 0.0, {}, 1.0};
    double early = 0, late = 0;
    for (std::uint32_t trial = 0; trial < 6; ++trial) {
        const Samples sound = heardInRoom(waveform, hearing, {0.8, -6.0, trial % 2 == 0 ? 1U : 6U}, 210000,
                                          {DrawSet::Tuning, 1, trial});
        const auto after = std::span(sound).subspan(static_cast<std::size_t>(hearing.end_s() * kRate_hz));
        early += power(after.subspan(4800, 4800));
        late += power(after.subspan(4800 + 19200, 4800)); // 0.4 s later: half of the 60 dB
    }
    EXPECT_NEAR(decibels(early / late), 30.0, 2.0);
}

TEST(HearingRoom, HasTheAskedEnergyAndSpeedsOfItsOwn) {
    const Waveform waveform("acme");
    Motion motion;
    motion.mean_m_s = 1.5;
    Samples dry(200000);
    add(waveform, {kRate_hz, 0.1, 0.0, motion, 1.0}, 1.0, dry);
    double echo = 0;
    for (std::uint32_t trial = 0; trial < 8; ++trial) {
        Samples room = heardInRoom(waveform, {kRate_hz, 0.1, 0.0, motion, 1.0}, {0.8, -6.0, 6}, dry.size(),
                                   {DrawSet::Tuning, 2, trial});
        for (std::size_t i = 0; i < room.size(); ++i) room[i] -= dry[i];
        echo += power(room) / 8;
    }
    EXPECT_NEAR(decibels(power(dry) / echo), -6.0, 1.5); // few tones in a random response
}

TEST(HearingDisturbances, HaveTheAskedLevels) {
    Samples whistle(48000);
    std::mt19937 generator = kDraw.generator(Stream::Whistles);
    addWhistle(whistle, {10.0, 50.0}, 0.5, kRate_hz, generator);
    EXPECT_NEAR(decibels(power(whistle) / 0.5), 10.0, 0.05);
    EXPECT_NEAR(decibels(bandPower(whistle) / 0.5), 10.0, 0.5); // the edges may leave the band

    Samples bursts(480000);
    addBursts(bursts, {30.0, 0.02, 0.15}, 1e-3, kRate_hz, kDraw);
    // A white burst has 16 times its power in the band, and lasts 2/15 of the time.
    EXPECT_NEAR(decibels(power(bursts) * 7.5 / 16), 0.0, 0.2);
}

TEST(HearingDevice, SlopesAlongALineInDecibels) {
    for (const auto& [frequency_hz, expected_db] : {
             std::pair(17000.0, 0.0), {18750.0, -10.0},
               {19500.0, -20.0}
    }) {
        Samples sound(48000);
        for (std::size_t i = 0; i < sound.size(); ++i)
            sound[i] = static_cast<float>(
                std::sin(2 * std::numbers::pi * frequency_hz * static_cast<double>(i) / kRate_hz));
        slope(sound, 20.0, kRate_hz);
        EXPECT_NEAR(decibels(2 * powerAt(std::span(sound).subspan(12000, 24000), frequency_hz)), expected_db,
                    0.2);
    }
}

TEST(HearingDevice, DropsOutOneGapPerSecond) {
    const Samples ones(240000, 1.0F);
    Samples silent = ones, lost = ones;
    EXPECT_EQ(dropOut(silent, {0.01, 1.0, Dropouts::Kind::Silent}, kRate_hz, 5.0, kDraw), 0.0);
    EXPECT_EQ(std::count(silent.begin(), silent.end(), 0.0F), 5 * 480);
    EXPECT_NEAR(dropOut(lost, {0.01, 1.0, Dropouts::Kind::Lost}, kRate_hz, 5.0, kDraw), 0.05, 1e-9);
    EXPECT_EQ(lost.size(), ones.size() - 5 * 480);
}

TEST(HearingCodec, KeepsWhatOpusCarriesAndSaysWhenItCannot) {
    Channel channel;
    channel.codec = Codec{CodecKind::Opus, 192};
    if (!codecsAreInstalled()) {
        EXPECT_THROW(makeScene(channel, kRate_hz, kDraw), std::runtime_error);
        return;
    }
    const Scene scene = makeScene(channel, kRate_hz, kDraw);
    EXPECT_NEAR(static_cast<double>(scene.sound.size()) / kRate_hz, scene.end_s + 0.9, 0.1);
    EXPECT_GT(bandPower(std::span(scene.sound).subspan(48000)),
              0.3 * power(std::span(scene.sound).subspan(48000, 24000)));
}

TEST(HearingTrials, RepeatFromTheirSeedsAndDifferBetweenTheSets) {
    const Channel& channel = pointNamed("room-walk:0").channel;
    const Scene first = makeScene(channel, 44100.0, kDraw), again = makeScene(channel, 44100.0, kDraw);
    EXPECT_EQ(first.sound, again.sound);
    EXPECT_NE(first.texts, makeScene(channel, 44100.0, {DrawSet::Reporting, 1, 0}).texts);
}

TEST(HearingTrials, ClassicHearsWhatItDoesAndNothingDeepInNoise) {
    std::vector<Trial> trials;
    for (const char* const name : {"white:10", "joined:10", "clock:-300", "white:-16"})
        for (const double rate_hz : {44100.0, 48000.0}) trials.push_back({&pointNamed(name), rate_hz, kDraw});
    std::vector<std::string> delivered;
    std::vector<double> delays_s;
    runTrials(trials, {Kind::Classic}, 2, [&](const Trial& trial, const Outcomes& outcomes) {
        const Outcome& classic = *outcomes[0];
        EXPECT_THAT(classic.wrong, testing::IsEmpty());
        if (classic.isDelivered) delivered.push_back(trial.point->name());
        if (classic.delay_s) delays_s.push_back(*classic.delay_s);
    });
    EXPECT_THAT(delivered, testing::ElementsAre("white:10", "white:10", "joined:10", "joined:10",
                                                "clock:-300", "clock:-300"));
    EXPECT_THAT(delays_s, testing::Each(testing::AllOf(testing::Gt(-0.2), testing::Lt(0.4))));
}

TEST(HearingTrials, IntervalIsWilsons) {
    // Closed form for none of n: 0 to z^2 / (n + z^2).
    const auto [low, high] = Share{0, 20}.interval();
    EXPECT_EQ(low, 0.0);
    EXPECT_NEAR(high, 3.8415 / 23.8415, 1e-4);
    EXPECT_NEAR((Share{98, 100}.interval()[0]), 0.9300, 1e-3);
}

} // namespace
