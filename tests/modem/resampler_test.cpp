#include "modem/resampler.hpp"
#include "tests/support/literal_resampler.hpp"
#include "tests/support/transmissions.hpp"

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
        Samples out(static_cast<std::size_t>(m_resampler.resample(factor, n, in.data(), nullptr)));
        EXPECT_EQ(m_resampler.resample(factor, n, in.data(), out.data()), static_cast<int>(out.size()));
        return out;
    }
    GGWave::Resampler* operator->() { return &m_resampler; }

private:
    GGWave::Resampler m_resampler;
    std::unique_ptr<std::byte[]> m_block;
};

class ResamplerTest : public testing::TestWithParam<float> {};

TEST_P(ResamplerTest, AgreesWithThePlainSumAcrossCallsOfAnyLength) {
    Stream stream;
    LiteralResampler literal;
    std::mt19937 generator(7);
    const Samples input = noise(60000, 0.3F, 11);
    for (std::size_t at = 0; at + 4032 <= input.size();) {
        const std::size_t n = 65 + generator() % (4032 - 64);
        const auto block = std::span(input).subspan(at, n);
        const Samples fast = stream.resample(GetParam(), block);
        const std::vector<float> slow = literal.resample(GetParam(), block);
        ASSERT_EQ(fast.size(), slow.size());
        for (std::size_t i = 0; i < fast.size(); ++i)
            ASSERT_NEAR(fast[i], slow[i], 1e-6F) << at << " " << i; // of full scale
        at += n;
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

INSTANTIATE_TEST_SUITE_P(Factors, ResamplerTest,
                         testing::Values(2.0F, 1.0F, 0.5F, 44100.0F / 48000.0F, 48000.0F / 44100.0F, 3.7F));

TEST(Resampling, ChangesBetweenFactorsWithoutLosingItsPlace) {
    Stream stream;
    LiteralResampler literal;
    const Samples input = noise(1000, 0.3F, 13);
    for (const float factor : {2.0F, 1.25F, 2.0F, 0.5F, 2.0F, 2.0F}) {
        const Samples fast = stream.resample(factor, input);
        const std::vector<float> slow = literal.resample(factor, input);
        ASSERT_EQ(fast.size(), slow.size());
        for (std::size_t i = 0; i < fast.size(); ++i)
            ASSERT_NEAR(fast[i], slow[i], 1e-6F) << factor << " " << i;
    }
}

TEST(Resampling, HandsOutALargeOutputInPortions) {
    Stream whole, parts;
    const Samples input = noise(1024, 0.3F, 14);
    const Samples expected = whole.resample(0.5F, input);
    EXPECT_EQ(expected.size(),
              2050U); // the first block of a stream yields the sample at its very end as well
    Samples pieces, portion(100);
    parts->feed(1024, input.data());
    while (const int n = parts->take(0.5F, portion))
        pieces.insert(pieces.end(), portion.begin(), portion.begin() + n);
    parts->settle();
    EXPECT_EQ(pieces, expected);
    EXPECT_EQ(parts.resample(0.5F, input), whole.resample(0.5F, input));
}

TEST(BlockResampler, ConvertsEachBlockAsTheStreamWouldWithoutHoldingBack) {
    const Samples input = noise(2000, 0.3F, 15);
    for (const float factor : {2.0F, 0.5F, 1.0884354F, 3.0F}) {
        Resampler resampler;
        Samples out(5000);
        const int n = resampler.resample(factor, 2000, input.data(), out.data());
        EXPECT_EQ(n, static_cast<int>(std::ceil(2000.0 / static_cast<double>(factor)))) << factor;
        if (factor != 2.0F && factor != 0.5F) continue; // the others shift by parts of an output
        const std::vector<float> late =
            LiteralResampler().resample(factor, input); // 64 zeros ahead of the block
        const std::size_t shift = static_cast<std::size_t>(64 / factor);
        for (std::size_t i = 0; i + shift < late.size() && i < static_cast<std::size_t>(n); ++i)
            ASSERT_NEAR(out[i], late[i + shift], 1e-6F) << factor << " " << i;
    }
    Resampler resampler;
    float none = 0;
    for (const float factor : {0.0F, -1.0F, NAN}) EXPECT_EQ(resampler.resample(factor, 1, &none, &none), 0);
    EXPECT_EQ(resampler.resample(2.0F, 0, &none, &none), 0);
    resampler.new_data(0.5F);
    EXPECT_EQ(resampler.gimme_data(71), 0.5F);
    EXPECT_EQ(resampler.gimme_data(72), 0.0F);
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
    EXPECT_EQ(stream->resample(0.0F, 100, input.data(), out.data()), 0);
    EXPECT_EQ(stream->resample(std::nanf(""), 100, input.data(), out.data()), 0);
}

} // namespace
