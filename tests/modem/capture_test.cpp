#include "modem/capture.hpp"
#include "tests/support/transmissions.hpp"

#include <gtest/gtest.h>
#include <memory>

namespace {

using sorvel::modem::Capture;
using sorvel::modem::Layout;
using sorvel::modem::Settings;

/// A capture on its own, in memory of the size it asks for.
class Alone {
public:
    explicit Alone(const ggwave_Parameters& parameters)
        : m_settings(parameters), m_capture(m_settings, m_stream) {
        Layout sizes(nullptr);
        m_capture.place(sizes);
        int n = static_cast<int>(sizes.bytes());
        m_stream.alloc(nullptr, n);
        m_block = std::make_unique<std::byte[]>(static_cast<std::size_t>(n));
        Layout places(m_block.get());
        m_capture.place(places);
        n = static_cast<int>(places.bytes());
        m_stream.alloc(m_block.get(), n);
    }

    /// The frames that `bytes` complete, one behind the other.
    Samples frames(std::span<const std::uint8_t> bytes, bool keepsStream = false) {
        Samples result;
        while (m_capture.fill(bytes, keepsStream)) {
            result.insert(result.end(), m_capture.frame().begin(), m_capture.frame().end());
            m_capture.next();
        }
        return result;
    }
    GGWave::Resampler& stream() { return m_stream; }

private:
    Settings m_settings;
    GGWave::Resampler m_stream;
    Capture m_capture;
    std::unique_ptr<std::byte[]> m_block;
};

ggwave_Parameters capturing(ggwave_SampleFormat format, float rate = 48000.0F) {
    ggwave_Parameters parameters = fixedLength();
    parameters.sampleFormatInp = format;
    parameters.sampleRateInp = rate;
    return parameters;
}

template <class Sample>
Bytes frameOf(std::vector<Sample> first) {
    first.resize(1024, first.back());
    const auto* const raw = reinterpret_cast<const std::uint8_t*>(first.data());
    return {raw, raw + first.size() * sizeof(Sample)};
}

TEST(Capturing, TurnsEveryFormatIntoFloatsOfFullScaleOne) {
    const auto begins = [](ggwave_SampleFormat format, const Bytes& bytes, const Samples& expected) {
        Samples frame = Alone(capturing(format)).frames(bytes);
        ASSERT_EQ(frame.size(), 1024U) << format;
        frame.resize(expected.size());
        EXPECT_EQ(frame, expected) << format;
    };
    begins(GGWAVE_SAMPLE_FORMAT_U8, frameOf<std::uint8_t>({0, 127, 128, 255}),
           {-1, -1 / 128.F, 0, 127 / 128.F});
    begins(GGWAVE_SAMPLE_FORMAT_I8, frameOf<std::int8_t>({-128, -1, 0, 127}),
           {-1, -1 / 128.F, 0, 127 / 128.F});
    begins(GGWAVE_SAMPLE_FORMAT_U16, frameOf<std::uint16_t>({0, 32767, 32768, 65535}),
           {-1, -1 / 32768.F, 0, 32767 / 32768.F});
    begins(GGWAVE_SAMPLE_FORMAT_I16, frameOf<std::int16_t>({-32768, -1, 0, 32767}),
           {-1, -1 / 32768.F, 0, 32767 / 32768.F});
    // Below -360 dB is silence: no denormal number may reach the transform, whose squares they would slow.
    begins(GGWAVE_SAMPLE_FORMAT_F32, frameOf<float>({1.5F, -1e-17F, 9e-19F, -1e-42F, INFINITY, 0.0F}),
           {1.5F, -1e-17F, 0.0F, 0.0F, INFINITY, 0.0F});
}

TEST(Capturing, CutsTheConvertedStreamIntoFramesWithoutAGap) {
    const Samples sound = noise(20 * 9600, 0.3F, 51);
    for (const auto& [rate, cut] : {
             std::pair{96000.0F, 9600U},
             {44100.0F, 4410U},
             {32000.0F, 9900U}
    }) {
        const auto half = std::span(sound).first(cut), rest = std::span(sound).subspan(cut);
        Alone whole(capturing(GGWAVE_SAMPLE_FORMAT_F32, rate)),
            parts(capturing(GGWAVE_SAMPLE_FORMAT_F32, rate));
        const Samples expected = whole.frames(stored(sound, GGWAVE_SAMPLE_FORMAT_F32));
        Samples frames = parts.frames(stored(half, GGWAVE_SAMPLE_FORMAT_F32));
        frames = frames + parts.frames(stored(rest, GGWAVE_SAMPLE_FORMAT_F32));
        EXPECT_EQ(frames.size(), expected.size()) << rate;
        // Where a block ends, the converter is asked for less at a time; its sums are the same.
        for (std::size_t i = 0; i < std::min(frames.size(), expected.size()); ++i)
            ASSERT_EQ(frames[i], expected[i]) << rate << " " << i;
    }
}

TEST(Capturing, StartsTheStreamOverAfterAMinuteUnlessAMessageIsUnderWay) {
    Alone capture(capturing(GGWAVE_SAMPLE_FORMAT_I16, 96000.0F));
    const Bytes block(2 * 9600);
    int most = 0;
    for (int i = 0; i < 620; ++i) { // 62 s
        capture.frames(block);
        most = std::max(most, capture.stream().samplesTotal());
    }
    EXPECT_GE(most, 60 * 96000 - 9600);
    EXPECT_LT(most, 60 * 96000 + 9600);
    EXPECT_LT(capture.stream().samplesTotal(), 3 * 96000);
    for (int i = 0; i < 620; ++i) capture.frames(block, true);
    EXPECT_GT(capture.stream().samplesTotal(), 61 * 96000);
}

} // namespace
