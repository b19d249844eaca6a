#include "modem/dss.hpp"
#include "modem/log.hpp"
#include "modem/parts.hpp"
#include "modem/rs.hpp"

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

using sorvel::detail::logLine;

namespace {

constexpr const char* kTxDisabled = "Tx is disabled - cannot transmit data with this GGWave instance\n";
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

} // namespace

/// A transmission is `marker` frames, `data` frames in steps of `step`, and `marker` frames.
struct GGWave::Parts::Frames {
    int marker;
    int step;
    std::int64_t data;

    std::int64_t total() const { return data + 2 * marker; }
};

GGWave::Parts::Frames GGWave::Parts::transmissionFrames() const {
    const int bytes = m_encodedDataOffset + m_txDataLength + getECCBytesForLength(m_txDataLength);
    const int chunk = std::max<int>(1, m_txProtocol.bytesPerTx);
    const std::int64_t chunks = (bytes + chunk - 1) / chunk;
    return {m_nMarkerFrames, m_txProtocol.framesPerTx,
            chunks * m_txProtocol.extra * m_txProtocol.framesPerTx};
}

// Queueing

bool GGWave::Parts::init(int dataSize, const void* data, ggwave_ProtocolId protocolId, int volume) {
    if (m_isTxEnabled) {
        const int limit = m_isFixedPayloadLength ? m_payloadLength : kMaxLengthVariable;
        if (dataSize > limit) {
            logLine("Truncating data from %d to %d bytes\n", dataSize, limit);
            dataSize = limit;
        }
        const std::span bytes(static_cast<const std::uint8_t*>(data), static_cast<std::size_t>(dataSize));
        if (!queue(bytes, protocolId, volume)) return false;
    } else if (dataSize != 0) {
        logLine(kTxDisabled);
    }
    if (m_isRxEnabled) {
        m_rxReceiving = m_rxAnalyzing = false;
        m_framesToAnalyze = m_framesLeftToAnalyze = m_framesToRecord = m_framesLeftToRecord = 0;
        m_sampleSpectrum.zero();
        m_sampleAmplitude.zero();
        m_spectrumHistory.zero();
        m_rxData.zero();
        m_spectrumHistoryFixed.zero();
    }
    return true;
}

bool GGWave::Parts::queue(std::span<const std::uint8_t> data, ggwave_ProtocolId protocolId, int volume) {
    if (volume < 0 || volume > 100) {
        logLine("Invalid volume: %d\n", volume);
        return false;
    }
    m_txHasData = false;
    m_txData.zero();
    m_dataEncoded.zero();
    if (data.empty()) return true;

    if (protocolId < 0 || protocolId >= GGWAVE_PROTOCOL_COUNT) {
        logLine("Invalid protocol ID: %d\n", protocolId);
        return false;
    }
    const Protocol& protocol = m_txProtocols[static_cast<std::size_t>(protocolId)];
    if (!protocol.enabled) {
        logLine("Protocol %d is not enabled - make sure to enable it before creating the instance\n",
                protocolId);
        return false;
    }
    if (protocol.extra == 2 && !m_isFixedPayloadLength) {
        logLine("Mono-tone protocols with variable length are not supported\n");
        return false;
    }

    m_txProtocol = protocol;
    m_txDataLength = m_isFixedPayloadLength ? m_payloadLength : static_cast<int>(data.size());
    m_sendVolume = static_cast<float>(volume) / 100.0F;
    m_txData[0] = static_cast<std::uint8_t>(m_txDataLength);
    const std::span payload = m_txData.span().subspan(1, static_cast<std::size_t>(m_txDataLength));
    std::copy(data.begin(), data.end(), payload.begin()); // the rest is zero already
    if (m_isDSSEnabled) {
        for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = sorvel::detail::spread(payload[i], i);
    }
    m_txHasData = true;
    return true;
}

/// What makes the queued payload impossible to send, as a line for the log stream; null if nothing does.
const char* GGWave::Parts::obstacleToEncoding() const {
    if (m_txProtocol.framesPerTx < 1 || m_txProtocol.bytesPerTx < 1 || m_txProtocol.extra < 1 ||
        m_txProtocol.extra > 2)
        return "Error: the protocol has no frames, no bytes or no tones - define its row before enabling "
               "it\n";
    if (32 * m_txProtocol.bytesPerTx > m_dataBits.size())
        return "Error: the protocol's chunks are larger than those this instance was prepared for\n";
    if (m_txDataLength + getECCBytesForLength(m_txDataLength) >= kMaxDataSize)
        return "Error: the payload and its ECC bytes exceed the 255 bytes of a code word - use a shorter "
               "payload\n";
    if (m_txOnlyTones) return nullptr;
    if (!(m_sampleRate > 0.0F) || !(m_sampleRateOut > 0.0F) || !std::isfinite(m_sampleRateOut) ||
        !std::isfinite(sorvel::modem::bitFreq(m_txProtocol, 16 * m_txProtocol.bytesPerTx, m_hzPerSample)))
        return "Error: operating and playback sample rates must be above 0 Hz and finite to transmit\n";
    if (m_needResampling && !isUsableRatio(m_sampleRate / m_sampleRateOut))
        return "Error: operating and playback sample rates are too far apart to convert\n";
    if (m_needResampling && m_samplesPerFrame <= Resampler::kWidth)
        return "Error: converting the sample rate needs more than 64 samples per frame\n";
    if (transmissionFrames().total() > kMaxRecordedFrames)
        return "Error: the transmission is longer than 2048 frames - use a shorter payload or a faster "
               "protocol\n";
    return nullptr;
}

