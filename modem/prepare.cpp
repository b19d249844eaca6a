#include "modem/log.hpp"
#include "modem/parts.hpp"

#include <climits>
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
    m_parts = new (memory) Parts(parameters);
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
    if (m_parts != nullptr) return m_parts->place(p, n);
    return p == nullptr && Parts(m_parameters).place(nullptr, n);
}

GGWave::Parts::Parts(const ggwave_Parameters& parameters)
    : settings(parameters), coding(settings), capture(settings, resampler), fixedReceiver(settings, coding),
      messageReceiver(settings, spectrum, coding), transmitter(settings, coding, resampler) {}

bool GGWave::Parts::place(void* block, int& n) {
    const int length = settings.payloadLength;
    const std::int64_t total = std::int64_t{length} + sorvel::modem::eccBytes(length);
    if (total > kMaxDataSize) {
        logLine("Error: total length %lld (payload %d + ECC %d bytes) is too large ( > %d)\n",
                static_cast<long long>(total), length, sorvel::modem::eccBytes(length), kMaxDataSize);
        return false;
    }
    if (settings.canReceive && settings.isFixedLength && length > kMaxLengthFixed) {
        logLine("Invalid payload length: %d, max: %d\n", length, kMaxLengthFixed);
        return false;
    }

    // The plan. Nobody reads what capture places behind the frame being filled, and of the detected tones
    // only the size: they belong to the plan, which users count on.
    sorvel::modem::Layout layout(block, n);
    coding.placeWord(layout);
    if (settings.canReceive) {
        spectrum.place(layout, settings.samplesPerFrame);
        capture.place(layout);
        layout.place(reception.data, length + 1);
        if (settings.isFixedLength) {
            fixedReceiver.place(layout, Protocols::rx());
        } else {
            messageReceiver.place(layout);
        }
    }
    if (settings.canTransmit) transmitter.place(layout, Protocols::tx());
    coding.placeWork(layout);
    if (layout.bytes() > INT_MAX - 65536) return false; // the converter adds less
    n = static_cast<int>(layout.bytes());
    return !settings.needsResampling || resampler.alloc(block, n);
}
