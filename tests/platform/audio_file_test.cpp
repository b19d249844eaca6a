#include "platform/files/audio_file_reader.hpp"
#include "platform/files/wav_writer.hpp"
#include "tests/support/temporary_folder.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <gmock/gmock.h>
#include <limits>
#include <vector>

namespace {

using namespace sorvel;

constexpr float kStep = 1.0F / 32768.0F;

class AudioFileTest : public testing::Test {
protected:
    /// The file's bytes.
    std::string written(const std::vector<float>& samples, StoredFormat format) {
        WavWriter writer(m_folder.path() / "a.wav", 48000, format, samples.size());
        writer.write(samples);
        writer.finish();
        return m_folder.read("a.wav");
    }
    std::vector<float> read(const std::string& name = "a.wav",
                            const std::optional<RawAudio>& raw = std::nullopt) {
        AudioFileReader reader(m_folder.path() / name, raw);
        std::vector<float> mono(100);
        mono.resize(reader.read(mono));
        return mono;
    }
    static std::uint32_t number(const std::string& bytes, std::size_t at) {
        std::uint32_t value = 0;
        std::memcpy(&value, bytes.data() + at, sizeof value);
        return value;
    }

    TemporaryFolder m_folder;
};

TEST_F(AudioFileTest, RoundsToTheNearestLevelAndClips) {
    const std::vector<float> levels{0,        0.4F,  0.6F,      -0.4F,  -0.6F, 1.4F,
                                    32766.6F, 40000, -32767.6F, -40000, NAN};
    std::vector<float> samples;
    samples.reserve(levels.size());
    for (const float level : levels) samples.push_back(level * kStep);
    written(samples, StoredFormat::I16);
    std::vector<float> expected;
    for (const int level : {0, 0, 1, 0, -1, 1, 32767, 32767, -32768, -32768, 0})
        expected.push_back(static_cast<float>(level) * kStep);
    EXPECT_EQ(read(), expected);
    written(samples, StoredFormat::F32);
    EXPECT_EQ(read()[7], 40000 * kStep); // kept
}

TEST_F(AudioFileTest, AnOddNumberOfBytesIsPaddedAndNotCounted) {
    for (const std::size_t samples : {4U, 5U}) {
        const std::string bytes = written(std::vector<float>(samples, 0.5F), StoredFormat::U8);
        EXPECT_EQ(bytes.size() % 2, 0U);
        EXPECT_EQ(number(bytes, 4), bytes.size() - 8);
        EXPECT_EQ(number(bytes, 40), samples);
        EXPECT_EQ(read(), std::vector<float>(samples, 0.5F));
    }
}

TEST_F(AudioFileTest, TakesUpTo64ChannelsAndTheirMean) {
    std::string frame(64, '\x80');
    frame[63] = '\xC0'; // half of full scale
    m_folder.write("64.raw", frame + frame);
    EXPECT_THAT(read("64.raw", RawAudio{48000, StoredFormat::U8, 64}),
                testing::ElementsAre(0.5F / 64, 0.5F / 64));
    EXPECT_THROW(read("64.raw", RawAudio{48000, StoredFormat::U8, 65}), AudioFileError);
}

/// Of an AU file, whose numbers have their highest byte first.
template <typename Number>
void appendHighFirst(std::string& bytes, Number value) {
    char stored[sizeof value];
    std::memcpy(stored, &value, sizeof value);
    if constexpr (std::endian::native == std::endian::little) std::reverse(stored, stored + sizeof value);
    bytes.append(stored, sizeof value);
}

template <typename Number>
std::string auFile(std::uint32_t encoding, std::uint32_t channels, const std::vector<Number>& samples) {
    std::string bytes = ".snd";
    const auto size = static_cast<std::uint32_t>(samples.size() * sizeof(Number));
    for (const std::uint32_t field : {24U, size, encoding, 48000U, channels}) appendHighFirst(bytes, field);
    for (const Number sample : samples) appendHighFirst(bytes, sample);
    return bytes;
}

// One channel is read straight to where it is wanted, several are mixed: neither may let through what would
// deafen the modem for good.
TEST_F(AudioFileTest, SamplesThatAreNotFiniteAreSilenceInEveryFormatThatHoldsThem) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const std::vector<float> stored{0.25F, NAN, -NAN, kInfinity, -kInfinity, 3e38F, -3e38F, -0.5F};
    const std::vector<float> expected{0.25F, 0, 0, 0, 0, 1e6F, -1e6F, -0.5F};
    std::vector<float> twice; // the same in both of two channels
    for (const float sample : stored) twice.insert(twice.end(), 2, sample);
    const std::string wav = written(stored, StoredFormat::F32);
    EXPECT_EQ(read(), expected);

    const std::string samples = wav.substr(wav.size() - stored.size() * sizeof(float));
    m_folder.write("a.raw", samples);
    EXPECT_EQ(read("a.raw", RawAudio{48000, StoredFormat::F32, 1}), expected);

    constexpr std::uint32_t kFloats = 6, kDoubles = 7;
    for (const std::uint32_t channels : {1U, 2U}) {
        SCOPED_TRACE(channels);
        const std::vector<float>& all = channels == 1 ? stored : twice;
        m_folder.write("a.au", auFile(kFloats, channels, all));
        EXPECT_EQ(read("a.au"), expected);
        m_folder.write("a.au", auFile(kDoubles, channels, std::vector<double>(all.begin(), all.end())));
        EXPECT_EQ(read("a.au"), expected);
    }
}

// A count that would be small again in 64 bits, or in the header's 32.
TEST_F(AudioFileTest, RefusesMoreThanAWavHolds) {
    for (const std::uint64_t frames :
         {std::uint64_t{1} << 62, (std::uint64_t{1} << 30) + 1, ~std::uint64_t{0}})
        EXPECT_THROW(WavWriter(m_folder.path() / "a.wav", 48000, StoredFormat::F32, frames), AudioFileError)
            << frames;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder.path()), {}), 0);
}

} // namespace
