#include "bench/hearing/waveform.hpp"

#include "modem/ggwave.h"
#include "payload/encoding.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace sorvel::hearing {

namespace {

constexpr double kRamp_s = 0.15 * Waveform::kChunk_s;
constexpr double kBin_hz = 48000.0 / 1024.0;

/// sin(2 pi cycles) within 3e-9: whole turns off, then the odd Taylor polynomial within a quarter
/// turn. The library's sine takes three times as long, and this is most of a trial's time.
double sineOfCycles(double cycles) {
    double x = cycles - std::nearbyint(cycles);            // -0.5 to 0.5
    if (std::abs(x) > 0.25) x = std::copysign(0.5, x) - x; // mirrored at the quarter
    const double a = 2.0 * std::numbers::pi * x, b = a * a;
    return a * (1.0 -
                b / 6.0 *
                    (1.0 -
                     b / 20.0 * (1.0 - b / 42.0 * (1.0 - b / 72.0 * (1.0 - b / 110.0 * (1.0 - b / 156.0))))));
}

} // namespace

Waveform::Waveform(const std::string& text) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString(text, payload.data());
    ggwave_Parameters parameters = ggwave_getDefaultParameters();
    parameters.payloadLength = static_cast<int>(payload.size());
    parameters.operatingMode = GGWAVE_OPERATING_MODE_TX | GGWAVE_OPERATING_MODE_TX_ONLY_TONES;
    GGWave modem(parameters);
    const bool isMade =
        modem.init(static_cast<int>(payload.size()), payload.data(), GGWAVE_PROTOCOL_DT_CUSTOM, 100) &&
        modem.encode() != 0;
    const ggvector<std::uint8_t> tones = modem.txTones();
    if (!isMade || tones.size() != static_cast<int>(3 * m_chunks.size())) // two tones and a separator each
        throw std::runtime_error("the modem cannot make the transmission of '" + text + "'");
    const double lowest = modem.txProtocols()[GGWAVE_PROTOCOL_DT_CUSTOM].freqStart;
    for (int i = 0; i < static_cast<int>(m_chunks.size()); ++i) {
        for (int k = 0; k < 2; ++k) {
            const int tone = tones[3 * i + k];
            // In turns. Every tone turns whole times in a frame, so all chunks of a tone start alike.
            m_chunks[static_cast<std::size_t>(i)][static_cast<std::size_t>(k)] = {(lowest + tone) * kBin_hz,
                                                                                  (tone / 2) / 16.0};
        }
    }
}

double Waveform::at(double time_s) const {
    if (time_s < 0.0 || time_s >= kDuration_s) return 0.0;
    const std::size_t chunk =
        std::min(m_chunks.size() - 1, static_cast<std::size_t>(time_s * (1.0 / kChunk_s)));
    const double within_s = time_s - static_cast<double>(chunk) * kChunk_s;
    const double level = std::clamp(std::min(within_s, kChunk_s - within_s) / kRamp_s, 0.0, 1.0);
    double sum = 0.0;
    for (const Tone& tone : m_chunks[chunk]) sum += sineOfCycles(tone.frequency_hz * within_s + tone.phase);
    return 0.5 * level * sum;
}

double Hearing::end_s() const {
    double time_s = start_s + Waveform::kDuration_s;
    // Sound is far faster than any motion: each step gains two digits or more.
    for (int i = 0; i < 6; ++i) time_s += Waveform::kDuration_s - sourceTime_s(time_s);
    return time_s;
}

void add(const Waveform& waveform, const Hearing& hearing, double gain, std::span<float> sound) {
    // A margin on both sides: motion bends time, and outside of its duration the waveform is 0.
    const auto sample = [&](double time_s) {
        return static_cast<std::size_t>(
            std::clamp(time_s * hearing.rate_hz, 0.0, static_cast<double>(sound.size())));
    };
    const std::size_t last = sample(hearing.end_s() + 0.01);
    for (std::size_t k = sample(hearing.start_s - 0.01); k < last; ++k) {
        const double time_s = static_cast<double>(k) / hearing.rate_hz;
        sound[k] += static_cast<float>(gain * waveform.at(hearing.sourceTime_s(time_s)));
    }
}

} // namespace sorvel::hearing
