#include "platform/audio/block_converter.hpp"

#include <cmath>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <vector>

using namespace sorvel;

namespace {

class Blocks final : public ConverterInput {
public:
    explicit Blocks(std::deque<const AudioBuffer*> blocks) : m_blocks(std::move(blocks)) {}
    const AudioBuffer* next(std::uint32_t, InputStatus& status) noexcept override {
        status = m_blocks.empty() ? InputStatus::NoDataNow : InputStatus::HaveData;
        if (m_blocks.empty()) return nullptr;
        const AudioBuffer* const block = m_blocks.front();
        m_blocks.pop_front();
        return block;
    }

private:
    std::deque<const AudioBuffer*> m_blocks;
};

AudioFormat captured(double rate_hz, std::uint32_t channels) {
    return {SampleType::Float32, rate_hz, channels, true};
}

} // namespace

class BlockConverterRates : public testing::TestWithParam<double> {};

// A tone on the right channel alone arrives at half its level, which is the mean of both; its power
// over whole blocks says so to 0.1 dB, and would also tell a gap, a seam between blocks, or the
// wrong channel.
TEST_P(BlockConverterRates, EveryBlockIsFilledAndATonePassesUnbroken) {
    constexpr double kTone_hz = 3000.0, kLevel = 0.5;
    const AudioFormat from = captured(GetParam(), 2);
    const auto converter = makeBlockConverter(from, kTargetFormat);
    ASSERT_TRUE(converter);
    BlockLengths lengths(GetParam());
    AudioBuffer block(from, lengths.longest());
    double time = 0.0, power = 0.0, loudestStep = 0.0;
    for (int count = 0; count < 20; ++count) {
        block.reset(lengths.next());
        block.setFrameLength(block.frameCapacity());
        for (std::uint32_t frame = 0; frame < block.frameLength(); ++frame, time += 1.0 / GetParam())
            block.floatSamples(1)[2 * frame] =
                static_cast<float>(kLevel * std::sin(2.0 * std::numbers::pi * kTone_hz * time));
        AudioBuffer output(kTargetFormat,
                           96000U * block.frameLength() / static_cast<std::uint32_t>(GetParam()),
                           kTargetBlockBytes);
        Blocks input({&block});
        ASSERT_EQ(converter->convert(output, input), ConverterStatus::HaveData);
        ASSERT_EQ(output.frameLength(), output.frameCapacity());
        if (count < 2) continue; // the latency
        double sum = 0.0;
        for (std::uint32_t frame = 0; frame < output.frameLength(); ++frame) {
            const double sample = output.int16Samples(0)[frame] / 32768.0;
            sum += sample * sample;
            if (frame > 0)
                loudestStep =
                    std::max(loudestStep, std::fabs(sample - output.int16Samples(0)[frame - 1] / 32768.0));
        }
        power += sum / output.frameLength() / 18.0;
    }
    EXPECT_NEAR(10.0 * std::log10(power / (kLevel * kLevel / 8.0)), 0.0, 0.1);
    EXPECT_LT(loudestStep, 1.05 * kLevel / 2.0 * 2.0 * std::numbers::pi * kTone_hz / 96000.0);
}

INSTANTIATE_TEST_SUITE_P(Rates, BlockConverterRates, testing::Values(8000.0, 44100.0, 48000.0, 96000.0));

// What the converter does not take, a buffer still has to hold.
TEST(AudioBuffers, HoldEachChannelWhereItBelongs) {
    for (const bool isInterleaved : {true, false}) {
        AudioBuffer block({SampleType::Float32, 48000, 2, isInterleaved}, 3);
        for (std::uint32_t channel = 0; channel < 2; ++channel)
            for (std::size_t frame = 0; frame < 3; ++frame)
                block.floatSamples(channel)[frame * block.stride()] =
                    static_cast<float>(10 * channel + frame);
        float memory[6];
        ASSERT_EQ(block.bytes().size(), sizeof memory);
        std::memcpy(memory, block.bytes().data(), sizeof memory);
        EXPECT_EQ(std::vector(memory, memory + 6), isInterleaved ? (std::vector<float>{0, 10, 1, 11, 2, 12})
                                                                 : (std::vector<float>{0, 1, 2, 10, 11, 12}));
        EXPECT_TRUE(block.floatSamples(2).empty());
        EXPECT_TRUE(block.int16Samples(0).empty());
    }
}

TEST(BlockConverter, MixesAsManyAs64Channels) {
    const AudioFormat from = captured(96000, 64); // equal rates: copied, behind 1 ms in hand
    const auto converter = makeBlockConverter(from, kTargetFormat);
    AudioBuffer block(from, 9600), output(kTargetFormat, 9600);
    block.setFrameLength(9600);
    for (std::size_t frame = 0; frame < 9600; ++frame) block.floatSamples(63)[64 * frame] = 0.5F;
    Blocks input({&block});
    ASSERT_EQ(converter->convert(output, input), ConverterStatus::HaveData);
    EXPECT_EQ(output.int16Samples(0)[5000], 256);
}

TEST(BlockConverter, RefusesWhatItWasNotMadeFor) {
    const AudioFormat from = captured(48000, 1);
    EXPECT_FALSE(makeBlockConverter({SampleType::Int16, 48000, 1, true}, kTargetFormat));
    EXPECT_FALSE(makeBlockConverter({SampleType::Float32, 48000, 2, false}, kTargetFormat));
    EXPECT_FALSE(makeBlockConverter(captured(48000, 0), kTargetFormat));
    EXPECT_FALSE(makeBlockConverter(captured(0, 1), kTargetFormat));
    EXPECT_FALSE(makeBlockConverter(captured(std::numeric_limits<double>::quiet_NaN(), 1), kTargetFormat));
    EXPECT_FALSE(makeBlockConverter(from, from));

    const auto converter = makeBlockConverter(from, kTargetFormat);
    AudioBuffer output(kTargetFormat, kTargetBlockFrames);
    AudioBuffer good(from, 4800), other(captured(44100, 1), 4410);
    good.setFrameLength(4800);
    other.setFrameLength(4410);
    Blocks mixed({&good, &other}), none({}), two({&good, &good});
    EXPECT_EQ(converter->convert(output, mixed), ConverterStatus::Error);
    EXPECT_EQ(output.frameLength(), 0U);
    EXPECT_EQ(converter->convert(output, none), ConverterStatus::InputRanDry);
    EXPECT_EQ(output.frameLength(), 0U);
    AudioBuffer both(kTargetFormat, 2 * kTargetBlockFrames), floats(captured(96000, 1), 9600);
    EXPECT_EQ(converter->convert(both, two), ConverterStatus::HaveData);
    EXPECT_EQ(both.frameLength(), 2 * kTargetBlockFrames);
    Blocks again({&good});
    EXPECT_EQ(converter->convert(floats, again), ConverterStatus::Error);
}
