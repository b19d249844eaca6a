#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

/// Reed-Solomon once more, slow and plain, to hold against the codec. Shares nothing with it: products by
/// shift-and-xor, parity by long division, decoding by trying every pair of positions.
namespace slow_rs {

using Word = std::vector<uint8_t>;

inline uint8_t mul(unsigned x, unsigned y) {
    unsigned product = 0;
    for (; y != 0; y >>= 1) {
        if (y & 1u) product ^= x;
        x = x & 0x80u ? (x << 1) ^ 0x11Du : x << 1;
    }
    return static_cast<uint8_t>(product);
}

inline uint8_t power(uint8_t x, size_t n) {
    uint8_t product = 1;
    while (n-- > 0) product = mul(product, x);
    return product;
}

inline uint8_t inverse(uint8_t x) { return power(x, 254); }

/// Highest degree first: the product of (x + 2^i) for i below `parity`.
inline Word generator(size_t parity) {
    Word g{1};
    for (size_t i = 0; i < parity; ++i) {
        const uint8_t root = power(2, i);
        Word next = g;
        next.push_back(0);
        for (size_t k = 0; k < g.size(); ++k) next[k + 1] ^= mul(g[k], root);
        g = next;
    }
    return g;
}

/// The message with its parity behind it.
inline Word encode(const Word& message, size_t parity) {
    const Word g = generator(parity);
    Word rest = message;
    rest.resize(message.size() + parity);
    for (size_t i = 0; i < message.size(); ++i)
        for (size_t k = g.size(); k-- > 0;) rest[i + k] ^= mul(g[k], k == 0 ? 0 : rest[i]);
    for (size_t i = 0; i < message.size(); ++i) rest[i] = message[i];
    return rest;
}

inline uint8_t valueAt(const Word& word, uint8_t x) {
    uint8_t y = 0;
    for (const uint8_t coefficient : word) y = mul(y, x) ^ coefficient;
    return y;
}

inline bool isCodeWord(const Word& word, size_t parity) {
    for (size_t i = 0; i < parity; ++i)
        if (valueAt(word, power(2, i)) != 0) return false;
    return true;
}

/// The code word within two bytes of `word`, if there is one; unique from 4 parity bytes on. For each pair of
/// positions the first two syndromes give the only possible changes, and the rest decides.
inline std::optional<Word> nearestWithinTwo(const Word& word, size_t parity) {
    if (isCodeWord(word, parity)) return word;
    const uint8_t s0 = valueAt(word, 1), s1 = valueAt(word, 2);
    for (size_t a = 0; a < word.size(); ++a) {
        for (size_t b = a + 1; b < word.size(); ++b) {
            const uint8_t xa = power(2, word.size() - 1 - a), xb = power(2, word.size() - 1 - b);
            const uint8_t ya = mul(s1 ^ mul(s0, xb), inverse(xa ^ xb));
            Word candidate = word;
            candidate[a] ^= ya;
            candidate[b] ^= s0 ^ ya;
            if (isCodeWord(candidate, parity)) return candidate;
        }
    }
    return std::nullopt;
}

} // namespace slow_rs
