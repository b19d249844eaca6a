// How well recordings are heard on two ways to the modem: that of a microphone, converted to 96 kHz and
// rounded to 16 bits in blocks of 100 ms, and that of files, at a rate of the modem's own as floats. Both
// get the same draws of white noise, so that what luck adds is the same for both. Prints a line for each
// rate and in-band signal-to-noise ratio (tone power over noise power within 18.0 to 19.5 kHz): Hz, dB,
// arrived on either way, trials; then for each rate the ratios at which half arrives, and how many dB more
// the files' way needs.
//     recording_ways [trials]   20 unless given; 300 tell the ways apart to some 0.1 dB
#include "modem/ggwave.h"
#include "payload/encoding.hpp"
#include "platform/audio/rate_converter.hpp"
#include "tools/recording_decoder.hpp"
#include "tools/simulated_air.hpp"
#include "tools/transmission.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace {

using namespace sorvel;
using Sound = std::vector<float>;

constexpr const char* kText = "acme_1234";
constexpr std::array kRatios_db{-3.0, -3.5, -4.0, -4.5, -5.0, -5.5, -6.0, -6.5, -7.0, -7.5};
constexpr float kNoise = 0.1F; // standard deviation: far from clipping and from the steps of 16 bits

using Counts = std::array<int, kRatios_db.size()>;

Sound converted(std::span<const float> sound, double from_hz, double to_hz) {
    RateConverter converter(from_hz, to_hz);
    Sound result(static_cast<std::size_t>(static_cast<double>(sound.size()) * to_hz / from_hz) + 2);
    std::size_t size = converter.convert(sound, result).produced;
    size += converter.flush(std::span(result).subspan(size));
    result.resize(size);
    return result;
}

class MicrophonesWay {
public:
    MicrophonesWay() : m_modem(parameters()) {}

    bool hears(std::span<const float> sound, double rate_hz) {
        m_modem.prepare(parameters());
        const Sound floats = converted(sound, rate_hz, kRate_hz);
        std::vector<std::int16_t> samples(floats.size() + kRate_hz); // and a second of silence
        toInt16(floats, samples);
        bool isHeard = false;
        for (std::size_t at = 0; at + kBlock_samples <= samples.size(); at += kBlock_samples) {
            m_modem.decode(samples.data() + at, kBlock_samples * sizeof(std::int16_t));
            ggvector<std::uint8_t> data;
            if (m_modem.rxTakeData(data) != encoding::kPayloadBytes) continue;
            std::array<char, encoding::kPayloadBytes> payload{};
            std::memcpy(payload.data(), data.data(), payload.size());
            isHeard = isHeard || encoding::extractStrings(payload.data()) == kText;
        }
        return isHeard;
    }

private:
    static constexpr int kRate_hz = 96000;
    static constexpr std::size_t kBlock_samples = 9600;

    static ggwave_Parameters parameters() {
        ggwave_Parameters result = ggwave_getDefaultParameters();
        result.payloadLength = encoding::kPayloadBytes;
        result.sampleRateInp = static_cast<float>(kRate_hz);
        result.sampleFormatInp = GGWAVE_SAMPLE_FORMAT_I16;
        result.operatingMode = GGWAVE_OPERATING_MODE_RX;
        return result;
    }

    GGWave m_modem;
};

class FilesWay {
public:
    bool hears(std::span<const float> sound, double rate_hz) {
        m_isHeard = false;
        Recording recording(m_decoder, rate_hz);
        recording.take(sound);
        recording.finish();
        return m_isHeard;
    }

private:
    bool m_isHeard = false;
    RecordingDecoder m_decoder{"",
                               [this](const Heard& heard) { m_isHeard = m_isHeard || heard.text == kText; }};
};

/// The ratio in dB at which half of the trials arrive, interpolated between the last point with more and the
/// one below; none where all points are on one side.
std::optional<double> half(const Counts& arrived, int trials) {
    const double wanted = trials / 2.0;
    for (std::size_t i = 1; i < arrived.size(); ++i) {
        if (arrived[i - 1] < wanted || arrived[i] >= wanted) continue;
        const double part = (arrived[i - 1] - wanted) / (arrived[i - 1] - arrived[i]);
        return kRatios_db[i - 1] + part * (kRatios_db[i] - kRatios_db[i - 1]);
    }
    return std::nullopt;
}

bool compare(double rate_hz, int trials) {
    const Sound text = converted(transmission(kText, 50), kTransmissionRate_hz, rate_hz);
    const double power = air::tonePower(text);
    MicrophonesWay microphones;
    FilesWay files;
    Counts first{};
    Counts second{};
    for (int trial = 0; trial < trials; ++trial) {
        const auto seed = static_cast<std::uint32_t>(trial);
        // One draw for all ratios, at 0 dB; frames fall differently onto each transmission.
        Sound noise(text.size() + static_cast<std::size_t>(rate_hz));
        air::addWhiteNoise(noise, 0.0, power, rate_hz, seed);
        const std::size_t start = 4000 + seed * 7919 % 4096;
        for (std::size_t i = 0; i < kRatios_db.size(); ++i) {
            const auto tones = static_cast<float>(std::pow(10.0, kRatios_db[i] / 20.0));
            Sound sound = noise;
            for (std::size_t k = 0; k < text.size(); ++k) sound[start + k] += tones * text[k];
            // White noise of variance v has v * 1500 Hz / (rate / 2) in the band.
            const auto gain = kNoise / static_cast<float>(std::sqrt(power * rate_hz / 3000.0));
            for (float& sample : sound) sample *= gain;
            first[i] += microphones.hears(sound, rate_hz) ? 1 : 0;
            second[i] += files.hears(sound, rate_hz) ? 1 : 0;
        }
    }
    for (std::size_t i = 0; i < kRatios_db.size(); ++i)
        std::printf("%.0f %.1f %d %d %d\n", rate_hz, kRatios_db[i], first[i], second[i], trials);
    const auto before = half(first, trials);
    const auto now = half(second, trials);
    if (!before || !now) {
        std::fprintf(stderr, "recording_ways: no half of the trials between these ratios\n");
        return false;
    }
    std::printf("%.0f Hz: half arrives at %.2f dB as from a microphone, %.2f dB as from files: %+.2f dB\n",
                rate_hz, *before, *now, *now - *before);
    std::fflush(stdout);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    const int trials = argc > 1 ? std::atoi(argv[1]) : 20;
    if (trials < 1) {
        std::fprintf(stderr, "usage: recording_ways [trials], 1 or more\n");
        return 1;
    }
    GGWave::setLogFile(nullptr);
    bool isDone = true;
    for (const double rate_hz : {44100.0, 48000.0, 96000.0}) isDone = compare(rate_hz, trials) && isDone;
    return isDone ? 0 : 1;
}
