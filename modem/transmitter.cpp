#include "modem/transmitter.hpp"

#include "modem/dss.hpp"
#include "modem/log.hpp"
#include "modem/protocols.hpp"
#include "modem/target_clones.hpp"

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

namespace sorvel::modem {

using detail::logLine;

namespace {

constexpr float kRampShare = 0.15F; // of a tone's duration, at each end
constexpr std::uint8_t kToneSeparator = 255;

/// Conversion ratios at which counting the output stays bounded; real ones lie well inside.
bool isUsableRatio(float ratio) { return ratio >= 1.0F / 2048 && ratio <= 2048.0F; }

/// Rises over the first 15 % of a tone of `length` samples and falls over the last.
struct Envelope {
    float ramp, length, rampEnd, rampStart;

    explicit Envelope(int samples)
        : ramp(kRampShare * static_cast<float>(samples)), length(static_cast<float>(samples)),
          rampEnd(std::trunc(ramp)),
          rampStart(std::trunc((1.0F - kRampShare) * static_cast<float>(samples))) {}

    float at(int sample) const {
        const auto x = static_cast<float>(sample);
        if (x < rampEnd) return x / ramp;
        if (x > rampStart) return (length - x) / ramp;
        return 1.0F;
    }
};

/// sin(turn * i + phase) for every i, turns in radians. Angles add: of the samples 32 h + l, the
/// sines of the 32 h and of the l suffice. In double, so that rounding to
/// float hides the difference.
SORVEL_TARGET_CLONES void fillSine(std::span<float> out, double turn, double phase) {
    constexpr std::size_t kStep = 32;
    std::array<double, kStep> sines{}, cosines{};
    for (std::size_t l = 0; l < kStep; ++l) {
        sines[l] = std::sin(turn * static_cast<double>(l));
        cosines[l] = std::cos(turn * static_cast<double>(l));
    }
    for (std::size_t i = 0; i < out.size(); i += kStep) {
        const double angle = turn * static_cast<double>(i) + phase;
        const double sine = std::sin(angle), cosine = std::cos(angle);
        const std::size_t count = std::min(kStep, out.size() - i);
        for (std::size_t l = 0; l < count; ++l)
            out[i + l] = static_cast<float>(sine * cosines[l] + cosine * sines[l]);
    }
}

SORVEL_TARGET_CLONES void addSine(std::span<float> out, const float* sine, float volume,
                                  const float* levels) {
    for (std::size_t i = 0; i < out.size(); ++i) out[i] += volume * sine[i] * levels[i];
}

SORVEL_TARGET_CLONES void divide(std::span<float> out, float divisor) {
    for (float& sample : out) sample /= divisor;
}

/// Truncated towards zero; keeps the low bits. Through int, so that +1.0 wraps everywhere: a direct
/// conversion is undefined and saturates on some processors.
template <class Sample>
Sample stored(float x, float scale) {
    return static_cast<Sample>(static_cast<int>(x * scale));
}

SORVEL_TARGET_CLONES void storeI16(std::span<const float> samples, short* out) {
    for (std::size_t i = 0; i < samples.size(); ++i) out[i] = stored<short>(samples[i], 32768.0F);
}

} // namespace

/// A transmission is `marker` frames, `data` frames in steps of `step`, and `marker` frames.
struct Transmitter::Frames {
    int marker;
    int step;
    std::int64_t data;

