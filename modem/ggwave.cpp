#include "modem/ggwave.h"

#include "modem/log.hpp"
#include "modem/parts.hpp"
#include "modem/protocols.hpp"

#include <cstring>
#include <limits>

// What the class offers, each call handed to the part that does the work. An instance without a
// working block answers as an idle one does and refuses what needs one.

using sorvel::detail::logLine;
using sorvel::modem::Spectrum;

namespace {

constexpr const char* kTxDisabled = "Tx is disabled - cannot transmit data with this GGWave instance\n";
constexpr const char* kRxDisabled = "Rx is disabled - cannot receive data with this GGWave instance\n";
constexpr const char* kNoBlock = "Error: this GGWave instance has no working memory - prepare it with other "
                                 "parameters or with allocation\n";

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
        logLine("%s", kNoBlock);
        return false;
    }
    if (dataSize > 0 && data == nullptr) {
        logLine("Error: no data given for %d bytes\n", dataSize);
        return false;
    }
    if (m_parts->settings.canTransmit) {
        const std::span bytes(static_cast<const std::uint8_t*>(data), static_cast<std::size_t>(dataSize));
        if (!m_parts->transmitter.queue(bytes, m_txProtocols, protocolId, volume)) return false;
    } else if (dataSize != 0) {
        logLine("%s", kTxDisabled);
    }
    if (m_parts->settings.canReceive) {
        m_parts->capture.forget();
        m_parts->spectrum.forget();
        m_parts->fixedReceiver.forget();
        m_parts->messageReceiver.forget();
        m_parts->reception.data.zero();
    }
    return true;
}

std::uint32_t GGWave::encodeSize_samples() const {
    return m_parts == nullptr ? 0 : m_parts->transmitter.size_samples();
}

std::uint32_t GGWave::encodeSize_bytes() const {
    return encodeSize_samples() * static_cast<std::uint32_t>(m_sampleSizeOut);
}

std::uint32_t GGWave::encode() {
    if ((m_parameters.operatingMode & GGWAVE_OPERATING_MODE_TX) == 0) {
        logLine("%s", kTxDisabled);
        return 0;
    }
    return m_parts == nullptr ? 0 : m_parts->transmitter.encode();
}

const void* GGWave::txWaveform() const {
    return m_parts == nullptr ? nullptr : m_parts->transmitter.waveform();
}

ggvector<std::uint8_t> GGWave::txTones() const {
    return m_parts == nullptr ? ggvector<std::uint8_t>{} : m_parts->transmitter.tones();
}

bool GGWave::txHasData() const { return m_parts != nullptr && m_parts->transmitter.hasData(); }

bool GGWave::txTakeAmplitudeI16(ggvector<short>& dst) {
    return m_parts != nullptr && m_parts->transmitter.takeAmplitudeI16(dst);
}

// Receiving

bool GGWave::decode(const void* data, unsigned int nBytes) {
    if ((m_parameters.operatingMode & GGWAVE_OPERATING_MODE_RX) == 0) {
        logLine("%s", kRxDisabled);
        return false;
    }
    if (m_parts == nullptr) {
        logLine("%s", kNoBlock);
        return false;
    }
    const char* obstacle = m_parts->capture.obstacle();
    if (!Spectrum::canTransform(samplesPerFrame()))
        obstacle = "Error: receiving needs a power of two from 2 on as samples per frame\n";
    if (m_parts->transmitter.hasData()) obstacle = "Cannot decode while transmitting\n";
    if (obstacle != nullptr) {
        logLine("%s", obstacle);
        return false;
    }
    if (nBytes == 0) return true;
    if (data == nullptr) {
        logLine("Error: no samples given for %u bytes\n", nBytes);
        return false;
    }
    if (!m_parts->capture.canConvert()) {
        logLine("Error: cannot convert %g Hz to %g Hz while receiving - use closer sample rates\n",
                static_cast<double>(m_parameters.sampleRateInp),
                static_cast<double>(m_parameters.sampleRate));
        return false;
    }
    auto& [settings, resampler, coding, spectrum, capture, fixed, message, transmitter, reception] = *m_parts;
    std::span captured(static_cast<const std::uint8_t*>(data), nBytes);
    while (capture.fill(captured, message.isReceiving())) {
        if (settings.isFixedLength) {
            fixed.hear(spectrum.analyse(capture.frame()), m_rxProtocols, reception);
        } else {
            message.hear(capture.frame(), m_rxProtocols, reception);
        }
        capture.next();
    }
    return true;
}

