#include "platform/audio/rate_converter.hpp"
#include "sdk/audio.hpp"
#include "tests/support/allocation_count.hpp"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <random>

namespace {

using namespace sorvel;
using Samples = std::vector<float>;

Samples tone(double frequency_hz, double rate_hz, std::size_t n) {
    Samples samples(n);
    for (std::size_t i = 0; i < n; ++i)
        samples[i] = static_cast<float>(
            std::sin(2.0 * std::numbers::pi * frequency_hz * static_cast<double>(i) / rate_hz));
    return samples;
}

/// The whole recording, handed over in pieces of random length into an output of `room` samples.
Samples converted(double from_hz, double to_hz, std::span<const float> in, std::size_t longestPiece,
                  std::size_t room) {
    RateConverter converter(from_hz, to_hz);
    std::mt19937 generator(1);
    Samples all, out(room);
    const auto keep = [&](std::size_t n) {
        all.insert(all.end(), out.begin(), out.begin() + static_cast<std::ptrdiff_t>(n));
    };
    while (!in.empty()) {
        const auto piece = in.first(std::min<std::size_t>(in.size(), 1 + generator() % longestPiece));
        const Converted step = converter.convert(piece, out);
        keep(step.produced);
        in = in.subspan(step.consumed);
    }
    while (const std::size_t n = converter.flush(out)) keep(n);
    return all;
}

struct Fit {
    double level_db;    // of the tone, against full scale
    double residual_db; // of all else, against full scale
};

/// Least squares against a sine and a cosine, over the middle of the sound.
Fit fit(std::span<const float> sound, double frequency_hz, double rate_hz) {
    const auto middle = sound.subspan(sound.size() / 4, sound.size() / 2);
    double ss = 0, sc = 0, cc = 0, xs = 0, xc = 0;
    const auto at = [&](std::size_t i) {
        return 2.0 * std::numbers::pi * frequency_hz * static_cast<double>(i) / rate_hz;
    };
    for (std::size_t i = 0; i < middle.size(); ++i) {
        const double s = std::sin(at(i)), c = std::cos(at(i)), x = static_cast<double>(middle[i]);
        ss += s * s, sc += s * c, cc += c * c, xs += x * s, xc += x * c;
    }
    const double det = ss * cc - sc * sc, a = (xs * cc - xc * sc) / det, b = (xc * ss - xs * sc) / det;
    double rest = 0;
    for (std::size_t i = 0; i < middle.size(); ++i)
        rest += std::pow(static_cast<double>(middle[i]) - a * std::sin(at(i)) - b * std::cos(at(i)), 2);
    return {20 * std::log10(std::hypot(a, b)),
            10 * std::log10(2 * rest / static_cast<double>(middle.size()) + 1e-30)};
}

TEST(RateConverter, IsFlatInTheBandAndLeavesNoImages) {
    struct {
        double from_hz, to_hz, tolerance_db;
    } constexpr kCases[] = {
        {44100,  96000, 0.01 },
        {44100,  48000, 0.01 },
        {48000,  96000, 0.01 },
        {96000,  96000, 0.001},
        {192000, 96000, 0.01 },
        {48000,  44100, 0.01 }
    };
    for (const auto& [from, to, tolerance] : kCases)
        for (const double frequency : {18000.0, 18750.0, 19500.0}) {
            SCOPED_TRACE(testing::Message() << from << " to " << to << " Hz, tone of " << frequency);
            const Samples in = tone(frequency, from, static_cast<std::size_t>(from));
            const Fit result = fit(converted(from, to, in, 5000, 4096), frequency, to);
            EXPECT_NEAR(result.level_db, 0.0, tolerance);
            EXPECT_LT(result.residual_db, -100.0);
        }
}

TEST(RateConverter, KeepsEveryRecordingsLengthAndTime) {
    for (const double from : {8000.0, 11025.0, 44099.7, 48000.0, 384000.0})
        for (const std::size_t n : {0U, 1U, 7U, 1000U, 20001U}) {
            SCOPED_TRACE(testing::Message() << n << " samples at " << from << " Hz");
            const Samples in = tone(1000, from, n);
            const Samples out = converted(from, 96000, in, 300, 777);
            EXPECT_NEAR(static_cast<double>(out.size()), static_cast<double>(n) * 96000 / from, 1.0);
            const Samples expected = tone(1000, 96000, out.size());
            for (std::size_t i = 2000; i + 2000 < out.size(); ++i)
                ASSERT_NEAR(out[i], expected[i], 1e-3) << i;
        }
}

TEST(RateConverter, GivesTheSameWhateverThePieces) {
    const Samples in = tone(18200, 44100, 9999);
    EXPECT_EQ(converted(44100, 96000, in, 1, 1), converted(44100, 96000, in, 100000, 100000));
}

TEST(RateConverter, RefusesRatesThatAreNone) {
    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 infinity = std::numeric_limits<double>::infinity();
    for (const double rate : {0.0, -48000.0, 7999.0, 384001.0, 1e300, nan, infinity}) {
        EXPECT_THROW(RateConverter(rate, 96000), std::invalid_argument) << rate;
        EXPECT_THROW(LiveRateConverter(96000, rate), std::invalid_argument) << rate;
    }
}

// The level of a constant shows every gap, and the middle of a block where one was not filled.
TEST(LiveRateConverter, FillsEveryBlockWithoutGapOrAllocation) {
    for (const double from : {8000.0, 11025.0, 22050.0, 44099.7, 44100.0, 48000.0, 96000.0, 384000.0}) {
        SCOPED_TRACE(testing::Message() << from << " Hz");
        LiveRateConverter converter(from, 96000);
        BlockLengths lengths(from);
        const Samples in(lengths.longest(), 0.5F);
        Samples out(9600);
        const AllocationCount count;
        for (int block = 0; block < 120; ++block) {
            const std::size_t n = lengths.next();
            // As the listener counts: whole frames at whole Hz, which may be a sample fewer than
            // the input yields.
            const auto wanted =
                std::span(out).first(std::min<std::size_t>(9600, 96000 * n / static_cast<std::size_t>(from)));
            std::fill(out.begin(), out.end(), -1.0F);
            converter.convert(std::span(in).first(n), wanted);
            const auto settled = wanted.subspan(block == 0 ? 2000 : 0);
            const auto [low, high] = std::minmax_element(settled.begin(), settled.end());
            ASSERT_GT(*low, 0.49F) << "block " << block;
            ASSERT_LT(*high, 0.51F) << "block " << block;
        }
        EXPECT_EQ(count.total(), 0U);
    }
}

TEST(LiveRateConverter, PutsSilenceWhereTooMuchIsAskedFor) {
    LiveRateConverter converter(48000, 96000);
    const Samples in(4790, 0.5F);
    Samples out(9600);
    std::size_t silent = 0;
    for (int block = 0; block < 100; ++block) {
        converter.convert(in, out);
        silent += static_cast<std::size_t>(std::count(out.begin(), out.end(), 0.0F));
    }
    EXPECT_NEAR(static_cast<double>(silent), 100 * 20, 200); // what is missing, and the 1 ms in hand
}

// Too little is asked for: what is lost is the oldest, in whole milliseconds, and order stays.
TEST(LiveRateConverter, LosesTheOldestMillisecondsWhereTooLittleIsAskedFor) {
    LiveRateConverter converter(96000, 96000); // copies, so that a ramp tells each sample
    Samples in(9600), out(9580), all;
    float next = 1.0F;
    for (int block = 0; block < 100; ++block) {
        for (float& sample : in) sample = next++;
        converter.convert(in, out);
        all.insert(all.end(), out.begin(), out.end());
        ASSERT_LT(next - 1.0F - out.back(), 3 * 96.0F) << block; // two in hand and one lost at most
    }
    ASSERT_THAT(std::span(all).first(96), testing::Each(0.0F));
    int losses = 0;
    for (std::size_t i = 97; i < all.size(); ++i) {
        const float step = all[i] - all[i - 1];
        losses += step == 97.0F ? 1 : 0;
        // Between blocks, as behind the oldest there is no gap.
        ASSERT_TRUE(step == 1.0F || (step == 97.0F && i % out.size() == 0)) << step << " at " << i;
    }
    EXPECT_NEAR(losses, 100 * 20 / 96.0, 2);
}

TEST(Samples, BecomeMonoAnd16BitWithoutHarmFromAnyFloat) {
    const float nan = std::numeric_limits<float>::quiet_NaN(),
                infinity = std::numeric_limits<float>::infinity();
    Samples mono(4);
    mixToMono(Samples{0.5F, -0.25F, nan, 0.5F, -infinity, infinity, 3e38F, 3e38F}, 2, mono);
    EXPECT_THAT(mono, testing::ElementsAre(0.125F, 0.25F, 0.0F, 1e6F));

    constexpr auto kStep = 1.0F / 32768.0F;
    const Samples samples{0,     kStep,    -kStep, 1.6F * kStep, 0.99999F,  1,   2,
                          3e38F, infinity, -1,     -1.1F,        -infinity, nan, -nan};
    std::vector<std::int16_t> levels(samples.size());
    toInt16(samples, levels);
    EXPECT_THAT(levels, testing::ElementsAre(0, 1, -1, 2, 32767, 32767, 32767, 32767, 32767, -32768, -32768,
                                             -32768, 0, 0));
    // As the library rounds, halves included, at every quarter of a step.
    Samples quarters;
    for (int quarter = -4 * 32770; quarter <= 4 * 32770; ++quarter)
        quarters.push_back(0.25F * kStep * static_cast<float>(quarter));
    levels.resize(quarters.size());
    toInt16(quarters, levels);
    for (std::size_t i = 0; i < quarters.size(); ++i)
        ASSERT_EQ(levels[i], std::clamp(std::lrint(32768.0F * quarters[i]), -32768L, 32767L)) << quarters[i];
    Samples three(3);
    mixToMono(Samples{1, 2, 6, nan, 3, 0, infinity, -6e6F, 0}, 3, three);
    EXPECT_THAT(three, testing::ElementsAre(3.0F, 1.0F, testing::FloatNear(-1e6F / 3, 0.1F)));
    Samples one(1000, -2.0F), same(1000);
    one[7] = nan, one[8] = -infinity, one[9] = 3e38F;
    mixToMono(one, 1, same);
    one[7] = 0.0F, one[8] = 0.0F, one[9] = 1e6F;
    EXPECT_EQ(same, one);
}

} // namespace
