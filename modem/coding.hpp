/// Payload <-> coded bytes of one transmission.
#pragma once

#include "modem/layout.hpp"

namespace sorvel::modem {

struct Settings;

/// Parity bytes that protect `length` payload bytes: 2 below 4, else twice a fifth of them, at
/// least 4.
constexpr int eccBytes(int length) { return length < 4 ? 2 : std::max(4, 2 * (length / 5)); }

/// The Reed-Solomon codes of an instance and the bytes they work on, shared by both directions.
///
/// A transmission is the payload and its parity; a message between markers has its length and that
/// byte's parity in front of them.
class Coding {
public:
    explicit Coding(const Settings& settings) : m_settings(settings) {}

    void placeWord(Layout& layout); ///< the coded bytes, first in the working block
    void placeWork(Layout& layout); ///< the codes' work areas, near its end

    /// The coded bytes: what `encode` leaves, and where a receiver puts together what it heard.
    std::span<std::uint8_t> word() const { return m_word.span(); }

    /// Fills the word from a payload with its length in front.
    void encode(std::span<const std::uint8_t> lengthAndPayload);

    /// Corrects the length in front of the word and puts it into `payload[0]`.
    ///
    /// @return the length as it was sent, any byte; -1 if it cannot be corrected
    int decodeLength(std::span<std::uint8_t> payload);

    /// Corrects a payload of `length` bytes. False: more is wrong than the code corrects.
    bool decodePayload(int length, std::span<std::uint8_t> payload);

private:
    const Settings& m_settings;
    ggvector<std::uint8_t> m_word, m_lengthWork, m_payloadWork;
};

} // namespace sorvel::modem
