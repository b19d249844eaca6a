#pragma once

#include <cstdint>
#include <string>

/// The SHA-256 digest of a text as 64 lower-case hexadecimal characters, for labels and comparisons.
///
///     SHA256().hash("abc")   // "ba7816bf...f20015ad"
///
/// For security (signatures, passwords, tokens) use a vetted library instead: this class ends a
/// text at its first NUL character, writes only 32 bits of the length (wrong from 512 MiB on),
/// wipes no memory and has had no review against side channels.
///
/// Algorithm: NIST, Secure Hash Standard, FIPS 180-4 (2015), sections 4.1.2, 4.2.2, 5.1.1, 5.3.3
/// and 6.2.
///
/// An object never changes: it hashes any number of texts, from any thread. Each hash allocates the
/// padded message in blocks of 64 bytes. When memory runs out, `hash` answers an empty string and
/// releases what it had; only the strings themselves may throw.
class SHA256 {
public:
    SHA256(); ///< fills in the constants

    /// The digest of `text` up to its first NUL. Does all of the steps below, in their order.
    std::string hash(std::string text) const;

    /// Pads a NUL-terminated text. Null counts as empty.
    /// @param blockCount  receives the number of blocks, 0 when memory ran out
    /// @return the blocks, each of 16 words, to be released by `freeBuffer`; null when memory ran out
    unsigned int** preprocess(const unsigned char* text, unsigned long& blockCount) const;

    /// Compresses the blocks into the 8 words at `hashOut`, whose former content does not matter.
    void process(unsigned int** blocks, unsigned long blockCount, unsigned int* hashOut) const;

    /// Releases what `preprocess` returned; null is allowed.
    void freeBuffer(unsigned int** blocks, unsigned long blockCount) const;

    /// Formats 8 words and releases them: `hash` must come from `new unsigned int[8]`. Null gives
    /// an empty string.
    std::string digest(unsigned int* hash) const;

    /// Splits a length in bits into two words. Only the low one is kept; `high` becomes 0.
    void appendLen(unsigned long length, unsigned int& low, unsigned int& high) const;

private:
    static constexpr uint64_t kBlockWords = 16;
    static constexpr uint64_t kResultWords = 8; // what `hash` allocates
    static constexpr uint64_t kHashWords = 8;
    static constexpr uint64_t kRounds = 64;
    static constexpr uint64_t kBlockBits = 512;
    static constexpr uint64_t kCharacterBits = 8;
    static constexpr uint64_t kDigestWords = 8; // what `digest` formats
    static constexpr uint64_t kWordBytes = 4;

    uint32_t m_initial[kHashWords];
    uint32_t m_round[kRounds];
};
