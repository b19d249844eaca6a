#include "modem/fixed_receiver.hpp"

#include "modem/protocols.hpp"

namespace sorvel::modem {

namespace {

constexpr int kTonesPerNibble = 16;
constexpr double kNibblesNeeded = 0.75; // share of the nibbles that must have won their chunk

/// The power relative to `scale`, rounded half away from zero, 0 to 255. Not a number is silence.
std::uint8_t quantised(float power, float scale) {
    const float value = scale * power;
    if (!(value >= 0.5F)) return 0;
    // Exact for these values, and vectorised where lround is a call.
    // NOLINTNEXTLINE(bugprone-incorrect-roundings)
    return value >= 254.5F ? 255 : static_cast<std::uint8_t>(value + 0.5F);
}

/// Index of the largest of 16 bins from `base` on; of equal ones the last. Bins outside the row are silent.
int loudestTone(std::span<const std::uint8_t> row, int base) {
    int tone = 0;
    std::uint8_t most = 0;
    for (int t = 0; t < kTonesPerNibble; ++t) {
        const auto bin = static_cast<std::size_t>(base + t);
        const std::uint8_t level = bin < row.size() ? row[bin] : std::uint8_t{0};
        if (level >= most) {
            most = level;
            tone = t;
        }
    }
    return tone;
}

struct Span {
    int bytes;  // payload and parity
    int chunks; // steps of framesPerTx frames
    int frames;
};

Span spanOf(const GGWave::Protocol& protocol, int payloadLength) {
    const int bytes = payloadLength + eccBytes(payloadLength);
    const int chunks = protocol.extra * ((bytes + protocol.bytesPerTx - 1) / protocol.bytesPerTx);
    return {bytes, chunks, chunks * protocol.framesPerTx};
}

} // namespace

void FixedReceiver::place(Layout& layout, const GGWave::Protocols& protocols) {
    m_firstBin = minFreqStart(protocols, m_settings.samplesPerFrame);
    // One chunk carries at least one byte, so no transmission has more chunks than coded bytes.
    layout.place(m_history, std::int64_t{maxFramesPerTx(protocols, false)} * m_settings.codedBytes(),
                 m_settings.samplesPerFrame);
    layout.place(m_detectedBins, 2 * m_settings.codedBytes());
    layout.place(m_detectedTones, 32 * maxBytesPerTx(protocols));
}

void FixedReceiver::hear(std::span<const float> power, const GGWave::Protocols& protocols,
                         Reception& reception) {
    if (m_history.rows() == 0) return;
    remember(power);
    for (ggwave_ProtocolId id = 0; id < GGWAVE_PROTOCOL_COUNT; ++id) {
        const GGWave::Protocol& protocol = protocols[static_cast<std::size_t>(id)];
        if (!isSearchable(protocol) || !detectTones(protocol)) continue;

        const std::span<std::uint8_t> word = m_coding.word();
        for (int j = 0; j < m_settings.codedBytes(); ++j)
            word[static_cast<std::size_t>(j)] =
                static_cast<std::uint8_t>(m_detectedBins[2 * j] | m_detectedBins[2 * j + 1] << 4);
        if (!m_coding.decodePayload(m_settings.payloadLength, reception.data.span())) continue;
        reception.deliver(m_settings.payloadLength, protocols, id, m_settings.isSpread);
        return;
    }
}

/// Quantises a frame into the history.
void FixedReceiver::remember(std::span<const float> power) {
    float loudest = 0.0F;
    for (auto i = static_cast<std::size_t>(std::max(1, m_firstBin)); i < power.size() / 2; ++i) {
        if (power[i] > loudest) loudest = power[i];
    }
    const float scale = loudest == 0.0F ? 255.0F : 255.0F / loudest;
    ggvector<std::uint8_t> row = m_history[m_row];
    for (int i = 0; i < row.size(); ++i) row[i] = quantised(power[static_cast<std::size_t>(i)], scale);
    m_row = (m_row + 1) % m_history.rows();
}

/// Whether a row is one to search for, and within what the working block was laid out for: rows can be
/// changed in the instance's table after its preparation.
bool FixedReceiver::isSearchable(const GGWave::Protocol& protocol) const {
    if (!protocol.enabled || protocol.freqStart > m_settings.samplesPerFrame || protocol.freqStart < 0)
        return false;
    if (protocol.framesPerTx < 1 || protocol.bytesPerTx < 1 || protocol.extra < 1 || protocol.extra > 2)
        return false;
    return 32 * protocol.bytesPerTx <= m_detectedTones.size() &&
           spanOf(protocol, m_settings.payloadLength).frames <= m_history.rows();
}

/// Fills m_detectedBins with the nibbles, low before high, of a transmission that ends at the newest frame.
///
/// @return whether enough of them are clear
bool FixedReceiver::detectTones(const GGWave::Protocol& protocol) {
    const Span span = spanOf(protocol, m_settings.payloadLength);
    const int rows = m_history.rows();
    const int majority = protocol.framesPerTx / 2;
    int row = m_row - span.frames;
    if (row < 0) row += rows;

    m_detectedBins.zero();
    int detected = 0, total = 0;
    for (int chunk = 0; chunk < span.chunks; ++chunk) {
        const int firstByte = chunk / protocol.extra * protocol.bytesPerTx;
        const int bytes = std::min<int>(protocol.bytesPerTx, span.bytes - firstByte);
        if (chunk % protocol.extra == 0) m_detectedTones.zero(32 * protocol.bytesPerTx);
        for (int frame = 0; frame < protocol.framesPerTx; ++frame) {
            voteFrame(protocol, m_history[row].span(), chunk, bytes);
            if (++row == rows) row = 0;
        }
        if (protocol.extra > 1 && chunk % protocol.extra == 0) continue; // the high nibbles are still to come

        for (int b = 0; b < bytes; ++b) {
            for (int nibble = 0; nibble < 2; ++nibble) {
                const std::uint8_t* const votes = m_detectedTones.data() + 32 * b + kTonesPerNibble * nibble;
                for (int tone = 0; tone < kTonesPerNibble; ++tone) {
                    if (votes[tone] <= majority) continue;
                    m_detectedBins[2 * (firstByte + b) + nibble] = static_cast<std::uint8_t>(tone);
                    ++detected;
                }
            }
            total += 2;
        }
    }
    return total * kNibblesNeeded <= detected;
}

/// Adds one frame's loudest tones to the votes: both nibbles at once where tones sound together; otherwise
/// low nibbles in the first step of a byte and high ones in its last, from the same bins.
void FixedReceiver::voteFrame(const GGWave::Protocol& protocol, std::span<const std::uint8_t> row, int chunk,
                              int bytes) {
    const bool isLow = chunk % protocol.extra == 0;
    const bool isHigh = (chunk + 1) % protocol.extra == 0;
    for (int b = 0; b < bytes; ++b) {
        const int base = protocol.freqStart + 32 * b;
        const int low = loudestTone(row, base);
        const int high = protocol.extra == 1 ? loudestTone(row, base + kTonesPerNibble) : low;
        if (isLow) ++m_detectedTones[32 * b + low];
        if (isHigh) ++m_detectedTones[32 * b + kTonesPerNibble + high];
    }
}

} // namespace sorvel::modem
