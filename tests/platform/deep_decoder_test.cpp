#include "deep/receiver.hpp"
#include "payload/encoding.hpp"
#include "platform/audio/block_converter.hpp"
#include "platform/audio/rate_converter.hpp"
#include "platform/deep_decoder.hpp"
#include "sdk/SorvelUBM.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/fake_platform.hpp"
#include "tests/support/transmissions.hpp"

#include <array>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>

using namespace sorvel;

namespace {

/// A text between two seconds of noise, which is 8 dB over the tones within their band, at `rate_hz`.
Samples sound(const char* text, double rate_hz) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString(text, payload.data());
    const Samples tones = transmission(std::string_view(payload.data(), payload.size()));
    float power = 0.0F;
    for (const float x : tones) power += x * x / static_cast<float>(tones.size());
    // The band holds a sixteenth of the power of white noise at 48 kHz, and 8 dB are a factor of 6.3.
    const float deviation = std::sqrt(16.0F * 6.3F * power);
    Samples sent = silence(48000) + tones + silence(48000);
    const Samples hiss = noise(sent.size(), deviation, 11);
    for (std::size_t i = 0; i < sent.size(); ++i) sent[i] = 0.1F * (sent[i] + hiss[i]);
    RateConverter converter(48000.0, rate_hz);
    Samples converted(static_cast<std::size_t>(static_cast<double>(sent.size()) * rate_hz / 48000.0));
    const std::size_t produced = converter.convert(sent, converted).produced;
    converter.flush(std::span(converted).subspan(produced));
    return converted;
}

/// In blocks of 100 ms as a source of that format delivers them: the sound on the last channel alone.
std::vector<AudioBuffer> blocks(const AudioFormat& format, std::span<const float> mono) {
    std::vector<AudioBuffer> result;
    const auto frames = static_cast<std::uint32_t>(format.sampleRate / 10.0);
    for (; mono.size() >= frames; mono = mono.subspan(frames)) {
        AudioBuffer& block = result.emplace_back(format, frames);
        block.setFrameLength(frames);
        const auto samples = block.floatSamples(format.channelCount - 1);
        for (std::size_t frame = 0; frame < frames; ++frame) samples[frame * block.stride()] = mono[frame];
    }
    return result;
}

} // namespace

struct Source {
    double rate_hz;
    std::uint32_t channels;
};

class DeepDecoderSources : public testing::TestWithParam<Source> {};

// Only the last channel has the sound: whoever hears the first one alone hears nothing.
TEST_P(DeepDecoderSources, ReachTheListenersCallbackWithoutConversionOrAllocation) {
    fake::Platform fake;
    fake.engine->format = {SampleType::Float32, GetParam().rate_hz, GetParam().channels, true};
    fake.platform.http = nullptr;
    fake.platform.makeDecoder = makeDeepDecoder;
    fake.platform.makeConverter = [](const auto&, const auto&) {
        ADD_FAILURE() << "a converter";
        return nullptr;
    };
    const auto heard = std::make_shared<std::vector<std::string>>();
    SorvelUBM listener("Acme", fake.platform);
    listener.setCallBack([heard](const std::string& text) { heard->push_back(text); });
    const auto captured = blocks(fake.engine->format, sound("acme_deep", GetParam().rate_hz));
    const auto others = blocks(fake.engine->format, sound("other_deep", GetParam().rate_hz));
    listener.startListening();
    fake.clock->advance(1.001);
    for (const AudioBuffer& block : captured) {
        const AllocationCount ofBlock;
        fake.engine->hear(block);
        const std::size_t allocated = ofBlock.total();
        EXPECT_TRUE(allocated == 0 || fake.queue->runAll() > 0); // a text's delivery may
        fake.queue->runAll();
    }
    EXPECT_THAT(*heard, testing::ElementsAre("acme_deep"));
    fake.clock->advance(5.2);
    const AllocationCount ofOthers;
    for (const AudioBuffer& block : others) fake.engine->hear(block);
    EXPECT_EQ(ofOthers.total(), 0U);
    EXPECT_EQ(fake.queue->runAll(), 0U);
    listener.stopListening();
}

INSTANTIATE_TEST_SUITE_P(Rates, DeepDecoderSources,
                         testing::Values(Source{44100.0, 2}, Source{48000.0, 1}, Source{96000.0, 4}),
                         [](const auto& source) {
                             return std::to_string(static_cast<int>(source.param.rate_hz));
                         });

TEST(DeepDecoder, HearsConvertedBlocksWhereTheSourcesOwnAreNoneItTakes) {
    std::vector<float> snrs;
    DeepDecoder decoder(DeepDecoder::Texts::All,
                        [&](const deep::Reception& heard) { snrs.push_back(heard.snr_db); });
    for (const AudioFormat& unfit : {
             AudioFormat{SampleType::Float32, 22050.0,                                  1, true },
             AudioFormat{SampleType::Int16,   48000.0,                                  1, true },
             AudioFormat{SampleType::Float32, 48000.0,                                  2, false},
             AudioFormat{SampleType::Float32, 48000.0,                                  0, true },
             AudioFormat{SampleType::Float32, 1e6,                                      1, true },
             AudioFormat{SampleType::Float32, std::numeric_limits<double>::quiet_NaN(), 1, true }
    }) {
        EXPECT_FALSE(decoder.prepare(unfit, "acme")) << unfit.sampleRate;
        EXPECT_EQ(decoder.DecodeCaptured(AudioBuffer(unfit, 100), nullptr), -1) << unfit.sampleRate;
    }
    const Samples samples = sound("acme_deep", 96000.0);
    std::vector<std::int16_t> rounded(samples.size());
    toInt16(samples, rounded);
    std::vector<std::string> heard;
    std::array<char, 256> text{};
    const std::string prefix = "*"; // no text begins so; All asks for none
    ASSERT_FALSE(decoder.prepare({SampleType::Float32, 8000.0, 1, true}, prefix));
    const AllocationCount count;
    std::size_t allocated = 0;
    for (std::span<const std::int16_t> rest(rounded); rest.size() >= kTargetBlockFrames;
         rest = rest.subspan(kTargetBlockFrames)) {
        const AllocationCount ofBlock;
        const std::int32_t length =
            decoder.Decode(rest.data(), static_cast<std::int32_t>(kTargetBlockBytes), text.data(), prefix);
        if (length > 0)
            heard.emplace_back(text.data(), static_cast<std::size_t>(length));
        else
            allocated += ofBlock.total();
    }
    EXPECT_EQ(allocated, 0U);
    EXPECT_THAT(heard, testing::ElementsAre("acme_deep"));
    ASSERT_EQ(snrs.size(), 1U);
    EXPECT_NEAR(snrs[0], -8.0F, 3.0F);
    // Blocks of another format than the prepared one are none it can use, nor are they read.
    ASSERT_TRUE(decoder.prepare({SampleType::Float32, 48000.0, 2, true}, "acme"));
    const AudioBuffer mono({SampleType::Float32, 48000.0, 1, true}, 100);
    EXPECT_EQ(decoder.DecodeCaptured(mono, text.data()), -1);
}
