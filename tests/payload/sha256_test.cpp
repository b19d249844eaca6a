#include "payload/SHA256.hpp"

#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

namespace {

/// How many more allocations without exceptions succeed; negative: all of them.
int allocationsLeft = -1;

} // namespace

// SHA256 takes its memory this way and no other code here does.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (allocationsLeft == 0) return nullptr;
    if (allocationsLeft > 0) --allocationsLeft;
    return std::malloc(size);
}
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void* operator new[](std::size_t size) {
    if (void* p = std::malloc(size)) return p;
    std::abort();
}

namespace {

std::string pattern(size_t length) {
    std::string text(length, ' ');
    for (size_t i = 0; i < length; ++i) text[i] = static_cast<char>('!' + i % 90);
    return text;
}

TEST(SHA256, GivesThePublishedDigests) {
    EXPECT_EQ(SHA256().hash(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(SHA256().hash("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(SHA256().hash("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(SHA256().hash(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

// The golden digests are those of coreutils:
//   python3 -c "print(''.join(chr(33 + i % 90) for i in range(N)), end='')" | sha256sum
// and the digest of the digests of all lengths below 131, joined, stands for the rest.
TEST(SHA256, PadsEveryLengthRight) {
    const SHA256 sha;
    EXPECT_EQ(sha.hash(pattern(55)), "c51a9ae2cfb2c450550c6690ec6fcf1c1e043cb8c9498d78cefe3e149a8a9c83");
    EXPECT_EQ(sha.hash(pattern(56)), "bc971d8627d350d4206bffc3688ca6652d869730a0029d23e45822924a4b17d1");
    EXPECT_EQ(sha.hash(pattern(64)), "a5fa26cbbe3fd95337ae19f425f9bab0793ff76c02f1c6e729e52fd59ebae155");
    std::string all;
    for (size_t length = 0; length <= 130; ++length) all += sha.hash(pattern(length));
    EXPECT_EQ(sha.hash(all), "b6687e4919f14e543e9b21be9ac71998eb3c9b6c1e464f15f7049c288d2d313d");
}

TEST(SHA256, EndsATextAtItsFirstNulAndReadsBytesAsUnsigned) {
    EXPECT_EQ(SHA256().hash(std::string("ab\0cd", 5)), SHA256().hash("ab"));
    EXPECT_EQ(SHA256().hash("\x80\xff"), "d87d01642f47a0d1901b1dfd2331c9def1bcfc69d8835c6cd911fe4165b804e4");
}

TEST(SHA256, OffersItsSteps) {
    const SHA256 sha;
    unsigned long blockCount = 99;
    unsigned int** blocks = sha.preprocess(nullptr, blockCount);
    ASSERT_NE(blocks, nullptr);
    ASSERT_EQ(blockCount, 1u);
    EXPECT_EQ(blocks[0][0], 0x80000000u);
    auto* words = new unsigned int[8];
    sha.process(blocks, blockCount, words);
    sha.freeBuffer(blocks, blockCount);
    EXPECT_EQ(sha.digest(words), sha.hash(""));
    unsigned int low = 1, high = 1;
    sha.appendLen(0x123456789ul, low, high);
    EXPECT_EQ(low, 0x23456789u);
    EXPECT_EQ(high, 0u);
}

// The leak checker of the address sanitizer watches what is given back.
TEST(SHA256, AnswersAnEmptyStringWhenMemoryRunsOut) {
    const SHA256 sha;
    for (int left = 0; left < 5; ++left) { // the result, the pointers, three blocks
        allocationsLeft = left;
        const std::string digest = sha.hash(pattern(150));
        allocationsLeft = -1;
        EXPECT_EQ(digest, "") << left;
    }
    EXPECT_EQ(sha.hash(pattern(150)).size(), 64u);
}

} // namespace
