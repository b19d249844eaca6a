#include "modem/fft.h"
#include "tests/support/log_capture.hpp"
#include "tests/support/transmissions.hpp"

#include <gtest/gtest.h>
#include <numbers>

namespace {

/// The transform as its sum, in double.
std::vector<double> slowTransform(const Samples& a) {
    const std::size_t n = a.size();
    std::vector<double> result(n);
    for (std::size_t k = 0; k <= n / 2; ++k) {
        double re = 0, im = 0;
        for (std::size_t j = 0; j < n; ++j) {
            const double angle =
                2 * std::numbers::pi * static_cast<double>(j * k % n) / static_cast<double>(n);
            re += static_cast<double>(a[j]) * std::cos(angle);
            im += static_cast<double>(a[j]) * std::sin(angle);
        }
        if (k == n / 2)
            result[1] = re;
        else
            result[2 * k] = re;
        if (k > 0 && k < n / 2) result[2 * k + 1] = im;
    }
    return result;
}

struct Tables {
    explicit Tables(std::size_t n)
        : ip(static_cast<std::size_t>(std::sqrt(static_cast<double>(n / 2))) + 3), w(n / 2) {}

    std::vector<int> ip;
    Samples w;
};

TEST(Rdft, IsTheTransformAndItsInverseAtEverySize) {
    Tables largest(2048);
    for (std::size_t n = 2048; n >= 2; n /= 2) {
        const Samples original = noise(n, 0.5F, static_cast<unsigned>(n));
        const auto expected = slowTransform(original);
        const double tolerance = 1e-6 * std::sqrt(static_cast<double>(n)); // rounding of log2(n) passes
        Tables own(n);
        for (Tables* const tables : {&own, &largest}) { // the largest ones serve every n
            Samples block(n + 1);                       // a float behind its start, no vector is aligned
            std::copy(original.begin(), original.end(), block.begin() + 1);
            float* const a = block.data() + 1;
            rdft(static_cast<int>(n), 1, a, tables->ip.data(), tables->w.data());
            for (std::size_t i = 0; i < n; ++i)
                ASSERT_NEAR(static_cast<double>(a[i]), expected[i], tolerance) << n << " " << i;
            rdft(static_cast<int>(n), -1, a, tables->ip.data(), tables->w.data());
            for (std::size_t i = 0; i < n; ++i)
                ASSERT_NEAR(a[i] * 2 / static_cast<float>(n), original[i], 1e-6F) << n << " " << i;
        }
    }
    EXPECT_EQ(largest.ip[0], 512);
    EXPECT_EQ(largest.ip[1], 512);
    Samples a{1, 2, 3};
    rdft(3, 1, a.data(), largest.ip.data(), largest.w.data()); // no power of two: left alone
    EXPECT_EQ(a, (Samples{1, 2, 3}));
}

TEST(Rdft, IsWhatItsPartsMakeInTurn) {
    for (const int n : {64, 128, 512}) { // both kinds of last pass
        Tables tables(static_cast<std::size_t>(n));
        float* const w = tables.w.data();
        const Samples original = noise(static_cast<std::size_t>(n), 0.5F, 7);
        Samples whole = original, parts = original, conjugate = original;
        rdft(n, 1, whole.data(), tables.ip.data(), w);
        bitrv2(n, nullptr, parts.data());
        cftfsub(n, parts.data(), w);
        rftfsub(n, parts.data(), tables.ip[1], w + tables.ip[0]);
        const float tolerance = 1e-6F * std::sqrt(static_cast<float>(n));
        for (std::size_t i = 2; i < parts.size(); ++i)
            ASSERT_NEAR(parts[i], whole[i], tolerance) << n << " " << i;
        rftbsub(n, parts.data(), tables.ip[1], w + tables.ip[0]);
        bitrv2(n, nullptr, parts.data());
        cftbsub(n, parts.data(), w); // n / 2 times the original
        bitrv2conj(n, nullptr, conjugate.data());
        cftbsub(n, conjugate.data(), w); // the forward transform, conjugated
        bitrv2conj(n, nullptr, conjugate.data());
        cftbsub(n, conjugate.data(), w);
        for (std::size_t i = 0; i < parts.size(); ++i) {
            ASSERT_NEAR(parts[i] * 2 / static_cast<float>(n), original[i], 1e-6F) << n << " " << i;
            ASSERT_NEAR(conjugate[i] * 2 / static_cast<float>(n), original[i], 1e-6F) << n << " " << i;
        }
    }
}

TEST(BitReversal, SwapsPairsAndConjugatesThemOnRequest) {
    Samples a(16), b(16);
    for (std::size_t i = 0; i < 16; ++i) a[i] = b[i] = static_cast<float>(i + 1);
    bitrv2(16, nullptr, a.data());
    bitrv2conj(16, nullptr, b.data());
    const std::array order{0, 4, 2, 6, 1, 5, 3, 7};
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(a[2 * i], static_cast<float>(2 * order[i] + 1));
        EXPECT_EQ(a[2 * i + 1], static_cast<float>(2 * order[i] + 2));
        EXPECT_EQ(b[2 * i], a[2 * i]);
        EXPECT_EQ(b[2 * i + 1], -a[2 * i + 1]);
    }
}

