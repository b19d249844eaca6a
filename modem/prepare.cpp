#include "modem/log.hpp"
#include "modem/parts.hpp"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <new>

using sorvel::detail::logLine;

namespace {

/// Bytes of one sample; 0 for what is no format.
int sampleSize(ggwave_SampleFormat format) {
    switch (format) {
    case GGWAVE_SAMPLE_FORMAT_U8:
    case GGWAVE_SAMPLE_FORMAT_I8:
        return 1;
    case GGWAVE_SAMPLE_FORMAT_U16:
    case GGWAVE_SAMPLE_FORMAT_I16:
        return 2;
    case GGWAVE_SAMPLE_FORMAT_F32:
        return 4;
    default:
        return 0;
    }
}

void* placed(void* p, std::int64_t n) { return p == nullptr ? nullptr : static_cast<std::byte*>(p) + n; }

std::int64_t roundedUpTo8(std::int64_t bytes) { return (bytes + 7) / 8 * 8; }

/// Measures one array, and points its view into the block if there is one. An array beyond an int leaves the
/// sum beyond an int too, which is what refuses the layout.
template <class T>
void place(ggvector<T>& view, void* p, std::int64_t& n, std::int64_t count) {
    if (p != nullptr) view = {static_cast<T*>(placed(p, n)), static_cast<int>(count)};
    n += roundedUpTo8(count * static_cast<std::int64_t>(sizeof(T)));
}

template <class T>
void place(ggmatrix<T>& view, void* p, std::int64_t& n, std::int64_t rows, std::int64_t cols) {
    if (p != nullptr) view = {static_cast<T*>(placed(p, n)), static_cast<int>(rows), static_cast<int>(cols)};
    n += roundedUpTo8(rows * cols * static_cast<std::int64_t>(sizeof(T)));
}

std::int64_t codecWorkSize(int length, int eccLength) { return 3 * length + 29 * eccLength + 1; }

constexpr ggwave_Parameters kDefaultParameters{
    .payloadLength = -1,
    .sampleRateInp = 48000.0F,
    .sampleRateOut = 48000.0F,
    .sampleRate = 48000.0F,
    .samplesPerFrame = 1024,
    .soundMarkerThreshold = 3.0F,
    .sampleFormatInp = GGWAVE_SAMPLE_FORMAT_F32,
    .sampleFormatOut = GGWAVE_SAMPLE_FORMAT_F32,
    .operatingMode = GGWAVE_OPERATING_MODE_RX | GGWAVE_OPERATING_MODE_TX,
};

/// Bytes in front of the working block, which then is aligned as an allocation of its own would be.
template <class Parts>
constexpr std::size_t kPartsSize =
    (sizeof(Parts) + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) * alignof(std::max_align_t);

} // namespace

int getECCBytesForLength(int length) { return length < 4 ? 2 : std::max(4, 2 * (length / 5)); }

const ggwave_Parameters& GGWave::getDefaultParameters() { return kDefaultParameters; }

GGWave::GGWave(const ggwave_Parameters& parameters) { prepare(parameters, true); }

GGWave::~GGWave() { std::free(m_parts); }

void GGWave::dropBlock() {
    std::free(m_parts);
    m_parts = nullptr;
    m_heapSize = 0;
}

