#include "modem/log.hpp"
#include "modem/parts.hpp"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <new>

using sorvel::detail::logLine;

namespace {

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

namespace sorvel::modem {

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

Settings::Settings(const ggwave_Parameters& parameters)
    : sampleRateInp(parameters.sampleRateInp), sampleRateOut(parameters.sampleRateOut),
      sampleRate(parameters.sampleRate), samplesPerFrame(parameters.samplesPerFrame),
      hzPerBin(parameters.sampleRate / static_cast<float>(parameters.samplesPerFrame)),
      sampleFormatInp(parameters.sampleFormatInp), sampleFormatOut(parameters.sampleFormatOut),
      soundMarkerThreshold(parameters.soundMarkerThreshold), isFixedLength(parameters.payloadLength > 0),
      payloadLength(isFixedLength ? parameters.payloadLength : GGWave::kMaxLengthVariable),
      lengthBytes(isFixedLength ? 0 : GGWave::kDefaultEncodedDataOffset),
      markerFrames(isFixedLength ? 0 : GGWave::kDefaultMarkerFrames),
      canReceive((parameters.operatingMode & GGWAVE_OPERATING_MODE_RX) != 0),
      canTransmit((parameters.operatingMode & GGWAVE_OPERATING_MODE_TX) != 0),
      makesOnlyTones((parameters.operatingMode & GGWAVE_OPERATING_MODE_TX_ONLY_TONES) != 0),
      isSpread((parameters.operatingMode & GGWAVE_OPERATING_MODE_USE_DSS) != 0),
      needsResampling(sampleRateInp != sampleRate || sampleRateOut != sampleRate) {}

} // namespace sorvel::modem

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
    m_sampleSizeInp = sorvel::modem::sampleSize(parameters.sampleFormatInp);
    m_sampleSizeOut = sorvel::modem::sampleSize(parameters.sampleFormatOut);
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
    : m_rxProtocols(owner.m_rxProtocols), m_txProtocols(owner.m_txProtocols), m_settings(owner.m_parameters),
      m_coding(m_settings), m_transmitter(m_settings, m_coding, m_resampler) {
    m_samplesNeeded = m_settings.samplesPerFrame;
    m_minFreqStart = sorvel::modem::minFreqStart(m_rxProtocols, m_settings.samplesPerFrame);
}

bool GGWave::Parts::alloc(void* p, int& n) {
    if (const std::int64_t total =
            std::int64_t{m_settings.payloadLength} + sorvel::modem::eccBytes(m_settings.payloadLength);
        total > kMaxDataSize) {
        logLine("Error: total length %lld (payload %d + ECC %d bytes) is too large ( > %d)\n",
                static_cast<long long>(total), m_settings.payloadLength,
                sorvel::modem::eccBytes(m_settings.payloadLength), kMaxDataSize);
        return false;
    }

    sorvel::modem::Layout layout(p, n);
    m_coding.placeWord(layout);
    if (m_settings.canReceive && !placeReceiver(layout)) return false;
    if (m_settings.canTransmit) m_transmitter.place(layout, m_txProtocols);
    m_coding.placeWork(layout);
    if (layout.bytes() > INT_MAX - 65536) return false; // the resampler adds less
    n = static_cast<int>(layout.bytes());
    return !m_settings.needsResampling || m_resampler.alloc(p, n);
}

bool GGWave::Parts::placeReceiver(sorvel::modem::Layout& layout) {
    if (m_settings.isFixedLength && m_settings.payloadLength > kMaxLengthFixed) {
        logLine("Invalid payload length: %d, max: %d\n", m_settings.payloadLength, kMaxLengthFixed);
        return false;
    }
    const std::int64_t spf = m_settings.samplesPerFrame;
    const std::int64_t captured = m_settings.needsResampling ? kResampleFactorMax * spf : spf;
    const Protocols& rx = m_rxProtocols;

    layout.place(m_fftOut, 2 * spf);
    const std::int64_t pairs = spf / 2;
    layout.place(m_fftWorkI, static_cast<int>(std::sqrt(static_cast<double>(pairs)) + 3.0));
    layout.place(m_fftWorkF, pairs);
    layout.place(m_sampleSpectrum, spf);
    layout.place(m_sampleAmplitude, spf + (m_settings.needsResampling ? kResampleMargin : 0));
    layout.place(m_sampleAmplitudeResampled, captured);
    layout.place(m_sampleAmplitudeTmp, sorvel::modem::sampleSize(m_settings.sampleFormatInp) * captured);
    layout.place(m_rxData, m_settings.payloadLength + 1);
    if (m_settings.isFixedLength) {
        // One chunk carries at least one byte, so no transmission has more chunks than coded bytes.
        layout.place(m_spectrumHistoryFixed,
                     std::int64_t{sorvel::modem::maxFramesPerTx(rx, false)} * m_settings.codedBytes(), spf);
        layout.place(m_detectedBins, 2 * m_settings.codedBytes());
        layout.place(m_detectedTones, 32 * sorvel::modem::maxBytesPerTx(rx));
    } else {
        layout.place(m_recordedAmplitude, kMaxRecordedFrames * spf);
        layout.place(m_spectrumAverage, spf);
        layout.place(m_spectrumHistory, kMaxSpectrumHistory, spf);
    }
    return true;
}

void GGWave::Parts::forget() {
    m_rxReceiving = m_rxAnalyzing = false;
    m_framesToAnalyze = m_framesLeftToAnalyze = m_framesToRecord = m_framesLeftToRecord = 0;
    m_sampleSpectrum.zero();
    m_sampleAmplitude.zero();
    m_spectrumHistory.zero();
    m_rxData.zero();
    m_spectrumHistoryFixed.zero();
}
