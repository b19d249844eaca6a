#include "modem/ggwave.h"
#include "modem/log.hpp"
#include "payload/encoding.hpp"

#include <cstdarg>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

// The log stream

namespace sorvel::detail {

std::FILE* logStream = stderr;

void logLine(const char* format, ...) {
    if (logStream == nullptr) return;
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(logStream, format, arguments);
    va_end(arguments);
}

} // namespace sorvel::detail

using sorvel::detail::logLine;

void GGWave::setLogFile(FILE* stream) { sorvel::detail::logStream = stream; }
void ggwave_setLogFile(FILE* stream) { GGWave::setLogFile(stream); }

// Ids and instances

namespace {

constexpr std::size_t kMaxInstances = 4;
std::array<GGWave*, kMaxInstances> instances{};

GGWave* find(int id) {
    return static_cast<unsigned>(id) < kMaxInstances ? instances[static_cast<std::size_t>(id)] : nullptr;
}

/// The instance of a call, or null after a line on the log stream.
GGWave* need(int id) {
    GGWave* const instance = find(id);
    if (instance == nullptr) logLine("Invalid GGWave instance %d\n", id);
    return instance;
}

void setFreqStart(GGWave::Protocols& table, ggwave_ProtocolId id, int freqStart) {
    if (id < 0 || id >= GGWAVE_PROTOCOL_COUNT) return;
    table[static_cast<std::size_t>(id)].freqStart = static_cast<std::int16_t>(freqStart);
}

bool feed(GGWave& instance, const void* waveform, int waveformSize) {
    if (waveformSize < 0) {
        logLine("Negative data size: %d\n", waveformSize);
        return false;
    }
    return instance.decode(waveform, static_cast<unsigned>(waveformSize));
}

} // namespace

// Protocols

void ggwave_rxToggleProtocol(ggwave_ProtocolId protocolId, int state) {
    GGWave::Protocols::rx().toggle(protocolId, state != 0);
}

void ggwave_txToggleProtocol(ggwave_ProtocolId protocolId, int state) {
    GGWave::Protocols::tx().toggle(protocolId, state != 0);
}

void ggwave_rxProtocolSetFreqStart(ggwave_ProtocolId protocolId, int freqStart) {
    setFreqStart(GGWave::Protocols::rx(), protocolId, freqStart);
}

void ggwave_txProtocolSetFreqStart(ggwave_ProtocolId protocolId, int freqStart) {
    setFreqStart(GGWave::Protocols::tx(), protocolId, freqStart);
}

// Instances

ggwave_Parameters ggwave_getDefaultParameters(void) { return GGWave::getDefaultParameters(); }

int ggwave_init(ggwave_Parameters parameters) {
    for (std::size_t id = 0; id < kMaxInstances; ++id) {
        if (instances[id] != nullptr) continue;
        instances[id] = new (std::nothrow) GGWave(parameters);
        if (instances[id] != nullptr) return static_cast<int>(id);
        logLine("Failed to create GGWave instance - out of memory\n");
        return -1;
    }
    logLine("Failed to create GGWave instance - reached maximum number of instances (%d)\n",
            static_cast<int>(kMaxInstances));
    return -1;
}

void ggwave_free(int id) {
    GGWave* const instance = find(id);
    if (instance == nullptr) {
        logLine("Failed to free GGWave instance - invalid GGWave instance id %d\n", id);
        return;
    }
    delete instance;
    instances[static_cast<std::size_t>(id)] = nullptr;
}

// Encoding and decoding

int ggwave_encode(int id, const void* payload, int payloadSize, ggwave_ProtocolId protocolId, int volume,
                  void* waveform, int query) {
    GGWave* const instance = need(id);
    if (instance == nullptr) return -1;
    if (!instance->init(payloadSize, payload, protocolId, volume)) {
        logLine("Failed to initialize Tx transmission for GGWave instance %d\n", id);
        return -1;
    }
    if (query != 0)
        return static_cast<int>(query == 1 ? instance->encodeSize_bytes() : instance->encodeSize_samples());

    const std::uint32_t bytes = instance->encode();
    const void* const encoded = instance->txWaveform();
    if (bytes == 0 || encoded == nullptr || waveform == nullptr) {
        logLine("Failed to encode data - GGWave instance %d\n", id);
        return -1;
    }
    std::memcpy(waveform, encoded, bytes);
    return static_cast<int>(bytes);
}

int ggwave_decode(int id, const void* waveform, int waveformSize, void* payloadBuffer, const char* prefix) {
    GGWave* const instance = need(id);
    if (instance == nullptr) return -1;
    if (!feed(*instance, waveform, waveformSize)) {
        logLine("Failed to decode data - GGWave instance %d\n", id);
        return -1;
    }
    ggvector<std::uint8_t> data;
    const int length = instance->rxTakeData(data);
    if (length < 1) return length;
    // An instance for shorter payloads has fewer bytes than a text is unpacked from; zeros stand
    // for the rest.
    std::array<char, encoding::kPayloadBytes> payload{};
    std::memcpy(payload.data(), data.data(), std::min(payload.size(), data.span().size()));
    const std::string text = encoding::extractStrings(payload.data());
    if (payloadBuffer == nullptr || prefix == nullptr) {
        logLine("Error: no %s given for the received text\n",
                prefix == nullptr ? "prefix" : "payload buffer");
        return -1;
    }
    if (!std::string_view(text).starts_with(prefix)) return -1;
    std::memcpy(payloadBuffer, text.data(), text.size());
    return static_cast<int>(text.size());
}

int ggwave_ndecode(int id, const void* waveform, int waveformSize, void* payloadBuffer,
                   int payloadBufferSize) {
    GGWave* const instance = need(id);
    if (instance == nullptr || !feed(*instance, waveform, waveformSize)) return -1;
    ggvector<std::uint8_t> data;
    const int length = instance->rxTakeData(data);
    if (length == 0) return payloadBufferSize < 0 ? -2 : 0;
    if (length < 0) return length;
    if (length > payloadBufferSize) return -2;
    if (payloadBuffer == nullptr) {
        logLine("Error: no payload buffer given for %d received bytes\n", length);
        return -1;
    }
    std::memcpy(payloadBuffer, data.data(), static_cast<std::size_t>(length));
    return length;
}
