#include "modem/protocols.hpp"

#include <cmath>

namespace {

bool isRow(ggwave_ProtocolId id) { return id >= 0 && id < GGWAVE_PROTOCOL_COUNT; }

/// The largest `value` of an enabled row, or `start`.
template <class Value>
int largest(const GGWave::Protocols& protocols, int start, Value value) {
    for (const GGWave::Protocol& row : protocols) {
        if (row.enabled) start = std::max(start, value(row));
    }
    return start;
}

} // namespace

GGWave::Protocols& GGWave::Protocols::kDefault() {
    // Made by whoever comes first: instances may be made on several threads at a time.
    static Protocols table = [] {
        Protocols made;
        made[GGWAVE_PROTOCOL_DT_CUSTOM] = {.name = "[s] dt custom",
                                           .freqStart = 384,
                                           .framesPerTx = 9,
                                           .bytesPerTx = 1,
                                           .extra = 1,
                                           .enabled = true};
        return made;
    }();
    return table;
}

GGWave::Protocols& GGWave::Protocols::rx() {
    static Protocols table = kDefault();
    return table;
}

GGWave::Protocols& GGWave::Protocols::tx() {
    static Protocols table = kDefault();
    return table;
}

void GGWave::Protocols::enableAll() {
    for (Protocol& row : *this) {
        if (row.name != nullptr) row.enabled = true;
    }
}

void GGWave::Protocols::disableAll() {
    for (Protocol& row : *this) row.enabled = false;
}

void GGWave::Protocols::only(ggwave_ProtocolId id) {
    disableAll();
    toggle(id, true);
}

void GGWave::Protocols::toggle(ggwave_ProtocolId id, bool state) {
    if (isRow(id)) (*this)[static_cast<std::size_t>(id)].enabled = state;
}

namespace sorvel::modem {

int minFreqStart(const GGWave::Protocols& protocols, int samplesPerFrame) {
    int result = samplesPerFrame;
    for (const GGWave::Protocol& row : protocols) {
        if (row.enabled) result = std::min<int>(result, row.freqStart);
    }
    return result;
}

int minBytesPerTx(const GGWave::Protocols& protocols) {
    int result = 1;
    for (const GGWave::Protocol& row : protocols) {
        if (row.enabled) result = std::min<int>(result, row.bytesPerTx);
    }
    return result;
}

int maxBytesPerTx(const GGWave::Protocols& protocols) {
    return largest(protocols, 1, [](const GGWave::Protocol& row) { return int{row.bytesPerTx}; });
}

int maxFramesPerTx(const GGWave::Protocols& protocols, bool excludeMT) {
    return largest(protocols, 0, [excludeMT](const GGWave::Protocol& row) {
        return excludeMT && row.extra > 1 ? 0 : row.framesPerTx * row.extra;
    });
}

int maxTonesPerTx(const GGWave::Protocols& protocols) {
    return largest(protocols, 1, [](const GGWave::Protocol& row) {
        return row.extra == 0 ? 0 : 2 * row.bytesPerTx / row.extra;
    });
}

float bitFreq(const GGWave::Protocol& protocol, int bit, float hzPerBin) {
    // Fused, not a * b + c: every compiler and processor must give the same tone.
    return std::fma(hzPerBin, static_cast<float>(protocol.freqStart),
                    2.0F * hzPerBin * static_cast<float>(bit));
}

} // namespace sorvel::modem
