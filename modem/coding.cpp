#include "modem/coding.hpp"

#include "modem/rs.hpp"
#include "modem/settings.hpp"

int getECCBytesForLength(int length) { return sorvel::modem::eccBytes(length); }

namespace sorvel::modem {

namespace {

RS::ReedSolomon code(int length, int parity, ggvector<std::uint8_t> work) {
    return {static_cast<std::uint8_t>(length), static_cast<std::uint8_t>(parity), work.data()};
}

std::int64_t workSize(int length, int parity) {
    return static_cast<std::int64_t>(
        RS::ReedSolomon::workSize(static_cast<std::size_t>(length), static_cast<std::size_t>(parity)));
}

} // namespace

void Coding::placeWord(Layout& layout) {
    layout.place(m_word, m_settings.lengthBytes + m_settings.codedBytes());
}

void Coding::placeWork(Layout& layout) {
    if (!m_settings.isFixedLength) layout.place(m_lengthWork, workSize(1, m_settings.lengthBytes - 1));
    layout.place(m_payloadWork, workSize(m_settings.payloadLength, eccBytes(m_settings.payloadLength)));
}

void Coding::encode(std::span<const std::uint8_t> lengthAndPayload) {
    const int length = lengthAndPayload[0];
    m_word.zero();
    if (!m_settings.isFixedLength)
        code(1, m_settings.lengthBytes - 1, m_lengthWork).Encode(lengthAndPayload.data(), m_word.data());
    code(length, eccBytes(length), m_payloadWork)
        .Encode(lengthAndPayload.data() + 1, m_word.data() + m_settings.lengthBytes);
}

int Coding::decodeLength(std::span<std::uint8_t> payload) {
    RS::ReedSolomon lengthCode = code(1, m_settings.lengthBytes - 1, m_lengthWork);
    const bool isCorrected = lengthCode.DecodeBlock(m_word.data(), m_word.data() + 1, payload.data()) == 0;
    return isCorrected ? payload[0] : -1;
}

bool Coding::decodePayload(int length, std::span<std::uint8_t> payload) {
    const std::uint8_t* const received = m_word.data() + m_settings.lengthBytes;
    return code(length, eccBytes(length), m_payloadWork)
               .DecodeBlock(received, received + length, payload.data()) == 0;
}

} // namespace sorvel::modem
