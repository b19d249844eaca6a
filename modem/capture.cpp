#include "modem/capture.hpp"

#include "modem/log.hpp"
#include "modem/target_clones.hpp"

#include <cmath>
#include <cstring>

namespace sorvel::modem {

using detail::logLine;

namespace {

constexpr int kSpareSamples = 4; // taken beyond a frame, so that one chunk does complete it

/// After so much audio the stream's time starts over; the counters would
/// grow without bound otherwise.
constexpr float kStreamSeconds = 60.0F;

/// What is quieter counts as silence: -360 dB. The squares of still smaller numbers would be denormal, on
/// which some processors take a hundred times as long.
constexpr float kSilence = 1e-18F;

template <class Sample, class Convert>
void convertEach(std::span<const std::uint8_t> bytes, float* dst, Convert convert) {
    for (std::size_t i = 0; i < bytes.size() / sizeof(Sample); ++i) {
        Sample sample;
        std::memcpy(&sample, bytes.data() + i * sizeof sample, sizeof sample);
        dst[i] = convert(sample);
    }
}

/// Captured bytes to floats of full scale 1.
SORVEL_TARGET_CLONES void convert(ggwave_SampleFormat format, std::span<const std::uint8_t> bytes,
                                  float* dst) {
    constexpr float kFrom8Bits = 1.0F / 128.0F, kFrom16Bits = 1.0F / 32768.0F;
    switch (format) {
    case GGWAVE_SAMPLE_FORMAT_U8:
        convertEach<std::uint8_t>(bytes, dst, [](int x) { return static_cast<float>(x - 128) * kFrom8Bits; });
        break;
    case GGWAVE_SAMPLE_FORMAT_I8:
        convertEach<std::int8_t>(bytes, dst, [](int x) { return static_cast<float>(x) * kFrom8Bits; });
        break;
    case GGWAVE_SAMPLE_FORMAT_U16:
        convertEach<std::uint16_t>(bytes, dst,
                                   [](int x) { return static_cast<float>(x - 32768) * kFrom16Bits; });
        break;
    case GGWAVE_SAMPLE_FORMAT_I16:
        convertEach<std::int16_t>(bytes, dst, [](int x) { return static_cast<float>(x) * kFrom16Bits; });
        break;
    default:
        convertEach<float>(bytes, dst, [](float x) { return std::fabs(x) < kSilence ? 0.0F : x; });
        break;
    }
}

} // namespace

void Capture::place(Layout& layout) {
    const int spf = m_settings.samplesPerFrame;
    layout.place(m_amplitude, spf + (m_settings.needsResampling ? GGWave::kResampleMargin : 0));
    ggvector<float> floats; // both unused: captured bytes are converted to where they are needed
    ggvector<std::uint8_t> raw;
    layout.place(floats, mostCaptured());
    layout.place(raw, sampleSize(m_settings.sampleFormatInp) * mostCaptured());
}

const char* Capture::obstacle() const {
    if (!(m_settings.sampleRate > 0.0F) || !std::isfinite(m_settings.sampleRate))
        return "Error: the operating sample rate must be above 0 Hz and finite to receive\n";
    return nullptr;
}

bool Capture::canConvert() const {
    if (!m_settings.needsResampling) return true;
    const float factor = m_settings.sampleRateInp / m_settings.sampleRate;
    return factor * static_cast<float>(m_settings.samplesPerFrame) + 2 * kSpareSamples <=
           static_cast<float>(std::min(mostCaptured(), GGWave::Resampler::kMaxInput));
}

/// Captured samples that one frame may take.
int Capture::mostCaptured() const {
    return m_settings.samplesPerFrame * (m_settings.needsResampling ? GGWave::kResampleFactorMax : 1);
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
            convert(m_settings.sampleFormatInp, chunk, m_resampler.feed(samples).data());
            m_recorded = offset + m_resampler.take(
                                      factor, m_amplitude.span().subspan(static_cast<std::size_t>(offset)));
            m_resampler.settle();
        } else {
            convert(m_settings.sampleFormatInp, chunk, m_amplitude.data() + offset);
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
    return static_cast<std::size_t>(std::min({wanted, mostCaptured(), GGWave::Resampler::kMaxInput}));
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

} // namespace sorvel::modem