    std::int64_t total() const { return data + 2 * marker; }
};

Transmitter::Frames Transmitter::transmissionFrames() const {
    const int bytes = m_settings.lengthBytes + m_dataLength + eccBytes(m_dataLength);
    const int chunk = std::max<int>(1, m_protocol.bytesPerTx);
    const std::int64_t chunks = (bytes + chunk - 1) / chunk;
    return {m_settings.markerFrames, m_protocol.framesPerTx,
            chunks * m_protocol.extra * m_protocol.framesPerTx};
}

// Queueing

void Transmitter::place(Layout& layout, const GGWave::Protocols& protocols) {
    const std::int64_t spf = m_settings.samplesPerFrame;
    const int tones = 32 * maxBytesPerTx(protocols);
    if (!m_settings.makesOnlyTones) {
        layout.place(m_phaseOffsets, tones);
        layout.place(m_bit0Amplitude, tones, spf);
        layout.place(m_bit1Amplitude, tones, spf);
        layout.place(m_outputBlock, spf);
        layout.place(m_outputBlockResampled, 2 * spf);
        layout.place(m_outputBlockTmp,
                     GGWave::kMaxRecordedFrames * spf * sampleSize(m_settings.sampleFormatOut));
        layout.place(m_outputBlockI16, GGWave::kMaxRecordedFrames * spf);
    }
    const int coded = m_settings.codedBytes();
    const int tonesPerTx = m_settings.isFixedLength ? maxTonesPerTx(protocols) : GGWave::kBitsInMarker;
    layout.place(m_txData, m_settings.payloadLength + 1);
    layout.place(m_dataBits, tones);
    layout.place(m_tones, tonesPerTx * coded + (tonesPerTx > 1 ? coded : 0));
}

bool Transmitter::queue(std::span<const std::uint8_t> data, const GGWave::Protocols& protocols,
                        ggwave_ProtocolId id, int volume_percent) {
    const auto limit = static_cast<std::size_t>(m_settings.payloadLength);
    if (data.size() > limit) {
        logLine("Truncating data from %d to %d bytes\n", static_cast<int>(data.size()),
                static_cast<int>(limit));
        data = data.first(limit);
    }
    if (volume_percent < 0 || volume_percent > 100) {
        logLine("Invalid volume: %d\n", volume_percent);
        return false;
    }
    m_hasData = false;
    m_txData.zero();
    if (data.empty()) return true;

    if (id < 0 || id >= GGWAVE_PROTOCOL_COUNT) {
        logLine("Invalid protocol ID: %d\n", id);
        return false;
    }
    const GGWave::Protocol& protocol = protocols[static_cast<std::size_t>(id)];
    if (!protocol.enabled) {
        logLine("Protocol %d is not enabled - make sure to enable it before creating the instance\n", id);
        return false;
    }
    if (protocol.extra == 2 && !m_settings.isFixedLength) {
        logLine("Mono-tone protocols with variable length are not supported\n");
        return false;
    }

    m_protocol = protocol;
    m_dataLength = m_settings.isFixedLength ? m_settings.payloadLength : static_cast<int>(data.size());
    m_sendVolume = static_cast<float>(volume_percent) / 100.0F;
    m_txData[0] = static_cast<std::uint8_t>(m_dataLength);
    const std::span payload = m_txData.span().subspan(1, static_cast<std::size_t>(m_dataLength));
    std::copy(data.begin(), data.end(), payload.begin()); // the rest is zero already
    if (m_settings.isSpread) {
        for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = sorvel::detail::spread(payload[i], i);
    }
    m_hasData = true;
    return true;
}

/// What makes the queued payload impossible to send, as a line for the log stream;
/// null if nothing does.
const char* Transmitter::obstacle() const {
    if (m_protocol.framesPerTx < 1 || m_protocol.bytesPerTx < 1 || m_protocol.extra < 1 ||
        m_protocol.extra > 2)
        return "Error: the protocol has no frames, no bytes or no tones - define its row before enabling "
               "it\n";
    if (32 * m_protocol.bytesPerTx > m_dataBits.size())
        return "Error: the protocol's chunks are larger than those this instance was prepared for\n";
    if (m_dataLength + eccBytes(m_dataLength) >= GGWave::kMaxDataSize)
        return "Error: the payload and its ECC bytes exceed the 255 bytes of a code word - use a shorter "
               "payload\n";
    if (m_settings.makesOnlyTones) return nullptr;
    // Of a rate next to nothing a bin is nothing.
    if (!(m_settings.hzPerBin > 0.0F) || !(m_settings.sampleRateOut > 0.0F) ||
        !std::isfinite(m_settings.sampleRateOut) ||
        !std::isfinite(bitFreq(m_protocol, 16 * m_protocol.bytesPerTx, m_settings.hzPerBin)))
        return "Error: operating and playback sample rates must be above 0 Hz and finite to transmit\n";
    if (m_settings.needsResampling && !isUsableRatio(m_settings.sampleRate / m_settings.sampleRateOut))
        return "Error: operating and playback sample rates are too far apart to convert\n";
    if (m_settings.needsResampling && m_settings.samplesPerFrame <= GGWave::Resampler::kWidth)
        return "Error: converting the sample rate needs more than 64 samples per frame\n";
    if (transmissionFrames().total() > GGWave::kMaxRecordedFrames)
        return "Error: the transmission is longer than 2048 frames - use a shorter payload or a faster "
               "protocol\n";
    if (playedSamples(static_cast<int>(transmissionFrames().total())) > m_outputBlockI16.size())
        return "Error: the waveform exceeds 2048 frames of samples - lower the playback rate or shorten the "
               "payload\n";
    return nullptr;
}

/// Samples at the playback rate that the first `frames` frames of a transmission make.
int Transmitter::playedSamples(int frames) const {
    const int samples = frames * m_settings.samplesPerFrame;
    if (!m_settings.needsResampling) return samples;
    return detail::OutputClock().countBefore(samples + 1.0, m_settings.sampleRate / m_settings.sampleRateOut);
}

std::uint32_t Transmitter::size_samples() const {
    if (!m_hasData || m_settings.makesOnlyTones || obstacle() != nullptr) return 0;
    // The first frame of a stream yields the most.
    const int perFrame = playedSamples(1) + (m_settings.needsResampling ? 1 : 0);
    return static_cast<std::uint32_t>(transmissionFrames().total() * perFrame);
}

// Encoding

std::uint32_t Transmitter::encode() {
    if (!m_hasData) return 0;
    m_hasData = false;
    m_waveformSamples = 0;
    m_nTones = 0;
    if (const char* const why = obstacle()) {
        logLine("%s", why);
        return 0;
    }
    if (m_settings.needsResampling) m_resampler.reset();

    m_coding.encode(m_txData.span().first(static_cast<std::size_t>(m_dataLength) + 1));
    const Frames frames = transmissionFrames();
    if (!makeTones(frames)) {
        m_nTones = 0;
        logLine("Error: no room for the tone list of this protocol in this instance - it stays empty\n");
        if (m_settings.makesOnlyTones) return 0;
    }
    if (m_settings.makesOnlyTones) return 1;

    makeSines();
    makeWaveform(frames);
    return static_cast<std::uint32_t>(m_waveformSamples) *
           static_cast<std::uint32_t>(sampleSize(m_settings.sampleFormatOut));
}

/// The last chunk may reach past the code word; it is filled up with zero bytes.
int Transmitter::codedByte(int i) const {
    const std::span<const std::uint8_t> word = m_coding.word();
    const auto at = static_cast<std::size_t>(i);
    return at < word.size() ? word[at] : 0;
}

/// Marks in m_dataBits the tones that sound in data frame `frame` (from 0, within the data).
void Transmitter::setDataBits(const Frames& frames, int frame) {
    const int bytes = m_protocol.bytesPerTx;
    const int step = frame / frames.step;
    m_dataBits.zero();
    for (int j = 0; j < bytes; ++j) {
        if (m_protocol.extra == 1) {
            const int value = codedByte(step * bytes + j);
            m_dataBits[32 * j + (value & 15)] = 1;
            m_dataBits[32 * j + 16 + (value >> 4)] = 1;
        } else {
            const int position = step * bytes;
            const int value = codedByte(position / m_protocol.extra + j);
            const bool isHighNibble = position % m_protocol.extra != 0;
            m_dataBits[32 * j + (isHighNibble ? value >> 4 : value & 15)] = 1;
        }
    }
}

/// Of the 16 pairs of a marker, the start marker sounds one tone each and the end marker the other.
static int markerTone(int bit, bool isStart) { return (2 * bit + bit % 2) ^ (isStart ? 0 : 1); }

bool Transmitter::makeTones(const Frames& frames) {
    const bool isSeparated = 2 * m_protocol.bytesPerTx / m_protocol.extra > 1;
    const auto add = [this](int tone) {
        if (m_nTones == m_tones.size()) return false;
        m_tones[m_nTones++] = static_cast<std::uint8_t>(tone);
        return true;
    };
    // In steps of a chunk from the very first frame, also where a marker is not a
    // whole number of them.
    for (std::int64_t frame = 0; frame < frames.total(); frame += frames.step) {
        const std::int64_t dataFrame = frame - frames.marker;
        if (dataFrame < 0 || dataFrame >= frames.data) {
            for (int bit = 0; bit < GGWave::kBitsInMarker; ++bit) {
                if (!add(markerTone(bit, dataFrame < 0))) return false;
            }
        } else {
            setDataBits(frames, static_cast<int>(dataFrame));
            for (int tone = 0; tone < m_dataBits.size(); ++tone) {
                if (m_dataBits[tone] != 0 && !add(tone)) return false;
            }
        }
        if (isSeparated && !add(kToneSeparator)) return false;
    }
    return true;
}

/// One frame of every tone the protocol uses. Phases differ from pair to pair, so that chunks of
/// many tones do not pile up into one peak.
void Transmitter::makeSines() {
    const auto perSample = static_cast<double>(1.0F / static_cast<float>(m_settings.samplesPerFrame));
    const double ratioPerHz = 1.0 / static_cast<double>(m_settings.hzPerBin);
    const int pairs = 16 * m_protocol.bytesPerTx;
    for (int pair = 0; pair < pairs; ++pair) {
        m_phaseOffsets[pair] = std::numbers::pi * pair / (8 * m_protocol.bytesPerTx);
        const auto low = static_cast<double>(bitFreq(m_protocol, pair, m_settings.hzPerBin));
        const double high = low + static_cast<double>(m_settings.hzPerBin);
        const double turn = 2.0 * std::numbers::pi * perSample * ratioPerHz;
        fillSine(m_bit1Amplitude[pair].span(), turn * low, m_phaseOffsets[pair]);
        fillSine(m_bit0Amplitude[pair].span(), turn * high, m_phaseOffsets[pair]);
    }
}

/// Leaves frame `frame` of the transmission in m_outputBlock.
void Transmitter::synthesizeFrame(const Frames& frames, int frame) {
    const int spf = m_settings.samplesPerFrame;
    const auto data = static_cast<int>(frames.data);
    const int dataFrame = frame - frames.marker;
    const bool isData = dataFrame >= 0 && dataFrame < data;
    const int frameInTone = dataFrame < 0 ? frame : isData ? dataFrame % frames.step : dataFrame - data;
    const Envelope envelope((isData ? frames.step : frames.marker) * spf);
    std::array<float, GGWave::kMaxSamplesPerFrame> levels{}; // of the envelope, the same for every tone
    for (int i = 0; i < spf; ++i) levels[static_cast<std::size_t>(i)] = envelope.at(frameInTone * spf + i);

    m_outputBlock.zero();
    int tones = 0;
    const auto addTone = [&](int tone) {
        const ggvector<float> sine = tone % 2 == 0 ? m_bit1Amplitude[tone / 2] : m_bit0Amplitude[tone / 2];
        addSine(m_outputBlock.span(), sine.data(), m_sendVolume, levels.data());
        ++tones;
    };
    if (isData) {
        if (dataFrame % frames.step == 0) setDataBits(frames, dataFrame);
        for (int tone = 0; tone < 32 * m_protocol.bytesPerTx; ++tone) {
            if (m_dataBits[tone] != 0) addTone(tone);
        }
    } else {
        for (int bit = 0; bit < GGWave::kBitsInMarker; ++bit) addTone(markerTone(bit, dataFrame < 0));
    }
    divide(m_outputBlock.span(), static_cast<float>(std::max(1, tones)));
}

void Transmitter::makeWaveform(const Frames& frames) {
    const float factor = m_settings.sampleRate / m_settings.sampleRateOut;
    m_waveformSamples = 0;
    for (int frame = 0; frame < frames.total(); ++frame) {
        synthesizeFrame(frames, frame);
        if (!m_settings.needsResampling) {
            append(m_outputBlock.span());
            continue;
        }
        // In portions: a frame can yield more than the 2 * spf samples that the block has room for.
        m_resampler.feed(m_settings.samplesPerFrame, m_outputBlock.data());
        const std::span portion = m_outputBlockResampled.span();
        while (const int n = m_resampler.take(factor, portion))
            append(portion.first(static_cast<std::size_t>(n)));
        m_resampler.settle();
    }
}

/// Converts to 16 bits and to the playback format behind the samples made so far, as far as there
/// is room; `obstacle` has counted that there is.
void Transmitter::append(std::span<const float> samples) {
    const int total = m_waveformSamples;
    samples =
        samples.first(std::min(samples.size(), static_cast<std::size_t>(m_outputBlockI16.size() - total)));
    storeI16(samples, m_outputBlockI16.data() + total);
    std::uint8_t* const raw = m_outputBlockTmp.data() + total * sampleSize(m_settings.sampleFormatOut);
    switch (m_settings.sampleFormatOut) {
    case GGWAVE_SAMPLE_FORMAT_U8:
        for (std::size_t i = 0; i < samples.size(); ++i)
            raw[i] = stored<std::uint8_t>(samples[i] + 1.0F, 128.0F);
        break;
    case GGWAVE_SAMPLE_FORMAT_I8:
        for (std::size_t i = 0; i < samples.size(); ++i) raw[i] = stored<std::uint8_t>(samples[i], 128.0F);
        break;
    case GGWAVE_SAMPLE_FORMAT_U16:
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const auto value = stored<std::uint16_t>(samples[i] + 1.0F, 32768.0F);
            std::memcpy(raw + 2 * i, &value, sizeof value);
        }
        break;
    case GGWAVE_SAMPLE_FORMAT_F32:
        std::memcpy(raw, samples.data(), samples.size_bytes());
        break;
    default:
        break; // 16-bit playback is m_outputBlockI16 itself
    }
    m_waveformSamples += static_cast<int>(samples.size());
}

const void* Transmitter::waveform() const {
    switch (m_settings.sampleFormatOut) {
    case GGWAVE_SAMPLE_FORMAT_I16:
        return m_outputBlockI16.data();
    case GGWAVE_SAMPLE_FORMAT_U8:
    case GGWAVE_SAMPLE_FORMAT_I8:
    case GGWAVE_SAMPLE_FORMAT_U16:
    case GGWAVE_SAMPLE_FORMAT_F32:
        return m_outputBlockTmp.data();
    default:
        return nullptr;
    }
}

bool Transmitter::takeAmplitudeI16(ggvector<short>& dst) {
    if (m_waveformSamples == 0) return false;
    dst = {m_outputBlockI16.data(), m_waveformSamples};
    m_waveformSamples = 0;
    return true;
}

} // namespace sorvel::modem