TEST(ComputeFFTR, TransformsFramesOfTheInstanceAndOthersWithTheCallersArrays) {
    LogCapture log;
    GGWave modem(fixedLength());
    const Samples frame = noise(1024, 0.5F, 3);
    Samples mine(1024), theirs(1024), wf(512);
    std::array<int, 32> wi{};
    EXPECT_TRUE(modem.computeFFTR(frame.data(), mine.data(), 1024));
    EXPECT_EQ(GGWave::computeFFTR(frame.data(), theirs.data(), 1024, wi.data(), wf.data()), 1);
    EXPECT_EQ(mine, theirs);
    EXPECT_FALSE(modem.computeFFTR(frame.data(), theirs.data(), 512));
    EXPECT_EQ(log.take(), "computeFFTR: N (512) must be equal to 'samplesPerFrame' 1024\n");
    EXPECT_EQ(mine, theirs);
    for (const int n : {1000, 3, 1, 0, -4}) // no power of two from 2 on: said so, and left alone
        EXPECT_EQ(GGWave::computeFFTR(frame.data(), theirs.data(), n, wi.data(), wf.data()), 0) << n;
    ggwave_Parameters odd = fixedLength();
    odd.samplesPerFrame = 1000;
    EXPECT_FALSE(GGWave(odd).computeFFTR(frame.data(), theirs.data(), 1000));
    EXPECT_EQ(log.take(), "computeFFTR: N (1000) must be a power of two from 2 on\n");
    EXPECT_EQ(mine, theirs);
    EXPECT_EQ(GGWave::computeFFTR(nullptr, nullptr, 1024, nullptr, nullptr), 2048);
    EXPECT_EQ(GGWave::computeFFTR(nullptr, nullptr, 1024, wi.data(), nullptr), 25);
}

TEST(Filter, AppliesWindowsAndTheHighPassRecursion) {
    for (const auto& [type, middle, edge] : {
             std::tuple{0, 0.5F,  0.0F },
             std::tuple{1, 0.54F, 0.08F}
    }) {
        Samples ones(4, 1.0F), state(4);
        ASSERT_EQ(GGWave::filter(type, ones.data(), 4, 0, 0, nullptr), 4);
        ASSERT_EQ(GGWave::filter(type, ones.data(), 4, 0, 0, state.data()), 1);
        EXPECT_NEAR(ones[0], edge, 1e-6F);
        EXPECT_NEAR(ones[1], middle, 1e-6F);
        EXPECT_NEAR(ones[2], 1.0F, 1e-6F);
        EXPECT_NEAR(ones[3], middle, 1e-6F);
    }
    ASSERT_EQ(GGWave::filter(2, nullptr, 0, 0, 0, nullptr), 11);
    Samples state(11), x = noise(64, 0.3F, 5), y = x;
    GGWave::filter(2, y.data(), 40, 1000.0F, 48000.0F, state.data());
    GGWave::filter(2, y.data() + 40, 24, 1000.0F, 48000.0F, state.data()); // goes on where it stopped
    const double theta = 2 * std::numbers::pi * 1000 / 48000, g = std::cos(theta) / (1 + std::sin(theta));
    double lastX = 0, lastY = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        lastY = (1 + g) / 2 * (static_cast<double>(x[i]) - lastX) - g * lastY;
        lastX = static_cast<double>(x[i]);
        EXPECT_NEAR(static_cast<double>(y[i]), lastY, 1e-5);
    }
    float lonely = 2.0F, single = 0.0F;
    EXPECT_EQ(GGWave::filter(0, &lonely, 1, 0, 0, &single), 1);
    EXPECT_EQ(lonely, 0.0F);
    EXPECT_EQ(GGWave::filter(9, &lonely, 1, 0, 0, nullptr), 0);
}

} // namespace
