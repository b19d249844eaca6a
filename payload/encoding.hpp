#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The text of a transmission, packed into its 13 payload bytes: a check byte, then sixteen fields
/// of 6 bits.
///
///     char payload[encoding::kPayloadBytes];
///     compressString("acme_1234", payload);
///     std::string text = encoding::extractStrings(payload);   // "acme_1234"
///
/// | byte | content                                                                               |
/// |------|---------------------------------------------------------------------------------------|
/// | 0    | CRC-8 of the text's characters, without padding                                       |
/// | 1-12 | 96 bits, most significant bit first: the length (0-15), then 15 character codes       |
///
/// A character's code is its position in `kAlphabet`; places behind the text hold 0. A NUL is
/// carried too, as code 38. Codes 39 to 63 stand for nothing.
///
/// The check byte lets one in 256 damaged payloads pass and does not cover the
/// places behind the text.
///
/// Thread: all functions are free of state. Allocation: packing and unpacking need none of their
/// own, as a text of 15 characters fits into the string object of libstdc++ (a longer one is
/// allocated by the caller). Nothing is thrown.
namespace encoding {

/// What a text may consist of, in the order of the codes. Upper-case letters cannot be carried.
inline constexpr std::string_view kAlphabet = "0123456789abcdefghijklmnopqrstuvwxyz_ ";

inline constexpr size_t kMaxTextLength = 15; ///< characters
inline constexpr size_t kPayloadBytes = 13;

/// What `extractStrings` answers to a damaged payload. No text equals it, for
/// it has upper-case letters.
inline constexpr std::string_view kError = "ERROR";

/// The binary digits of `value`, most significant first, without leading zeros: empty for 0, those
/// of the magnitude for a negative value. Allocates above 15 digits.
std::string itob(int value);

/// CRC-8 with polynomial 0x31, initial value 0xFF, nothing reflected, no final XOR; 0xF7 for
/// "123456789". `data` may be null if the length is 0; the result is then 0xFF,
/// as a signed character.
signed char CRC8(const char* data, unsigned long length);

/// Unpacks the 13 bytes at `payload`. A length above 15 in the payload is taken as 15.
/// @return the text; "ERROR" if the check byte does not match or any field, used or not, has no character
std::string extractStrings(const char* payload);

} // namespace encoding

/// Packs `text` into the 13 bytes at `out`.
///
/// There is no result: a text of more than `encoding::kMaxTextLength` characters, or with a
/// character that is neither in `encoding::kAlphabet` nor NUL, leaves its CRC in out[0] and the
/// other bytes as they were. Check the text before.
void compressString(std::string text, char* out);
