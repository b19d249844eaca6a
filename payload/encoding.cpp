#include "payload/encoding.hpp"

#include <algorithm>
#include <array>
#include <cstdint>

namespace {

constexpr size_t kFields = encoding::kMaxTextLength + 1;

// The terminating NUL counts as a character: it is the one with code 38.
constexpr std::string_view kSymbols(encoding::kAlphabet.data(), encoding::kAlphabet.size() + 1);
static_assert(kSymbols.size() == 39 && kSymbols.back() == '\0');

} // namespace

std::string encoding::itob(int value) {
    auto magnitude = static_cast<unsigned>(value);
    if (value < 0) magnitude = 0u - magnitude;
    std::string digits;
    for (; magnitude != 0; magnitude /= 2) digits += magnitude % 2 != 0 ? '1' : '0';
    std::reverse(digits.begin(), digits.end());
    return digits;
}

signed char encoding::CRC8(const char* data, unsigned long length) {
    unsigned crc = 0xFF;
    for (unsigned long i = 0; i < length; ++i) {
        crc ^= static_cast<unsigned char>(data[i]);
        for (int bit = 0; bit < 8; ++bit) crc = crc & 0x80u ? (crc << 1 ^ 0x31u) & 0xFFu : crc << 1;
    }
    return static_cast<signed char>(crc);
}

// Four fields of 6 bits fill three bytes exactly, so both directions go by such groups.

void compressString(std::string text, char* out) {
    out[0] = static_cast<char>(encoding::CRC8(text.data(), static_cast<unsigned long>(text.size())));
    if (text.size() > encoding::kMaxTextLength) return;

    std::array<uint32_t, kFields> fields{};
    fields[0] = static_cast<uint32_t>(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const size_t code = kSymbols.find(text[i]);
        if (code == std::string_view::npos) return;
        fields[i + 1] = static_cast<uint32_t>(code);
    }
    for (size_t group = 0; group < kFields / 4; ++group) {
        const uint32_t* f = &fields[4 * group];
        const uint32_t bits = f[0] << 18 | f[1] << 12 | f[2] << 6 | f[3];
        for (unsigned i = 0; i < 3; ++i)
            out[1 + 3 * group + i] = static_cast<char>(bits >> (16 - 8 * i) & 0xFFu);
    }
}

std::string encoding::extractStrings(const char* payload) {
    std::array<char, kFields> decoded{};
    size_t length = 0;
    for (size_t group = 0; group < kFields / 4; ++group) {
        uint32_t bits = 0;
        for (size_t i = 0; i < 3; ++i)
            bits = bits << 8 | static_cast<unsigned char>(payload[1 + 3 * group + i]);
        for (size_t i = 0; i < 4; ++i) {
            const size_t code = bits >> (18 - 6 * i) & 0x3Fu;
            if (code >= kSymbols.size()) return std::string(kError);
            if (group == 0 && i == 0) length = std::min(code, kMaxTextLength);
            decoded[4 * group + i] = kSymbols[code];
        }
    }
    const char* text = decoded.data() + 1;
    const auto check = static_cast<signed char>(payload[0]);
    return CRC8(text, static_cast<unsigned long>(length)) == check ? std::string(text, length)
                                                                   : std::string(kError);
}
