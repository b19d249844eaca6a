#include "modem/log.hpp"
#include "modem/parts.hpp"

#include <cmath>
#include <cstring>

using sorvel::detail::logLine;

namespace {

constexpr int kSpareSamples = 4; // taken beyond a frame, so that one chunk does complete it

/// After so much audio the stream's time starts over; the counters would grow without bound otherwise.
constexpr float kStreamSeconds = 60.0F;

template <class Sample>
Sample sampleAt(std::span<const std::uint8_t> bytes, std::size_t i) {
    Sample value;
    std::memcpy(&value, bytes.data() + i * sizeof value, sizeof value);
    return value;
}

} // namespace

/// What makes receiving impossible, as a line for the log stream; null if nothing does.
const char* GGWave::Parts::obstacleToDecoding() const {
    if (m_transmitter.hasData()) return "Cannot decode while transmitting\n";
    if (m_settings.samplesPerFrame < 2 ||
        (m_settings.samplesPerFrame & (m_settings.samplesPerFrame - 1)) != 0)
        return "Error: receiving needs a power of two from 2 on as samples per frame\n";
    if (!(m_settings.sampleRate > 0.0F) || !std::isfinite(m_settings.sampleRate))
        return "Error: the operating sample rate must be above 0 Hz and finite to receive\n";
    return nullptr;
}

bool GGWave::Parts::decode(const void* data, unsigned int nBytes) {
    if (const char* obstacle = obstacleToDecoding()) {
        logLine("%s", obstacle);
        return false;
    }
    if (nBytes == 0) return true;
    if (data == nullptr) {
        logLine("Error: no samples given for %u bytes\n", nBytes);
        return false;
    }

    const float factor = m_settings.sampleRateInp / m_settings.sampleRate;
    const auto sampleSize = static_cast<std::size_t>(sorvel::modem::sampleSize(m_settings.sampleFormatInp));
    const std::size_t room = m_settings.needsResampling
                                 ? std::min(m_sampleAmplitudeResampled.span().size(),
                                            static_cast<std::size_t>(Resampler::kMaxInput))
                                 : m_sampleAmplitudeResampled.span().size();
    std::span<const std::uint8_t> captured(static_cast<const std::uint8_t*>(data), nBytes);

    while (!captured.empty()) {
        std::size_t wanted = static_cast<std::size_t>(std::max(0, m_samplesNeeded));
        if (m_settings.needsResampling) {
            // Beyond this ratio one frame needs more captured samples than there is room for.
            if (factor * static_cast<float>(m_settings.samplesPerFrame) + 2 * kSpareSamples >
                static_cast<float>(room)) {
                logLine("Error: cannot convert %g Hz to %g Hz while receiving - use closer sample rates\n",
                        static_cast<double>(m_settings.sampleRateInp),
                        static_cast<double>(m_settings.sampleRate));
                return false;
            }
            wanted = static_cast<std::size_t>(
                m_resampler.resample(1.0F / factor, m_samplesNeeded, nullptr, nullptr) + kSpareSamples);
            wanted = std::min(wanted, room);
        }
        const auto chunk = captured.first(std::min(captured.size(), wanted * sampleSize));
        if (chunk.empty()) return true;
        captured = captured.subspan(chunk.size());

        if (chunk.size() % sampleSize != 0) {
            logLine("Failure during capture - provided bytes (%d) are not multiple of sample size (%d)\n",
                    static_cast<int>(chunk.size()), sorvel::modem::sampleSize(m_settings.sampleFormatInp));
            m_samplesNeeded = m_settings.samplesPerFrame;
            return true;
        }
        const auto samples = static_cast<int>(chunk.size() / sampleSize);
        float* const converted = m_sampleAmplitudeResampled.data();
        convertCaptured(chunk, converted);

        const int offset = m_settings.samplesPerFrame - m_samplesNeeded;
        int recorded = 0;
        if (m_settings.needsResampling) {
            if (samples <= 2 * Resampler::kWidth) {
                m_samplesNeeded = m_settings.samplesPerFrame;
                return true;
            }
            if (!m_rxReceiving && static_cast<float>(m_resampler.samplesTotal()) >
                                      kStreamSeconds * factor * m_settings.sampleRate) {
                m_resampler.reset();
            }
            m_resampler.feed(samples, converted);
            recorded =
                offset +
                m_resampler.take(factor, m_sampleAmplitude.span().subspan(static_cast<std::size_t>(offset)));
            m_resampler.settle();
        } else {
            std::copy_n(converted, samples, m_sampleAmplitude.data() + offset);
            // Without the offset: whoever hands over partial frames at the operating rate never completes
            // one. Callers rely on whole frames only being analysed; adding it would change which sounds are
            // heard.
            recorded = samples;
        }

        if (recorded < m_settings.samplesPerFrame) {
            m_samplesNeeded = m_settings.samplesPerFrame - recorded;
            return true;
        }
        m_hasNewAmplitude = true;
        if (m_settings.isFixedLength) {
            decode_fixed();
        } else {
            decode_variable();
        }
        const int surplus = std::min(recorded - m_settings.samplesPerFrame, m_settings.samplesPerFrame - 1);
        std::copy_n(m_sampleAmplitude.data() + m_settings.samplesPerFrame, surplus, m_sampleAmplitude.data());
        m_samplesNeeded = m_settings.samplesPerFrame - surplus;
    }
    return true;
}

/// Captured bytes to floats of full scale 1.
void GGWave::Parts::convertCaptured(std::span<const std::uint8_t> bytes, float* dst) {
    constexpr float kFrom8Bits = 1.0F / 128.0F, kFrom16Bits = 1.0F / 32768.0F;
    const std::size_t samples =
        bytes.size() / static_cast<std::size_t>(sorvel::modem::sampleSize(m_settings.sampleFormatInp));
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