std::uint32_t GGWave::Parts::encodeSize_samples() const {
    if (!m_txHasData || obstacleToEncoding() != nullptr) return 0;
    int perFrame = m_samplesPerFrame;
    if (m_needResampling && !m_txOnlyTones) {
        // From a fresh stream, as `encode` starts: its first frame yields the most.
        perFrame =
            1 + Resampler().resample(m_sampleRate / m_sampleRateOut, m_samplesPerFrame, nullptr, nullptr);
    }
    return static_cast<std::uint32_t>(transmissionFrames().total() * perFrame);
}

// Encoding

std::uint32_t GGWave::Parts::encode() {
    if (!m_txHasData) return 0;
    m_txHasData = false;
    m_txLastSamples = 0;
    m_nTones = 0;
    if (const char* obstacle = obstacleToEncoding()) {
        logLine("%s", obstacle);
        return 0;
    }
    if (m_needResampling) m_resampler.reset();

    encodeBytes();
    const Frames frames = transmissionFrames();
    if (!makeTones(frames)) {
        m_nTones = 0;
        logLine("Error: no room for the tone list of this protocol in this instance - it stays empty\n");
        if (m_txOnlyTones) return 0;
    }
    if (m_txOnlyTones) return 1;

    makeSines();
    if (!makeWaveform(frames)) {
        logLine("Error: the waveform exceeds 2048 frames of samples - lower the playback rate or shorten the "
                "payload\n");
        return 0;
    }
    return static_cast<std::uint32_t>(m_txLastSamples) * static_cast<std::uint32_t>(m_sampleSizeOut);
}

void GGWave::Parts::encodeBytes() {
    const auto length = static_cast<std::uint8_t>(m_txDataLength);
    const auto ecc = static_cast<std::uint8_t>(getECCBytesForLength(m_txDataLength));
    m_dataEncoded.zero();
    if (!m_isFixedPayloadLength) {
        RS::ReedSolomon code(1, static_cast<std::uint8_t>(m_encodedDataOffset - 1), m_workRSLength.data());
        code.Encode(m_txData.data(), m_dataEncoded.data());
    }
    RS::ReedSolomon code(length, ecc, m_workRSData.data());
    code.Encode(m_txData.data() + 1, m_dataEncoded.data() + m_encodedDataOffset);
}

/// The last chunk may reach past the code word; it is filled up with zero bytes.
int GGWave::Parts::codedByte(int i) const { return i < m_dataEncoded.size() ? m_dataEncoded[i] : 0; }

/// Marks in m_dataBits the tones that sound in data frame `frame` (from 0, within the data).
void GGWave::Parts::setDataBits(const Frames& frames, int frame) {
    const int bytes = m_txProtocol.bytesPerTx;
    const int step = frame / frames.step;
    m_dataBits.zero();
    for (int j = 0; j < bytes; ++j) {
        if (m_txProtocol.extra == 1) {
            const int value = codedByte(step * bytes + j);
            m_dataBits[32 * j + (value & 15)] = 1;
            m_dataBits[32 * j + 16 + (value >> 4)] = 1;
        } else {
            const int position = step * bytes;
            const int value = codedByte(position / m_txProtocol.extra + j);
            const bool isHighNibble = position % m_txProtocol.extra != 0;
            m_dataBits[32 * j + (isHighNibble ? value >> 4 : value & 15)] = 1;
        }
    }
}

/// Of the 16 pairs of a marker, the start marker sounds one tone each and the end marker the other.
static int markerTone(int bit, bool isStart) { return (2 * bit + bit % 2) ^ (isStart ? 0 : 1); }

