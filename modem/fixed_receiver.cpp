#include "modem/fixed_receiver.hpp"

#include "modem/protocols.hpp"
#include "modem/target_clones.hpp"

namespace sorvel::modem {

namespace {

constexpr int kTonesPerNibble = 16;

/// The largest of the powers, 0 if none is above it; what is not a number does not count.
SORVEL_TARGET_CLONES float loudestPower(std::span<const float> power) {
    constexpr std::size_t kLanes = 16; // side by side, so that the comparisons do not wait for each other
    std::array<float, kLanes> most{};
    std::size_t i = 0;
    for (; i + kLanes <= power.size(); i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane)
            most[lane] = power[i + lane] > most[lane] ? power[i + lane] : most[lane];
    }
    for (; i < power.size(); ++i) most[0] = power[i] > most[0] ? power[i] : most[0];
    return *std::max_element(most.begin(), most.end());
}

/// Index of the largest of 16 bins from `base` on; of equal ones the last. Bins outside
/// the row are silent.
int loudestTone(std::span<const std::uint8_t> row, int base) {
    const auto first = static_cast<std::size_t>(base);
    int most = 0; // level and tone in one number, so that one comparison settles both
    if (first + kTonesPerNibble <= row.size()) {
        const std::uint8_t* const levels = row.data() + first;
        for (int tone = 0; tone < kTonesPerNibble; ++tone)
            most = std::max(most, levels[tone] * kTonesPerNibble + tone);
    } else {
        for (std::size_t tone = 0; tone < kTonesPerNibble; ++tone) {
            const int level = first + tone < row.size() ? row[first + tone] : 0;
            most = std::max(most, level * kTonesPerNibble + static_cast<int>(tone));
        }
    }
    return most % kTonesPerNibble;
}

struct Span {
    int bytes;  // payload and parity
    int frames; // of the whole transmission
};

Span spanOf(const GGWave::Protocol& protocol, int codedBytes) {
    const int groups = (codedBytes + protocol.bytesPerTx - 1) / protocol.bytesPerTx;
    return {codedBytes, protocol.extra * groups * protocol.framesPerTx};
}

} // namespace

SORVEL_TARGET_CLONES void quantise(std::span<const float> power, float scale, std::uint8_t* levels) {
    for (std::size_t i = 0; i < power.size(); ++i) {
        const float value = scale * power[i];
        const float audible = value >= 0.5F ? value + 0.5F : 0.0F; // rounds past no integer
        levels[i] = static_cast<std::uint8_t>(static_cast<int>(audible < 255.0F ? audible : 255.0F));
    }
}

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

/// Quantises a frame into the history. The upper half of a row stays silent, as the spectrum's is.
void FixedReceiver::remember(std::span<const float> power) {
    const std::span<const float> bins = power.first(power.size() / 2);
    const auto first = std::min(static_cast<std::size_t>(std::max(1, m_firstBin)), bins.size());
    const float loudest = loudestPower(bins.subspan(first));
    quantise(bins, loudest == 0.0F ? 255.0F : 255.0F / loudest, m_history[m_row].data());
    m_row = (m_row + 1) % m_history.rows();
}

/// Whether a row is one to search for, and within what the working block was laid out for: rows can
/// be changed in the instance's table after its preparation.
bool FixedReceiver::isSearchable(const GGWave::Protocol& protocol) const {
    if (!protocol.enabled || protocol.freqStart > m_settings.samplesPerFrame || protocol.freqStart < 0)
        return false;
    if (protocol.framesPerTx < 1 || protocol.bytesPerTx < 1 || protocol.extra < 1 || protocol.extra > 2)
        return false;
    return 32 * protocol.bytesPerTx <= m_detectedTones.size() &&
           spanOf(protocol, m_settings.codedBytes()).frames <= m_history.rows();
}

/// Fills m_detectedBins with the nibbles, low before high, of a transmission that ends at the
/// newest frame. Those that no tone won are 0.
///
/// @return whether at least three quarters of them are clear; settled as soon as too many are not, so that a
///         frame without a transmission costs little
bool FixedReceiver::detectTones(const GGWave::Protocol& protocol) {
    const Span span = spanOf(protocol, m_settings.codedBytes());
    const int start = m_row - span.frames + (m_row < span.frames ? m_history.rows() : 0);
    const bool areTonesTogether = protocol.extra == 1;

    m_detectedBins.zero();
    int missing = 0;
    for (int byte = 0; byte < span.bytes; ++byte) {
        const int frame = start + byte / protocol.bytesPerTx * protocol.extra * protocol.framesPerTx;
        const int base = protocol.freqStart + 32 * (byte % protocol.bytesPerTx);
        for (int nibble = 0; nibble < 2; ++nibble) {
            // Both sound at once in bands of their own, or one after the other in the same band.
            const int tone = areTonesTogether
                                 ? wonTone(frame, protocol.framesPerTx, base + kTonesPerNibble * nibble)
                                 : wonTone(frame + nibble * protocol.framesPerTx, protocol.framesPerTx, base);
            if (tone != kNoTone) {
                m_detectedBins[2 * byte + nibble] = static_cast<std::uint8_t>(tone);
            } else if (4 * ++missing > 2 * span.bytes) {
                return false;
            }
        }
    }
    return true;
}

/// The tone of 16 from bin `base` on that is the loudest in more than half of `frames` rows from
/// `first` on.
int FixedReceiver::wonTone(int first, int frames, int base) const {
    std::array<std::uint8_t, kTonesPerNibble> votes{};
    int row = first % m_history.rows();
    for (int i = 0; i < frames; ++i) {
        const int tone = loudestTone(m_history[row].span(), base);
        if (++votes[static_cast<std::size_t>(tone)] > frames / 2) return tone;
        if (++row == m_history.rows()) row = 0;
    }
    return kNoTone;
}

} // namespace sorvel::modem
