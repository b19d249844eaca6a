#include "payload/encoding.hpp"
#include "tests/support/allocation_count.hpp"

#include <array>
#include <climits>
#include <gtest/gtest.h>
#include <random>

namespace {

using Payload = std::array<char, encoding::kPayloadBytes>;
constexpr unsigned kSeed = 31337;

Payload filled(char byte) {
    Payload payload;
    payload.fill(byte);
    return payload;
}

Payload packed(const std::string& text) {
    Payload payload = filled(0x55);
    compressString(text, payload.data());
    return payload;
}

std::string unpacked(Payload payload) { return encoding::extractStrings(payload.data()); }

std::string hex(const Payload& payload) {
    std::string text;
    for (const char c : payload) {
        const auto byte = static_cast<unsigned char>(c);
        text += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
    }
    return text;
}

/// Replaces field `index` (0: the length) by `value`.
Payload withField(Payload payload, size_t index, unsigned value) {
    for (size_t i = 0; i < 6; ++i) {
        const size_t bit = 8 + 6 * index + i;
        const auto mask = static_cast<unsigned char>(0x80u >> bit % 8);
        auto byte = static_cast<unsigned char>(payload[bit / 8]);
        byte = static_cast<unsigned char>(value >> (5 - i) & 1u ? byte | mask : byte & ~mask);
        payload[bit / 8] = static_cast<char>(byte);
    }
    return payload;
}

TEST(Encoding, WritesBinaryDigits) {
    EXPECT_EQ(encoding::itob(0), "");
    EXPECT_EQ(encoding::itob(1), "1");
    EXPECT_EQ(encoding::itob(37), "100101");
    EXPECT_EQ(encoding::itob(INT_MAX), std::string(31, '1'));
    EXPECT_EQ(encoding::itob(-5), "101");
    EXPECT_EQ(encoding::itob(INT_MIN), "1" + std::string(31, '0'));
}

TEST(Encoding, ComputesTheCheckByte) {
    EXPECT_EQ(static_cast<unsigned char>(encoding::CRC8("123456789", 9)), 0xF7);
    EXPECT_EQ(encoding::CRC8(nullptr, 0), -1);
}

TEST(Encoding, PacksTheKnownTexts) {
    EXPECT_EQ(hex(packed("hello")), "15151395558000000000000000");
    EXPECT_EQ(hex(packed("ab_12 x")), "dc1ca2e4042961000000000000");
    EXPECT_EQ(hex(packed("")), "ff000000000000000000000000");
    EXPECT_EQ(hex(packed("0")), "69040000000000000000000000");
    EXPECT_EQ(unpacked(filled(0)), "ERROR");
}

TEST(Encoding, BringsBackEveryTextOfTheAlphabetAndNul) {
    std::mt19937 random(kSeed);
    const std::string symbols = std::string(encoding::kAlphabet) + '\0';
    for (size_t trial = 0; trial < 4000; ++trial) {
        std::string text(trial % 16, '0');
        for (char& c : text) c = symbols[random() % symbols.size()];
        ASSERT_EQ(unpacked(packed(text)), text) << "seed " << kSeed << ", trial " << trial;
    }
}

TEST(Encoding, LeavesOnlyTheCheckByteOfATextThatCannotBeCarried) {
    for (const std::string text : {"0123456789abcdef", "Hello", "a-b", "\xC3\xA4", "caf\xE9"}) {
        Payload expected = filled(0x55);
        expected[0] = static_cast<char>(encoding::CRC8(text.data(), text.size()));
        EXPECT_EQ(hex(packed(text)), hex(expected)) << text;
    }
}

TEST(Encoding, NoticesAnySingleBitExceptBehindTheText) {
    for (const std::string text : {"acme_1234", "", "0123456789abcd"}) {
        const Payload sent = packed(text);
        for (size_t bit = 0; bit < 8 * sent.size(); ++bit) {
            Payload received = sent;
            received[bit / 8] = static_cast<char>(received[bit / 8] ^ (0x80 >> bit % 8));
            // A single bit in the zeros behind the text makes a code of 1 to 32,
            // which has a character.
            const bool behind = bit >= 8 + 6 * (1 + text.size());
            EXPECT_EQ(unpacked(received), behind ? text : "ERROR") << text << ", bit " << bit;
        }
    }
}

TEST(Encoding, RefusesCodesWithoutACharacterInAnyField) {
    const Payload sent = packed("acme");
    for (size_t field = 0; field < 16; ++field)
        for (unsigned code = 39; code < 64; ++code)
            EXPECT_EQ(unpacked(withField(sent, field, code)), "ERROR") << field << ": " << code;
}

TEST(Encoding, TakesALengthAboveFifteenAsFifteen) {
    const std::string text = "0123456789abcde";
    for (unsigned length = 16; length < 39; ++length)
        EXPECT_EQ(unpacked(withField(packed(text), 0, length)), text) << length;
}

TEST(Encoding, AllocatesNothing) {
    Payload payload{};
    size_t heard = 0;
    const AllocationCount count;
    for (int i = 0; i < 10; ++i) {
        compressString("0123456789abcde", payload.data());
        heard += encoding::extractStrings(payload.data()).size();
        payload[3] = static_cast<char>(payload[3] ^ 1);
        heard += encoding::extractStrings(payload.data()).size();
    }
    EXPECT_EQ(count.total(), 0u);
    EXPECT_EQ(heard, 10u * (15 + 5));
}

} // namespace
