#include "modem/ggwave.h"

#include "modem/fft.h"
#include "modem/log.hpp"
#include "modem/parts.hpp"

#include <cmath>
#include <cstring>
#include <limits>

// What the class offers, each call handed to the part that does the work. An instance without a working block
// answers as an idle one does and refuses what needs one.

using sorvel::detail::logLine;

namespace {

constexpr const char* kTxDisabled = "Tx is disabled - cannot transmit data with this GGWave instance\n";
constexpr const char* kRxDisabled = "Rx is disabled - cannot receive data with this GGWave instance\n";
constexpr const char* kNoBlock =
    "Error: this GGWave instance has no working memory - its preparation failed\n";

} // namespace

// Transmitting

bool GGWave::init(const char* text, ggwave_ProtocolId protocolId, int volume) {
    const std::size_t length = text == nullptr ? 0 : std::strlen(text);
    const std::size_t most = std::numeric_limits<int>::max();
    return init(static_cast<int>(std::min(length, most)), text, protocolId, volume);
}

bool GGWave::init(int dataSize, const void* data, ggwave_ProtocolId protocolId, int volume) {
    if (dataSize < 0) {
        logLine("Negative data size: %d\n", dataSize);
        return false;
    }
    if (m_parts == nullptr) {
        logLine(kNoBlock);
        return false;
    }
    if (dataSize > 0 && data == nullptr) {
        logLine("Error: no data given for %d bytes\n", dataSize);
        return false;
    }
    if (m_parts->m_settings.canTransmit) {
        const std::span bytes(static_cast<const std::uint8_t*>(data), static_cast<std::size_t>(dataSize));
        if (!m_parts->m_transmitter.queue(bytes, m_txProtocols, protocolId, volume)) return false;
    } else if (dataSize != 0) {
        logLine(kTxDisabled);
    }
    if (m_parts->m_settings.canReceive) m_parts->forget();
    return true;
}

std::uint32_t GGWave::encodeSize_samples() const {
    return m_parts == nullptr ? 0 : m_parts->m_transmitter.size_samples();
}

std::uint32_t GGWave::encodeSize_bytes() const {
    return encodeSize_samples() * static_cast<std::uint32_t>(m_sampleSizeOut);
}

std::uint32_t GGWave::encode() {
    if ((m_parameters.operatingMode & GGWAVE_OPERATING_MODE_TX) == 0) {
        logLine(kTxDisabled);
        return 0;
    }
    return m_parts == nullptr ? 0 : m_parts->m_transmitter.encode();
}

const void* GGWave::txWaveform() const {
    return m_parts == nullptr ? nullptr : m_parts->m_transmitter.waveform();
}

ggvector<std::uint8_t> GGWave::txTones() const {
    return m_parts == nullptr ? ggvector<std::uint8_t>{} : m_parts->m_transmitter.tones();
}

bool GGWave::txHasData() const { return m_parts != nullptr && m_parts->m_transmitter.hasData(); }

bool GGWave::txTakeAmplitudeI16(ggvector<short>& dst) {
    return m_parts != nullptr && m_parts->m_transmitter.takeAmplitudeI16(dst);
}

// Receiving

bool GGWave::decode(const void* data, unsigned int nBytes) {
    if ((m_parameters.operatingMode & GGWAVE_OPERATING_MODE_RX) == 0) {
        logLine(kRxDisabled);
        return false;
    }
    if (m_parts == nullptr) {
        logLine(kNoBlock);
        return false;
    }
    return m_parts->decode(data, nBytes);
}

bool GGWave::rxReceiving() const { return m_parts != nullptr && m_parts->m_rxReceiving; }
bool GGWave::rxAnalyzing() const { return m_parts != nullptr && m_parts->m_rxAnalyzing; }
int GGWave::rxSamplesNeeded() const {
    return m_parts == nullptr ? m_parameters.samplesPerFrame : m_parts->m_samplesNeeded;
}
int GGWave::rxFramesToRecord() const { return m_parts == nullptr ? 0 : m_parts->m_framesToRecord; }
int GGWave::rxFramesLeftToRecord() const { return m_parts == nullptr ? 0 : m_parts->m_framesLeftToRecord; }
int GGWave::rxFramesToAnalyze() const { return m_parts == nullptr ? 0 : m_parts->m_framesToAnalyze; }
int GGWave::rxFramesLeftToAnalyze() const { return m_parts == nullptr ? 0 : m_parts->m_framesLeftToAnalyze; }

bool GGWave::rxStopReceiving() {
    if (!rxReceiving()) return false;
    m_parts->m_rxReceiving = false;
    return true;
}

int GGWave::rxDataLength() const { return m_parts == nullptr ? 0 : m_parts->m_rxDataLength; }
ggvector<std::uint8_t> GGWave::rxData() const {
    return m_parts == nullptr ? ggvector<std::uint8_t>{} : m_parts->m_rxData;
}
const GGWave::Protocol& GGWave::rxProtocol() const {
    static constexpr Protocol kNone;
    return m_parts == nullptr ? kNone : m_parts->m_rxProtocol;
}
ggwave_ProtocolId GGWave::rxProtocolId() const {
    return m_parts == nullptr ? GGWAVE_PROTOCOL_COUNT : m_parts->m_rxProtocolId;
}
ggvector<float> GGWave::rxSpectrum() const {
    return m_parts == nullptr ? ggvector<float>{} : m_parts->m_sampleSpectrum;
}
ggvector<float> GGWave::rxAmplitude() const {
    return m_parts == nullptr ? ggvector<float>{} : m_parts->m_sampleAmplitude;
}

int GGWave::rxTakeData(ggvector<std::uint8_t>& dst) {
    const int length = rxDataLength();
    if (length != 0) m_parts->m_rxDataLength = 0;
    if (length > 0) dst = {m_parts->m_rxData.data(), length};
    return length;
}

bool GGWave::rxTakeSpectrum(ggvector<float>& dst) {
    if (m_parts == nullptr || !m_parts->m_hasNewSpectrum) return false;
    m_parts->m_hasNewSpectrum = false;
    dst = m_parts->m_sampleSpectrum;
    return true;
}

bool GGWave::rxTakeAmplitude(ggvector<float>& dst) {
    if (m_parts == nullptr || !m_parts->m_hasNewAmplitude) return false;
    m_parts->m_hasNewAmplitude = false;
    dst = m_parts->m_sampleAmplitude;
    return true;
}

// Spectrum tools

bool GGWave::computeFFTR(const float* src, float* dst, int N) {
    if (N != samplesPerFrame()) {
        logLine("computeFFTR: N (%d) must be equal to 'samplesPerFrame' %d\n", N, samplesPerFrame());
        return false;
    }
    if (m_parts == nullptr || m_parts->m_fftWorkI.size() == 0) {
        logLine(kRxDisabled);
        return false;
    }
    std::copy_n(src, N, dst);
    rdft(N, 1, dst, m_parts->m_fftWorkI.data(), m_parts->m_fftWorkF.data());
    return true;
}
