#include "modem/capture.hpp"

#include "modem/log.hpp"

#include <cmath>
#include <cstring>

namespace sorvel::modem {

using detail::logLine;

namespace {

constexpr int kSpareSamples = 4; // taken beyond a frame, so that one chunk does complete it

/// After so much audio the stream's time starts over; the counters would grow without bound
/// otherwise.
constexpr float kStreamSeconds = 60.0F;

template <class Sample>
Sample sampleAt(std::span<const std::uint8_t> bytes, std::size_t i) {
    Sample value;
    std::memcpy(&value, bytes.data() + i * sizeof value, sizeof value);
    return value;
}

} // namespace

void Capture::place(Layout& layout) {
    const std::int64_t spf = m_settings.samplesPerFrame;
    const std::int64_t captured = m_settings.needsResampling ? GGWave::kResampleFactorMax * spf : spf;
    layout.place(m_amplitude, spf + (m_settings.needsResampling ? GGWave::kResampleMargin : 0));
    layout.place(m_amplitudeResampled, captured);
    layout.place(m_amplitudeTmp, sampleSize(m_settings.sampleFormatInp) * captured);
}

const char* Capture::obstacle() const {
    if (!(m_settings.sampleRate > 0.0F) || !std::isfinite(m_settings.sampleRate))
        return "Error: the operating sample rate must be above 0 Hz and finite to receive\n";
    return nullptr;
}

bool Capture::canConvert() const {
    if (!m_settings.needsResampling) return true;
    const float factor = m_settings.sampleRateInp / m_settings.sampleRate;
    const int room = std::min(m_amplitudeResampled.size(), GGWave::Resampler::kMaxInput);
    return factor * static_cast<float>(m_settings.samplesPerFrame) + 2 * kSpareSamples <=
           static_cast<float>(room);
}

bool Capture::fill(std::span<const std::uint8_t>& captured, bool keepsStream) {
    const auto bytesPerSample = static_cast<std::size_t>(sampleSize(m_settings.sampleFormatInp));
    const int spf = m_settings.samplesPerFrame;
    while (!captured.empty()) {
        const auto chunk = captured.first(std::min(captured.size(), wantedSamples() * bytesPerSample));
        if (chunk.empty()) return false;
        captured = captured.subspan(chunk.size());

        if (chunk.size() % bytesPerSample != 0) {
            logLine("Failure during capture - provided bytes (%d) are not multiple of sample size (%d)\n",
                    static_cast<int>(chunk.size()), static_cast<int>(bytesPerSample));
            m_samplesNeeded = spf;
            captured = {};
            return false;
        }
        const auto samples = static_cast<int>(chunk.size() / bytesPerSample);
        float* const converted = m_amplitudeResampled.data();
        convert(chunk, converted);

        const int offset = spf - m_samplesNeeded;
        if (m_settings.needsResampling) {
            if (samples <= 2 * GGWave::Resampler::kWidth) {
                m_samplesNeeded = spf;
                captured = {};
                return false;
            }
            const float factor = m_settings.sampleRateInp / m_settings.sampleRate;
            if (!keepsStream && static_cast<float>(m_resampler.samplesTotal()) >
                                    kStreamSeconds * factor * m_settings.sampleRate)
                m_resampler.reset();
            m_resampler.feed(samples, converted);
            m_recorded = offset + m_resampler.take(
                                      factor, m_amplitude.span().subspan(static_cast<std::size_t>(offset)));
            m_resampler.settle();
        } else {
            std::copy_n(converted, samples, m_amplitude.data() + offset);
            // Without the offset: whoever hands over partial frames at the operating rate never
            // completes one. Callers rely on whole frames only being analysed; adding it would
            // change which sounds are heard.
            m_recorded = samples;
        }
        if (m_recorded < spf) {
            m_samplesNeeded = spf - m_recorded;
            return false;
        }
        m_isNews = true;
        return true;
    }
    return false;
}

/// Captured samples that complete the frame, and some to spare when resampling.
std::size_t Capture::wantedSamples() const {
    if (!m_settings.needsResampling) return static_cast<std::size_t>(std::max(0, m_samplesNeeded));
    const float factor = m_settings.sampleRateInp / m_settings.sampleRate;
    const int wanted = m_resampler.resample(1.0F / factor, m_samplesNeeded, nullptr, nullptr) + kSpareSamples;
    return static_cast<std::size_t>(
        std::min({wanted, m_amplitudeResampled.size(), GGWave::Resampler::kMaxInput}));
}

void Capture::next() {
    const int spf = m_settings.samplesPerFrame;
    const int surplus = std::min(m_recorded - spf, spf - 1);
    std::copy_n(m_amplitude.data() + spf, surplus, m_amplitude.data());
    m_samplesNeeded = spf - surplus;
}

bool Capture::takeNews() {
    const bool wasNews = m_isNews;
    m_isNews = false;
    return wasNews;
}

/// Captured bytes to floats of full scale 1.
void Capture::convert(std::span<const std::uint8_t> bytes, float* dst) const {
    constexpr float kFrom8Bits = 1.0F / 128.0F, kFrom16Bits = 1.0F / 32768.0F;
    const std::size_t samples =
        bytes.size() / static_cast<std::size_t>(sampleSize(m_settings.sampleFormatInp));
    switch (m_settings.sampleFormatInp) {
    case GGWAVE_SAMPLE_FORMAT_U8:
        for (std::size_t i = 0; i < samples; ++i) dst[i] = static_cast<float>(bytes[i] - 128) * kFrom8Bits;
        break;
    case GGWAVE_SAMPLE_FORMAT_I8:
        for (std::size_t i = 0; i < samples; ++i)
            dst[i] = static_cast<float>(sampleAt<std::int8_t>(bytes, i)) * kFrom8Bits;
        break;
    case GGWAVE_SAMPLE_FORMAT_U16:
        for (std::size_t i = 0; i < samples; ++i)
            dst[i] = static_cast<float>(sampleAt<std::uint16_t>(bytes, i) - 32768) * kFrom16Bits;
        break;
    case GGWAVE_SAMPLE_FORMAT_I16:
        for (std::size_t i = 0; i < samples; ++i)
            dst[i] = static_cast<float>(sampleAt<std::int16_t>(bytes, i)) * kFrom16Bits;
        break;
    default:
        std::memcpy(dst, bytes.data(), bytes.size());
        break;
    }
}

} // namespace sorvel::modem