bool GGWave::prepare(const ggwave_Parameters& parameters, bool allocate) {
    dropBlock();

    m_parameters = parameters;
    m_sampleSizeInp = sampleSize(parameters.sampleFormatInp);
    m_sampleSizeOut = sampleSize(parameters.sampleFormatOut);
    m_hzPerSample = parameters.sampleRate / static_cast<float>(parameters.samplesPerFrame);
    const auto has = [&parameters](int flag) { return (parameters.operatingMode & flag) != 0; };
    m_rxProtocols = has(GGWAVE_OPERATING_MODE_RX) ? Protocols::rx() : Protocols{};
    m_txProtocols = has(GGWAVE_OPERATING_MODE_TX) ? Protocols::tx() : Protocols{};

    if (m_sampleSizeInp == 0) {
        logLine("Invalid or unsupported capture sample format: %d\n", parameters.sampleFormatInp);
        return false;
    }
    if (m_sampleSizeOut == 0) {
        logLine("Invalid or unsupported playback sample format: %d\n", parameters.sampleFormatOut);
        return false;
    }
    if (parameters.samplesPerFrame > kMaxSamplesPerFrame || parameters.samplesPerFrame < 1) {
        logLine("Invalid samples per frame: %d, max: %d\n", parameters.samplesPerFrame, kMaxSamplesPerFrame);
        return false;
    }
    if (!(parameters.sampleRateInp >= kMinSampleRate)) { // also not a number
        logLine("Error: capture sample rate (%g Hz) must be >= %g Hz\n",
                static_cast<double>(parameters.sampleRateInp), static_cast<double>(kMinSampleRate));
        return false;
    }
    if (parameters.sampleRateInp > kMaxSampleRate) {
        logLine("Error: capture sample rate (%g Hz) must be <= %g Hz\n",
                static_cast<double>(parameters.sampleRateInp), static_cast<double>(kMaxSampleRate));
        return false;
    }

    int heapSize0 = 0;
    if (!alloc(nullptr, heapSize0)) {
        logLine("Error: failed to compute the size of the required memory\n");
        return false;
    }
    if (!allocate) return true;

    // One allocation: the parts, and behind them the block that they lay out.
    void* const memory = std::calloc(1, kPartsSize<Parts> + static_cast<std::size_t>(heapSize0));
    if (memory == nullptr) {
        logLine("Error: failed to allocate the required memory: %d\n", heapSize0);
        return false;
    }
    m_parts = new (memory) Parts(*this);
    int n = 0;
    if (!alloc(static_cast<std::byte*>(memory) + kPartsSize<Parts>, n) || n != heapSize0) {
        dropBlock();
        logLine("Error: failed to allocate memory - heapSize0: %d, heapSize: %d\n", heapSize0, n);
        return false;
    }
    m_heapSize = heapSize0;
    return init(0, "", 0, 0);
}

bool GGWave::alloc(void* p, int& n) {
    if (m_parts != nullptr) return m_parts->alloc(p, n);
    return p == nullptr && Parts(*this).alloc(nullptr, n);
}

GGWave::Parts::Parts(const GGWave& owner)
    : m_rxProtocols(owner.m_rxProtocols), m_txProtocols(owner.m_txProtocols) {
    const ggwave_Parameters& parameters = owner.m_parameters;
    m_sampleRateInp = parameters.sampleRateInp;
    m_sampleRateOut = parameters.sampleRateOut;
    m_sampleRate = parameters.sampleRate;
    m_samplesPerFrame = parameters.samplesPerFrame;
    m_isamplesPerFrame = 1.0F / static_cast<float>(m_samplesPerFrame);
    m_sampleSizeInp = owner.m_sampleSizeInp;
    m_sampleSizeOut = owner.m_sampleSizeOut;
    m_sampleFormatInp = parameters.sampleFormatInp;
    m_sampleFormatOut = parameters.sampleFormatOut;
    m_hzPerSample = owner.m_hzPerSample;
    m_isFixedPayloadLength = parameters.payloadLength > 0;
    m_payloadLength = parameters.payloadLength;
    m_nBitsInMarker = kBitsInMarker;
    m_nMarkerFrames = m_isFixedPayloadLength ? 0 : kDefaultMarkerFrames;
    m_encodedDataOffset = m_isFixedPayloadLength ? 0 : kDefaultEncodedDataOffset;
    m_soundMarkerThreshold = parameters.soundMarkerThreshold;
    m_isRxEnabled = (parameters.operatingMode & GGWAVE_OPERATING_MODE_RX) != 0;
    m_isTxEnabled = (parameters.operatingMode & GGWAVE_OPERATING_MODE_TX) != 0;
    m_txOnlyTones = (parameters.operatingMode & GGWAVE_OPERATING_MODE_TX_ONLY_TONES) != 0;
    m_isDSSEnabled = (parameters.operatingMode & GGWAVE_OPERATING_MODE_USE_DSS) != 0;
    m_needResampling = m_sampleRateInp != m_sampleRate || m_sampleRateOut != m_sampleRate;
    m_samplesNeeded = m_samplesPerFrame;
    m_minFreqStart = sorvel::modem::minFreqStart(m_rxProtocols, m_samplesPerFrame);
}

