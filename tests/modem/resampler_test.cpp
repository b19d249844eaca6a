#include "modem/resampler.hpp"
#include "tests/support/literal_resampler.hpp"
#include "tests/support/transmissions.hpp"

#include <climits>
#include <gtest/gtest.h>
#include <memory>

namespace {

/// A resampler in a block of exactly the size it asks for.
class Stream {
public:
    Stream() {
        int size = 0;
        m_resampler.alloc(nullptr, size);
        m_block = std::make_unique<std::byte[]>(static_cast<std::size_t>(size));
        int n = 0;
        m_resampler.alloc(m_block.get(), n);
        EXPECT_EQ(n, size);
    }
    Samples resample(float factor, std::span<const float> in) {
        const auto n = static_cast<int>(in.size());
        const int due = m_resampler.resample(factor, n, in.data(), nullptr);
        Samples out(static_cast<std::size_t>(due) + 1); // even an empty one must not be null
        EXPECT_EQ(m_resampler.resample(factor, n, in.data(), out.data()), due);
        out.pop_back();
        return out;
    }
    GGWave::Resampler* operator->() { return &m_resampler; }

private:
    GGWave::Resampler m_resampler;
    std::unique_ptr<std::byte[]> m_block;
};

/// Of full scale.
void expectSame(std::span<const float> fast, std::span<const float> slow) {
    ASSERT_EQ(fast.size(), slow.size());
    for (std::size_t i = 0; i < fast.size(); ++i) ASSERT_NEAR(fast[i], slow[i], 1e-6F) << i;
}

class ResamplerTest : public testing::TestWithParam<float> {};

TEST_P(ResamplerTest, AgreesWithThePlainSumAcrossCallsOfAnyLength) {
    Stream stream;
    LiteralResampler literal;
    std::mt19937 generator(7);
    const Samples input = noise(60000, 0.3F, 11);
    for (std::size_t at = 0; at + 4032 <= input.size();) {
        SCOPED_TRACE(at);
        const std::size_t n = 65 + generator() % (4032 - 64);
        const auto block = std::span(input).subspan(at, n);
        ASSERT_NO_FATAL_FAILURE(
            expectSame(stream.resample(GetParam(), block), literal.resample(GetParam(), block)));
        at += n;
    }
}

TEST_P(ResamplerTest, AgreesWithThePlainSumBlockByBlock) {
    Resampler resampler;
    LiteralBlockResampler literal;
    const Samples input = noise(2000, 0.3F, 15);
    for (const std::size_t n : {2000U, 1U, 63U, 500U, 136U, 40U, 1500U}) {
        SCOPED_TRACE(n);
        const auto block = std::span(input).last(n);
        const std::vector<float> slow = literal.resample(GetParam(), block);
        Samples fast(slow.size());
        ASSERT_EQ(resampler.resample(GetParam(), static_cast<int>(n), block.data(), fast.data()),
                  static_cast<int>(fast.size()));
        EXPECT_LE(static_cast<float>(fast.size()), static_cast<float>(n) / GetParam() + 1);
        ASSERT_NO_FATAL_FAILURE(expectSame(fast, slow));
    }
}

TEST_P(ResamplerTest, StartsOverAfterAReset) {
    Stream used, fresh;
    const Samples input = noise(2000, 0.3F, 12);
    used.resample(GetParam(), input);
    used->reset();
    EXPECT_EQ(used->samplesTotal(), 0);
    EXPECT_EQ(used.resample(GetParam(), input), fresh.resample(GetParam(), input));
}

TEST_P(ResamplerTest, LosesToABrokenSampleOnlyTheOutputsAroundIt) {
    Stream broken, whole;
    Samples input = noise(1000, 0.3F, 16);
    const Samples expected = whole.resample(GetParam(), input);
    input[500] = NAN;
    const Samples spoilt = broken.resample(GetParam(), input);
    double time = 0.0;
    for (std::size_t i = 0; i < spoilt.size(); ++i, time += static_cast<double>(GetParam())) {
        if (std::abs(static_cast<int>(time) - (500 + 136)) > 63) {
            ASSERT_EQ(spoilt[i], expected[i]) << i;
        }
    }
    EXPECT_TRUE(std::ranges::any_of(spoilt, [](float x) { return std::isnan(x); }));
    for (int call = 0; call < 2; ++call) {
        const Samples healed = broken.resample(GetParam(), Samples(1000));
        EXPECT_TRUE(call == 0 || std::ranges::none_of(healed, [](float x) { return std::isnan(x); }));
    }
}

INSTANTIATE_TEST_SUITE_P(Factors, ResamplerTest,
                         testing::Values(2.0F, 1.0F, 0.5F, 0.11F, 44100.0F / 48000.0F, 48000.0F / 44100.0F,
                                         1.0078125F, 1.9999999F, 3.7F, 32.0F, 300.0F));

TEST(Resampling, ChangesBetweenFactorsWithoutLosingItsPlace) {
    Stream stream;
    LiteralResampler literal;
    Resampler blocks;
    LiteralBlockResampler literalBlocks;
    const Samples input = noise(1000, 0.3F, 13);
    for (const float factor : {2.0F, 1.25F, 2.0F, 0.5F, 2.0F, 2.0F, 0.3F, 2.0F, 7.0F}) {
        SCOPED_TRACE(factor);
        ASSERT_NO_FATAL_FAILURE(expectSame(stream.resample(factor, input), literal.resample(factor, input)));
        const std::vector<float> slow = literalBlocks.resample(factor, input);
        Samples fast(slow.size());
        EXPECT_EQ(blocks.resample(factor, 1000, input.data(), fast.data()), static_cast<int>(fast.size()));
        ASSERT_NO_FATAL_FAILURE(expectSame(fast, slow));
    }
}

TEST(Resampling, HandsOutALargeOutputInPortions) {
    Stream whole, parts;
    const Samples input = noise(1024, 0.3F, 14);
    const Samples expected = whole.resample(0.5F, input);
    Samples pieces, portion(100);
    std::ranges::copy(input, parts->feed(1024).begin());
    while (const int n = parts->take(0.5F, portion))
        pieces.insert(pieces.end(), portion.begin(), portion.begin() + n);
    parts->settle();
    EXPECT_EQ(pieces, expected);
    EXPECT_EQ(parts.resample(0.5F, input), whole.resample(0.5F, input));
}

/// Outputs due before `end`, one step after the other.
int stepped(double time, float factor, double end) {
    int outputs = 0;
    for (; time < end; time += static_cast<double>(factor)) ++outputs;
    return outputs;
}

TEST(Resampling, CountsAsSteppingInDoubleDoesAndKeepsWithinItsBound) {
    constexpr float kMin = GGWave::Resampler::kMinFactor;
    std::mt19937 generator(17);
    const auto random = [&](double low, double high) {
        return static_cast<float>(
            std::exp(std::uniform_real_distribution(std::log(low), std::log(high))(generator)));
    };
    const Samples input(4032);
    Samples out;
    for (int trial = 0; trial < 40; ++trial) {
        Stream stream;
        double time = 0.0, last = 0.0;
        for (int call = 0; call < 12; ++call) {
            const float factor = random(0.05, call % 5 == 4 ? 9e5 : 8.0);
            const int n = 65 + static_cast<int>(generator() % 3968);
            const int far = call == 11 ? 1'000'000 : n;
            ASSERT_EQ(stream->resample(factor, far, nullptr, nullptr),
                      stepped(time, factor, last + far + 1.0))
                << "trial " << trial << ", call " << call << ", factor " << factor;
            const double bound = std::ceil((n + 1.0) / static_cast<double>(factor));
            out.resize(static_cast<std::size_t>(bound));
            const int made = stream->resample(factor, n, input.data(), out.data());
            ASSERT_EQ(made, stepped(time, factor, last + n + 1.0));
            ASSERT_LE(made, bound);
            for (last += n; time < last + 1.0;) time += static_cast<double>(factor);
        }
    }
    // Across a power of two, with steps halfway between two doubles on one side of it.
    for (int trial = 0; trial < 300; ++trial) {
        const double edge = std::ldexp(1.0, static_cast<int>(generator() % 12) + 18);
        const auto odd = static_cast<float>(2 * (generator() % 0x800000) + 1);
        const auto factor =
            static_cast<float>(std::ldexp(odd, std::ilogb(edge) - 53 - static_cast<int>(generator() % 2)));
        if (factor < kMin) continue;
        const sorvel::detail::OutputClock clock{edge - static_cast<double>(random(1.0, 3000.0) * factor)};
        const int steps = 1 + static_cast<int>(generator() % 6000);
        double time = clock.next;
        for (int i = 0; i < steps; ++i) time += static_cast<double>(factor);
        ASSERT_EQ(clock.countBefore(time, factor), steps) << edge << " " << factor;
        ASSERT_EQ(clock.countBefore(std::nextafter(time, INFINITY), factor), steps + 1)
            << edge << " " << factor;
    }
    Stream fresh;
    EXPECT_EQ(fresh->resample(0.25F, 1000, nullptr, nullptr), 4004); // the bound itself
    EXPECT_EQ(fresh->resample(0.25F, -1, nullptr, nullptr), 0);
    EXPECT_EQ(fresh->resample(1.0F, INT_MAX - 1, nullptr, nullptr), INT_MAX);
    EXPECT_EQ(fresh->resample(kMin, INT_MAX, nullptr, nullptr), INT_MAX);
    EXPECT_EQ(fresh->resample(kMin, 65, input.data(), Samples(66 * 4096).data()), 66 * 4096);
    for (const float factor :
         {0.0F, -1.0F, NAN, 1e-9F, std::nextafter(kMin, 0.0F), GGWave::Resampler::kFactorLimit}) {
        EXPECT_EQ(fresh->resample(factor, INT_MAX, nullptr, nullptr), 0) << factor;
        EXPECT_EQ(fresh->resample(factor, 100, input.data(), out.data()), 0) << factor;
        EXPECT_EQ(Resampler().resample(factor, 100, input.data(), out.data()), 0) << factor;
    }
}

// The input repeats every 2048 samples and outputs fall due on multiples of that, so a stream of any age must
// give what a young one gives, before, across and after the rebase of its time.
TEST(Resampling, GoesOnUnchangedBeyondAnySampleCount) {
    constexpr float kSeldom = 262144.0F;
    const Samples input = noise(2048, 0.3F, 18);
    Stream old, young;
    Samples out(8192);
    const auto age = [&](Stream& stream, std::int64_t samples) {
        for (; samples > 0; samples -= 2048) stream->resample(kSeldom, 2048, input.data(), out.data());
    };
    std::int64_t total = 0;
    for (const std::int64_t samples : {(1LL << 30) - 2048, 1LL << 30}) {
        age(old, samples);
        age(young, samples % 262144);
        total += samples;
        for (const float factor : {0.75F, 2.0F, 1.25F, 1.25F}) {
            SCOPED_TRACE(testing::Message() << "after " << total << ", factor " << factor);
            ASSERT_NO_FATAL_FAILURE(expectSame(old.resample(factor, input), young.resample(factor, input)));
            EXPECT_EQ(old->samplesTotal(), std::min<std::int64_t>(total += 2048, INT_MAX));
        }
    }
}

TEST(BlockResampler, ShowsItsKernelAndDelayLine) {
    Resampler resampler;
    float none = 0;
    EXPECT_EQ(resampler.resample(2.0F, 0, &none, &none), 0);
    EXPECT_EQ(resampler.resample(2.0F, 1, nullptr, &none), 0);
    for (int i = 1; i <= 200; ++i) resampler.new_data(static_cast<float>(i));
    const Samples two{201.0F, 202.0F};
    EXPECT_EQ(resampler.resample(4.0F, 2, two.data(), &none), 1);
    for (int j = -64; j <= 71; ++j) EXPECT_EQ(resampler.gimme_data(j), static_cast<float>(202 - 71 + j));
    EXPECT_EQ(resampler.gimme_data(72), 0.0F);
    EXPECT_EQ(resampler.gimme_data(-65), 0.0F);
    EXPECT_EQ(resampler.sinc(63.0), 0.0);
    EXPECT_NEAR(resampler.sinc(0.5), 2 / std::numbers::pi, 1e-3);
}

TEST(ResamplerDeathTest, RefusesBlocksOutsideItsBuffer) {
    Stream stream;
    const Samples input(5000);
    Samples out(5000);
    EXPECT_DEATH(stream->resample(2.0F, 64, input.data(), out.data()), "nSamples > kWidth");
    EXPECT_DEATH(stream->resample(2.0F, 4033, input.data(), out.data()),
                 "m_samplesInp.size\\(\\) >= nSamples \\+ kWidth");
}

} // namespace