bool GGWave::Parts::makeTones(const Frames& frames) {
    const bool isSeparated = 2 * m_txProtocol.bytesPerTx / m_txProtocol.extra > 1;
    const auto add = [this](int tone) {
        if (m_nTones == m_tones.size()) return false;
        m_tones[m_nTones++] = static_cast<std::uint8_t>(tone);
        return true;
    };
    // In steps of a chunk from the very first frame, also where a marker is not a whole number of them.
    for (std::int64_t frame = 0; frame < frames.total(); frame += frames.step) {
        const std::int64_t dataFrame = frame - frames.marker;
        if (dataFrame < 0 || dataFrame >= frames.data) {
            for (int bit = 0; bit < m_nBitsInMarker; ++bit) {
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

/// One frame of every tone the protocol uses. Phases differ from pair to pair, so that chunks of many tones
/// do not pile up into one peak.
void GGWave::Parts::makeSines() {
    const double ratioPerHz = 1.0 / static_cast<double>(m_hzPerSample);
    const int pairs = 16 * m_txProtocol.bytesPerTx;
    for (int pair = 0; pair < pairs; ++pair) {
        m_phaseOffsets[pair] = std::numbers::pi * pair / (8 * m_txProtocol.bytesPerTx);
        const auto low = static_cast<double>(sorvel::modem::bitFreq(m_txProtocol, pair, m_hzPerSample));
        const double high = low + static_cast<double>(m_hzPerSample);
        ggvector<float> bit1 = m_bit1Amplitude[pair];
        ggvector<float> bit0 = m_bit0Amplitude[pair];
        for (int i = 0; i < m_samplesPerFrame; ++i) {
            const double turn = 2.0 * std::numbers::pi * i * static_cast<double>(m_isamplesPerFrame);
            bit1[i] = static_cast<float>(std::sin(turn * (low * ratioPerHz) + m_phaseOffsets[pair]));
            bit0[i] = static_cast<float>(std::sin(turn * (high * ratioPerHz) + m_phaseOffsets[pair]));
        }
    }
}

/// Leaves frame `frame` of the transmission in m_outputBlock.
void GGWave::Parts::synthesizeFrame(const Frames& frames, int frame) {
    const int spf = m_samplesPerFrame;
    const auto data = static_cast<int>(frames.data);
    const int dataFrame = frame - frames.marker;
    const bool isData = dataFrame >= 0 && dataFrame < data;
    const int frameInTone = dataFrame < 0 ? frame : isData ? dataFrame % frames.step : dataFrame - data;
    const Envelope envelope((isData ? frames.step : frames.marker) * spf);

    m_outputBlock.zero();
    int tones = 0;
    const auto addTone = [&](int tone) {
        const ggvector<float> sine = tone % 2 == 0 ? m_bit1Amplitude[tone / 2] : m_bit0Amplitude[tone / 2];
        for (int i = 0; i < spf; ++i)
            m_outputBlock[i] += m_sendVolume * sine[i] * envelope.at(frameInTone * spf + i);
        ++tones;
    };
    if (isData) {
        if (dataFrame % frames.step == 0) setDataBits(frames, dataFrame);
        for (int tone = 0; tone < 32 * m_txProtocol.bytesPerTx; ++tone) {
            if (m_dataBits[tone] != 0) addTone(tone);
        }
    } else {
        for (int bit = 0; bit < m_nBitsInMarker; ++bit) addTone(markerTone(bit, dataFrame < 0));
    }
    const float share = static_cast<float>(std::max(1, tones));
    for (float& sample : m_outputBlock) sample /= share;
}

bool GGWave::Parts::makeWaveform(const Frames& frames) {
    const float factor = m_sampleRate / m_sampleRateOut;
    int total = 0;
    for (int frame = 0; frame < frames.total(); ++frame) {
        synthesizeFrame(frames, frame);
        if (!m_needResampling) {
            if (!append(m_outputBlock.span(), total)) return false;
            continue;
        }
        // In portions: a frame can yield more than the 2 * spf samples that the block has room for.
        m_resampler.feed(m_samplesPerFrame, m_outputBlock.data());
        const std::span portion = m_outputBlockResampled.span();
        while (const int n = m_resampler.take(factor, portion)) {
            if (!append(portion.first(static_cast<std::size_t>(n)), total)) return false;
        }
        m_resampler.settle();
    }
    m_txLastSamples = total;
    return true;
}

/// Converts to 16 bits and to the playback format behind the `total` samples made so far.
bool GGWave::Parts::append(std::span<const float> samples, int& total) {
    if (static_cast<int>(samples.size()) > m_outputBlockI16.size() - total) return false;
    std::uint8_t* const raw = m_outputBlockTmp.data();
    for (const float x : samples) {
        // Through int, so that +1.0 wraps everywhere; a direct conversion is undefined and saturates on some
        // processors.
        m_outputBlockI16[total] = static_cast<short>(static_cast<int>(x * 32768.0F));
        switch (m_sampleFormatOut) {
        case GGWAVE_SAMPLE_FORMAT_U8:
            raw[total] = static_cast<std::uint8_t>(static_cast<int>((x + 1.0F) * 128.0F));
            break;
        case GGWAVE_SAMPLE_FORMAT_I8:
            raw[total] = static_cast<std::uint8_t>(static_cast<int>(x * 128.0F));
            break;
        case GGWAVE_SAMPLE_FORMAT_U16: {
            const auto value = static_cast<std::uint16_t>(static_cast<int>((x + 1.0F) * 32768.0F));
            std::memcpy(raw + 2 * total, &value, sizeof value);
            break;
        }
        case GGWAVE_SAMPLE_FORMAT_F32:
            std::memcpy(raw + 4 * total, &x, sizeof x);
            break;
        default:
            break; // 16-bit playback is m_outputBlockI16 itself
        }
        ++total;
    }
    return true;
}

const void* GGWave::Parts::txWaveform() const {
    switch (m_sampleFormatOut) {
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