bool GGWave::Parts::alloc(void* p, int& n) {
    const int length = m_isFixedPayloadLength ? m_payloadLength : kMaxLengthVariable;
    const int ecc = getECCBytesForLength(length);
    if (const std::int64_t total = std::int64_t{length} + ecc; total > kMaxDataSize) {
        logLine("Error: total length %lld (payload %d + ECC %d bytes) is too large ( > %d)\n",
                static_cast<long long>(total), length, ecc, kMaxDataSize);
        return false;
    }
    const int totalLength = length + ecc;

    std::int64_t size = n;
    place(m_dataEncoded, p, size, m_encodedDataOffset + totalLength);
    if (m_isRxEnabled && !allocReceiver(p, size, length, totalLength)) return false;
    if (m_isTxEnabled) allocTransmitter(p, size, length, totalLength);
    if (!m_isFixedPayloadLength) place(m_workRSLength, p, size, codecWorkSize(1, m_encodedDataOffset - 1));
    place(m_workRSData, p, size, codecWorkSize(length, ecc));
    if (size > INT_MAX - 65536) return false; // the resampler adds less
    n = static_cast<int>(size);
    return !m_needResampling || m_resampler.alloc(p, n);
}

bool GGWave::Parts::allocReceiver(void* p, std::int64_t& n, int length, int totalLength) {
    if (m_isFixedPayloadLength && length > kMaxLengthFixed) {
        logLine("Invalid payload length: %d, max: %d\n", length, kMaxLengthFixed);
        return false;
    }
    const std::int64_t spf = m_samplesPerFrame;
    const std::int64_t captured = m_needResampling ? kResampleFactorMax * spf : spf;
    const Protocols& rx = Protocols::rx();

    place(m_fftOut, p, n, 2 * spf);
    const std::int64_t pairs = spf / 2;
    place(m_fftWorkI, p, n, static_cast<int>(std::sqrt(static_cast<double>(pairs)) + 3.0));
    place(m_fftWorkF, p, n, pairs);
    place(m_sampleSpectrum, p, n, spf);
    place(m_sampleAmplitude, p, n, spf + (m_needResampling ? kResampleMargin : 0));
    place(m_sampleAmplitudeResampled, p, n, captured);
    place(m_sampleAmplitudeTmp, p, n, m_sampleSizeInp * captured);
    place(m_rxData, p, n, length + 1);
    if (m_isFixedPayloadLength) {
        // One chunk carries at least one byte, so no transmission has more chunks than coded bytes.
        place(m_spectrumHistoryFixed, p, n,
              std::int64_t{sorvel::modem::maxFramesPerTx(rx, false)} * totalLength, spf);
        place(m_detectedBins, p, n, 2 * totalLength);
        place(m_detectedTones, p, n, 32 * sorvel::modem::maxBytesPerTx(rx));
    } else {
        place(m_recordedAmplitude, p, n, kMaxRecordedFrames * spf);
        place(m_spectrumAverage, p, n, spf);
        place(m_spectrumHistory, p, n, kMaxSpectrumHistory, spf);
    }
    return true;
}

void GGWave::Parts::allocTransmitter(void* p, std::int64_t& n, int length, int totalLength) {
    const std::int64_t spf = m_samplesPerFrame;
    const Protocols& tx = Protocols::tx();
    const int tones = 32 * sorvel::modem::maxBytesPerTx(tx);

    if (!m_txOnlyTones) {
        place(m_phaseOffsets, p, n, tones);
        place(m_bit0Amplitude, p, n, tones, spf);
        place(m_bit1Amplitude, p, n, tones, spf);
        place(m_outputBlock, p, n, spf);
        place(m_outputBlockResampled, p, n, 2 * spf);
        place(m_outputBlockTmp, p, n, kMaxRecordedFrames * spf * m_sampleSizeOut);
        place(m_outputBlockI16, p, n, kMaxRecordedFrames * spf);
    }
    const int tonesPerTx = m_isFixedPayloadLength ? sorvel::modem::maxTonesPerTx(tx) : kBitsInMarker;
    place(m_txData, p, n, length + 1);
    place(m_dataBits, p, n, tones);
    place(m_tones, p, n, tonesPerTx * totalLength + (tonesPerTx > 1 ? totalLength : 0));
}
