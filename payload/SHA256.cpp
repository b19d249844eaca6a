#include "payload/SHA256.hpp"

#include <array>
#include <bit>
#include <cstring>
#include <new>

static_assert(sizeof(unsigned int) == 4);

namespace {

uint32_t choose(uint32_t x, uint32_t y, uint32_t z) { return (x & y) ^ (~x & z); }
uint32_t majority(uint32_t x, uint32_t y, uint32_t z) { return (x & y) ^ (x & z) ^ (y & z); }
uint32_t bigSigma0(uint32_t x) { return std::rotr(x, 2) ^ std::rotr(x, 13) ^ std::rotr(x, 22); }
uint32_t bigSigma1(uint32_t x) { return std::rotr(x, 6) ^ std::rotr(x, 11) ^ std::rotr(x, 25); }
uint32_t smallSigma0(uint32_t x) { return std::rotr(x, 7) ^ std::rotr(x, 18) ^ x >> 3; }
uint32_t smallSigma1(uint32_t x) { return std::rotr(x, 17) ^ std::rotr(x, 19) ^ x >> 10; }

std::array<uint32_t, 64> messageSchedule(const unsigned int* block) {
    std::array<uint32_t, 64> w{};
    for (size_t t = 0; t < 16; ++t) w[t] = block[t];
    for (size_t t = 16; t < 64; ++t)
        w[t] = smallSigma1(w[t - 2]) + w[t - 7] + smallSigma0(w[t - 15]) + w[t - 16];
    return w;
}

} // namespace

SHA256::SHA256()
    : m_initial{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19},
      m_round{
          0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
          0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
          0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
          0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
          0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
          0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
          0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
          0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2} {}

std::string SHA256::hash(std::string text) const {
    auto* result = new (std::nothrow) unsigned int[kResultWords];
    if (!result) return {};
    unsigned long blockCount = 0;
    unsigned int** blocks = preprocess(reinterpret_cast<const unsigned char*>(text.data()), blockCount);
    if (!blocks) {
        delete[] result;
        return {};
    }
    process(blocks, blockCount, result);
    freeBuffer(blocks, blockCount);
    return digest(result);
}

unsigned int** SHA256::preprocess(const unsigned char* text, unsigned long& blockCount) const {
    const size_t length = text ? std::strlen(reinterpret_cast<const char*>(text)) : 0;
    const size_t blockBytes = kBlockBits / kCharacterBits;
    // The text, the byte 0x80 and 8 bytes of length, rounded up to whole blocks.
    const size_t count = (length + 8) / blockBytes + 1;
    blockCount = 0;
    auto** blocks = new (std::nothrow) unsigned int*[count];
    if (!blocks) return nullptr;
    for (size_t b = 0; b < count; ++b) {
        blocks[b] = new (std::nothrow) unsigned int[kBlockWords];
        if (!blocks[b]) {
            freeBuffer(blocks, static_cast<unsigned long>(b));
            return nullptr;
        }
        std::memset(blocks[b], 0, blockBytes);
    }
    for (size_t i = 0; i <= length; ++i) {
        const uint32_t byte = i < length ? text[i] : 0x80u;
        const size_t shift = kCharacterBits * (kWordBytes - 1 - i % kWordBytes);
        blocks[i / blockBytes][i % blockBytes / kWordBytes] |= byte << shift;
    }
    unsigned int* last = blocks[count - 1];
    appendLen(static_cast<unsigned long>(length * kCharacterBits), last[kBlockWords - 1],
              last[kBlockWords - 2]);
    blockCount = static_cast<unsigned long>(count);
    return blocks;
}

void SHA256::process(unsigned int** blocks, unsigned long blockCount, unsigned int* hashOut) const {
    for (size_t i = 0; i < kHashWords; ++i) hashOut[i] = m_initial[i];
    for (unsigned long block = 0; block < blockCount; ++block) {
        const auto w = messageSchedule(blocks[block]);
        std::array<uint32_t, 8> v{};
        for (size_t i = 0; i < v.size(); ++i) v[i] = hashOut[i];
        for (size_t t = 0; t < kRounds; ++t) {
            auto& [a, b, c, d, e, f, g, h] = v;
            const uint32_t t1 = h + bigSigma1(e) + choose(e, f, g) + m_round[t] + w[t];
            const uint32_t t2 = bigSigma0(a) + majority(a, b, c);
            v = {t1 + t2, a, b, c, d + t1, e, f, g};
        }
        for (size_t i = 0; i < v.size(); ++i) hashOut[i] += v[i];
    }
}

void SHA256::freeBuffer(unsigned int** blocks, unsigned long blockCount) const {
    if (!blocks) return;
    for (unsigned long b = 0; b < blockCount; ++b) delete[] blocks[b];
    delete[] blocks;
}

std::string SHA256::digest(unsigned int* hash) const {
    if (!hash) return {};
    constexpr const char* kDigits = "0123456789abcdef";
    std::array<char, 64> text{};
    for (size_t i = 0; i < kDigestWords; ++i)
        for (size_t k = 0; k < 8; ++k) text[8 * i + k] = kDigits[hash[i] >> (28 - 4 * k) & 0xFu];
    delete[] hash;
    return std::string(text.data(), text.size());
}

void SHA256::appendLen(unsigned long length, unsigned int& low, unsigned int& high) const {
    low = static_cast<unsigned int>(length & 0xFFFFFFFFul);
    high = 0;
}