bool GGWave::rxReceiving() const { return m_parts != nullptr && m_parts->messageReceiver.isReceiving(); }
bool GGWave::rxAnalyzing() const { return m_parts != nullptr && m_parts->messageReceiver.isAnalyzing(); }
int GGWave::rxSamplesNeeded() const {
    return m_parts == nullptr ? m_parameters.samplesPerFrame : m_parts->capture.samplesNeeded();
}
int GGWave::rxFramesToRecord() const {
    return m_parts == nullptr ? 0 : m_parts->messageReceiver.framesToRecord();
}
int GGWave::rxFramesLeftToRecord() const {
    return m_parts == nullptr ? 0 : m_parts->messageReceiver.framesLeftToRecord();
}
int GGWave::rxFramesToAnalyze() const {
    return m_parts == nullptr ? 0 : m_parts->messageReceiver.framesToAnalyze();
}
int GGWave::rxFramesLeftToAnalyze() const {
    return m_parts == nullptr ? 0 : m_parts->messageReceiver.framesLeftToAnalyze();
}

bool GGWave::rxStopReceiving() { return m_parts != nullptr && m_parts->messageReceiver.stopReceiving(); }

int GGWave::rxDataLength() const { return m_parts == nullptr ? 0 : m_parts->reception.length; }
ggvector<std::uint8_t> GGWave::rxData() const {
    return m_parts == nullptr ? ggvector<std::uint8_t>{} : m_parts->reception.data;
}
const GGWave::Protocol& GGWave::rxProtocol() const {
    static constexpr Protocol kNone;
    return m_parts == nullptr ? kNone : m_parts->reception.protocol;
}
ggwave_ProtocolId GGWave::rxProtocolId() const {
    return m_parts == nullptr ? GGWAVE_PROTOCOL_COUNT : m_parts->reception.protocolId;
}
ggvector<float> GGWave::rxSpectrum() const {
    return m_parts == nullptr ? ggvector<float>{} : m_parts->spectrum.power();
}
ggvector<float> GGWave::rxAmplitude() const {
    return m_parts == nullptr ? ggvector<float>{} : m_parts->capture.amplitude();
}

int GGWave::rxTakeData(ggvector<std::uint8_t>& dst) {
    const int length = rxDataLength();
    if (length != 0) m_parts->reception.length = 0;
    if (length > 0) dst = {m_parts->reception.data.data(), length};
    return length;
}

bool GGWave::rxTakeSpectrum(ggvector<float>& dst) {
    if (m_parts == nullptr || !m_parts->spectrum.takeNews()) return false;
    dst = m_parts->spectrum.power();
    return true;
}

bool GGWave::rxTakeAmplitude(ggvector<float>& dst) {
    if (m_parts == nullptr || !m_parts->capture.takeNews()) return false;
    dst = m_parts->capture.amplitude();
    return true;
}

// Queries over a table

int GGWave::minFreqStart(const Protocols& protocols) const {
    return sorvel::modem::minFreqStart(protocols, samplesPerFrame());
}

int GGWave::minBytesPerTx(const Protocols& protocols) const {
    return sorvel::modem::minBytesPerTx(protocols);
}

int GGWave::maxBytesPerTx(const Protocols& protocols) const {
    return sorvel::modem::maxBytesPerTx(protocols);
}

int GGWave::maxFramesPerTx(const Protocols& protocols, bool excludeMT) const {
    return sorvel::modem::maxFramesPerTx(protocols, excludeMT);
}

int GGWave::maxTonesPerTx(const Protocols& protocols) const {
    return sorvel::modem::maxTonesPerTx(protocols);
}

float GGWave::bitFreq(const Protocol& protocol, int bit) const {
    return sorvel::modem::bitFreq(protocol, bit, m_hzPerSample);
}

// Spectrum tools

bool GGWave::computeFFTR(const float* src, float* dst, int N) {
    if (N != samplesPerFrame()) {
        logLine("computeFFTR: N (%d) must be equal to 'samplesPerFrame' %d\n", N, samplesPerFrame());
        return false;
    }
    if (m_parts == nullptr || !m_parts->settings.canReceive) {
        logLine("%s", m_parts == nullptr ? kNoBlock : kRxDisabled);
        return false;
    }
    if (!Spectrum::canTransform(N)) {
        logLine("computeFFTR: N (%d) must be a power of two from 2 on\n", N);
        return false;
    }
    std::copy_n(src, N, dst);
    return m_parts->spectrum.transform(dst);
}
