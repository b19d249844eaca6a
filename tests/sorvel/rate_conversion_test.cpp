#include "sorvel/rate_conversion.hpp"

#include <cmath>
#include <gmock/gmock.h>
#include <numbers>

namespace {

using sorvel::stream::RateConversion;
using Samples = std::vector<float>;

double tone(double frequency_hz, double time_s) {
    return std::sin(2.0 * std::numbers::pi * frequency_hz * time_s + 0.3);
}

Samples converted(RateConversion& conversion, std::span<const float> in, std::size_t block) {
    Samples out;
    Samples piece(block);
    while (true) {
        const auto step = conversion.convert(in.first(std::min(block, in.size())), piece);
        out.insert(out.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(step.produced));
        in = in.subspan(step.consumed);
        if (in.empty() && step.produced < piece.size()) return out;
    }
}

struct Rates {
    double from_hz, to_hz;

    friend std::ostream& operator<<(std::ostream& out, const Rates& rates) {
        return out << rates.from_hz << " to " << rates.to_hz;
    }
};

class RateConversionBetween : public testing::TestWithParam<Rates> {};

INSTANTIATE_TEST_SUITE_P(Rates, RateConversionBetween,
                         testing::Values(Rates{44100, 48000}, Rates{48000, 44100}, Rates{96000, 48000},
                                         Rates{384000, 48000}, Rates{352800, 48000}, Rates{48000, 384000},
                                         Rates{47999.5, 48000}, Rates{50000, 48000}, Rates{192000, 48000}));

// A millivolt in a volt is 60 dB: far below what decides whether a tone is heard.
TEST_P(RateConversionBetween, KeepsTheBandAndEverySamplesTime) {
    const auto [from_hz, to_hz] = GetParam();
    for (const double frequency_hz : {300.0, 18000.0, 19450.0}) {
        Samples in;
        for (int i = 0; i < 20000; ++i) in.push_back(static_cast<float>(tone(frequency_hz, i / from_hz)));
        RateConversion conversion(from_hz, to_hz);
        const Samples out = converted(conversion, in, 10000);
        const std::size_t margin = 600;
        ASSERT_GT(out.size(), 3 * margin);
        double worst = 0.0;
        for (std::size_t i = margin; i < out.size(); ++i)
            worst = std::max(worst, std::fabs(static_cast<double>(out[i]) -
                                              tone(frequency_hz, static_cast<double>(i) / to_hz)));
        EXPECT_LT(worst, 1e-3) << frequency_hz;
        conversion.reset();
        EXPECT_EQ(converted(conversion, in, 7), out); // by any blocks, and after a reset
    }
}

TEST(RateConversion, KeepsWhatLiesAboveTheNewRateOutOfTheBand) {
    for (const double from_hz : {96000.0, 192000.0, 384000.0, 88200.0}) {
        for (const double frequency_hz :
             {28600.0, 30000.0, 40000.0}) { // would fold to 18 to 19.4 kHz, and below
            Samples in;
            for (int i = 0; i < 20000; ++i) in.push_back(static_cast<float>(tone(frequency_hz, i / from_hz)));
            RateConversion conversion(from_hz, 48000);
            const Samples out = converted(conversion, in, 1000);
            double highest = 0.0;
            for (std::size_t i = 100; i < out.size(); ++i)
                highest = std::max(highest, std::fabs(static_cast<double>(out[i])));
            EXPECT_LT(highest, 1e-3) << from_hz << " " << frequency_hz;
        }
    }
}

} // namespace
