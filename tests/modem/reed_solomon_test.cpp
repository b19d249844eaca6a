#include "modem/gf.hpp"
#include "modem/gf_transform.hpp"
#include "modem/rs.hpp"
#include "tests/support/slow_rs.hpp"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <set>

namespace {

using slow_rs::Word;
using Lengths = std::vector<size_t>;
namespace gf = RS::gf;

constexpr unsigned kSeed = 20240;
constexpr uint8_t kGuard = 0xA5;

/// A codec over a borrowed area that is dirty and lies between guard bytes.
class Guarded {
public:
    Guarded(size_t message, size_t parity)
        : m_area(kMargin + RS::ReedSolomon::workSize(message, parity) + kMargin, kGuard),
          m_codec(static_cast<uint8_t>(message), static_cast<uint8_t>(parity), m_area.data() + kMargin) {}

    Word encode(const Word& message) {
        Word word(message.size() + m_codec.ecc_length);
        m_codec.Encode(message.data(), word.data());
        return word;
    }

    /// The message, or nothing, in which case the destination was left alone.
    std::optional<Word> decode(const Word& word, const Word& erased = {}) {
        Word message(m_codec.msg_length, kGuard);
        const int result = m_codec.DecodeBlock(word.data(), word.data() + m_codec.msg_length, message.data(),
                                               erased.data(), erased.size());
        if (result == 0) return message;
        EXPECT_EQ(result, 1);
        EXPECT_EQ(message, Word(m_codec.msg_length, kGuard));
        return std::nullopt;
    }

    /// Whether nothing was written beside the area, even when every slot is zeroed as a whole.
    bool guardsHold() {
        for (RS::Poly& slot : m_codec.polynoms) slot.Reset();
        const auto isGuard = [](uint8_t b) { return b == kGuard; };
        return std::all_of(m_area.begin(), m_area.begin() + kMargin, isGuard) &&
               std::all_of(m_area.end() - kMargin, m_area.end(), isGuard);
    }

private:
    static constexpr std::ptrdiff_t kMargin = 600; // more than any slot reaches past the area
    Word m_area;
    RS::ReedSolomon m_codec;
};

class RandomBytes {
public:
    uint8_t byte() { return static_cast<uint8_t>(m_engine()); }
    uint8_t nonZero() { return static_cast<uint8_t>(m_engine() % 255 + 1); }
    Word word(size_t length) {
        Word word(length);
        for (uint8_t& b : word) b = byte();
        return word;
    }
    /// Distinct positions below `length`.
    Word positions(size_t length, size_t count) {
        Word all(length);
        std::iota(all.begin(), all.end(), uint8_t{0});
        std::shuffle(all.begin(), all.end(), m_engine);
        all.resize(count);
        return all;
    }
    Word damaged(Word word, const Word& where) {
        for (const uint8_t p : where) word[p] ^= nonZero();
        return word;
    }

private:
    std::mt19937 m_engine{kSeed};
};

size_t distance(const Word& a, const Word& b) {
    return std::inner_product(a.begin(), a.end(), b.begin(), size_t{0}, std::plus<>(), std::not_equal_to<>());
}

Word coefficients(const RS::Poly& p) { return Word(p.ptr(), p.ptr() + p.length); }

TEST(GaloisField, AgreesWithShiftAndXor) {
    for (unsigned i = 0; i < 512; ++i) EXPECT_EQ(gf::exp[i], slow_rs::power(2, i)) << i;
    EXPECT_EQ(gf::log[0], 0);
    for (unsigned x = 0; x < 256; ++x) {
        const auto a = static_cast<uint8_t>(x);
        for (unsigned y = 0; y < 256; ++y) {
            const auto b = static_cast<uint8_t>(y);
            ASSERT_EQ(gf::mul(a, b), slow_rs::mul(x, y)) << x << " * " << y;
            if (y == 0) continue;
            ASSERT_EQ(gf::div(gf::mul(a, b), b), a) << x << " / " << y;
        }
        if (x == 0) continue;
        EXPECT_EQ(gf::mul(a, gf::inverse(a)), 1) << x;
        EXPECT_EQ(gf::pow(a, 300), slow_rs::power(a, 300)) << x;
        EXPECT_EQ(gf::mul(gf::pow(a, -7), slow_rs::power(a, 7)), 1) << x;
    }
}

TEST(GaloisField, DividesAndMultipliesPolynomialsOfAnyLengths) {
    std::array<uint8_t, 1024> storage{};
    uint8_t* base = storage.data();
    std::array<RS::Poly, 4> slot;
    for (uint8_t i = 0; i < 4; ++i) slot[i].Init(i, static_cast<uint16_t>(255 * i), 255, &base);
    auto& [p, q, out, sum] = slot;
    p.Set(Word{1, 7, 9, 200, 3}.data(), 5);
    q.Set(Word{1, 5, 6}.data(), 3);
    gf::poly_mul(&p, &q, &out);
    ASSERT_EQ(out.length, 7);
    for (const uint8_t x : Word{0, 1, 2, 77})
        EXPECT_EQ(gf::poly_eval(&out, x), slow_rs::mul(gf::poly_eval(&p, x), gf::poly_eval(&q, x)));
    gf::poly_add(&out, &q, &sum);
    gf::poly_div(&sum, &q, &out);
    EXPECT_EQ(coefficients(out), (Word{0, 0})) << "a multiple of q leaves nothing";
    p.Append(17);
    gf::poly_div(&q, &p, &out);
    EXPECT_EQ(coefficients(out), (Word{1, 5, 6})) << "a longer divisor leaves everything";
    q.length = 0;
    gf::poly_mul(&p, &q, &out);
    EXPECT_EQ(out.length, 0);
    EXPECT_EQ(gf::poly_eval(&q, 3), 0);
}

TEST(GaloisField, HasTheValuesOfAPolynomialOfAnyLengthEverywhere) {
    RandomBytes random;
    for (size_t length = 0; length <= 256; length += length < 34 ? 1 : 37) {
        const Word p = random.word(length);
        const gf::Values values(p.data(), length);
        size_t roots = 0;
        for (unsigned x = 0; x < 256; ++x) {
            const auto element = static_cast<uint8_t>(x);
            ASSERT_EQ(values.at(element), slow_rs::valueAt(p, element)) << "length " << length << " at " << x;
            if (x != 0 && values.at(element) == 0) ++roots;
        }
        EXPECT_EQ(values.roots(), roots) << "length " << length;
    }
}

TEST(ReedSolomon, HasTheGeneratorWithTheRootsFromAlphaToTheZerothPower) {
    RS::ReedSolomon two(1, 2), many(1, 254);
    two.GeneratorPoly();
    many.GeneratorPoly();
    EXPECT_EQ(coefficients(two.polynoms[RS::ReedSolomon::kGenerator]), (Word{1, 3, 2}));
    EXPECT_EQ(coefficients(many.polynoms[RS::ReedSolomon::kGenerator]), slow_rs::generator(254));
}

TEST(ReedSolomon, CodesAndCorrectsEveryKindOfLengthWithinItsArea) {
    RandomBytes random;
    for (const size_t message : Lengths{0, 1, 2, 13, 127, 128, 140, 199, 254, 255}) {
        for (const size_t parity : Lengths{0, 1, 2, 3, 4, 55, 56, 127, 128, 200, 253, 254, 255}) {
            if (message + parity > 255) continue;
            SCOPED_TRACE(testing::Message() << message << " + " << parity);
            Guarded codec(message, parity);
            const Word text = random.word(message);
            const Word sent = slow_rs::encode(text, parity);
            EXPECT_EQ(codec.encode(text), sent);
            EXPECT_EQ(codec.encode(text), sent) << "with the generator of the first time";
            EXPECT_EQ(codec.decode(sent), text);
            const Word worst = random.damaged(sent, random.positions(sent.size(), parity / 2));
            EXPECT_EQ(codec.decode(worst), text);
            // An area of its own has the exact size, with the address sanitizer's guards right behind it.
            RS::ReedSolomon owner(static_cast<uint8_t>(message), static_cast<uint8_t>(parity));
            Word corrected(message);
            EXPECT_EQ(owner.DecodeBlock(worst.data(), worst.data() + message, corrected.data()), 0);
            EXPECT_EQ(corrected, text);
            codec.decode(random.word(sent.size())); // garbage must only stay inside the area
            EXPECT_TRUE(codec.guardsHold());
        }
    }
}

TEST(ReedSolomon, CorrectsAnyOneOrTwoBadBytesOfSeventeen) {
    RandomBytes random;
    Guarded codec(13, 4);
    const Word text = random.word(13);
    const Word sent = slow_rs::encode(text, 4);
    for (uint8_t a = 0; a < 17; ++a) {
        for (unsigned change = 1; change < 256; ++change) {
            Word word = sent;
            word[a] ^= static_cast<uint8_t>(change);
            ASSERT_EQ(codec.decode(word), text) << "byte " << +a << " changed by " << change;
        }
        for (uint8_t b = 0; b < a; ++b)
            for (int trial = 0; trial < 20; ++trial)
                ASSERT_EQ(codec.decode(random.damaged(sent, {a, b})), text)
                    << "bytes " << +a << " and " << +b;
    }
}

// Words near the code, as damage leaves them, and far from it, as noise does: both answers come up.
TEST(ReedSolomon, FindsTheCodeWordWithinTwoBytesOrNone) {
    RandomBytes random;
    Guarded codec(13, 4);
    int found = 0, none = 0;
    for (size_t trial = 0; trial < 1500; ++trial) {
        const Word sent = slow_rs::encode(random.word(13), 4);
        Word word = random.damaged(sent, random.positions(17, 1 + trial % 5));
        if (trial % 10 == 9) word = random.word(17);
        if (trial % 10 == 8)
            word.back() ^= slow_rs::valueAt(word, 1); // first syndrome 0: a gap in the recurrence
        const auto expected = slow_rs::nearestWithinTwo(word, 4);
        const auto decoded = codec.decode(word);
        ASSERT_EQ(decoded.has_value(), expected.has_value()) << "seed " << kSeed << ", trial " << trial;
        ++(expected ? found : none);
        if (!expected) continue;
        ASSERT_EQ(*decoded, Word(expected->begin(), expected->begin() + 13)) << "trial " << trial;
    }
    EXPECT_GT(found, 500);
    EXPECT_GT(none, 500);
}

// Words damaged just within what can be corrected, a little beyond, and mere noise; every
// other one with erasures.
TEST(ReedSolomon, CorrectsToTheLimitAndNeverAnswersAMessageBeyondIt) {
    RandomBytes random;
    size_t answers = 0, answersBesideErasures = 0;
    for (const auto& [message, parity] : {
             std::pair<size_t, size_t>{140, 56 },
              {1,   2  },
              {5,   3  },
              {13,  4  },
              {251, 4  },
              {250, 5  },
              {1,   254}
    }) {
        Guarded codec(message, parity);
        for (size_t trial = 0; trial < 40000 / (message + parity); ++trial) {
            SCOPED_TRACE(testing::Message()
                         << message << " + " << parity << ", seed " << kSeed << ", trial " << trial);
            const size_t length = message + parity;
            const size_t erasures = trial % 2 == 0 ? 0 : parity - trial / 2 % std::min<size_t>(parity + 1, 9);
            const size_t limit = (parity - erasures) / 2;
            const size_t errors = std::min(length - erasures, limit + trial / 8 % 4);
            const Word where = random.positions(length, erasures + errors);
            const Word erased(where.begin(), where.begin() + static_cast<std::ptrdiff_t>(erasures));
            const bool isNoise = trial % 8 < 4;
            const Word text = random.word(message);
            Word word = isNoise ? random.word(length) : random.damaged(slow_rs::encode(text, parity), where);
            for (const uint8_t p : erased) word[p] = 0;
            const auto decoded = codec.decode(word, erased);
            if (!isNoise && errors > 0 && errors <= limit) {
                ASSERT_EQ(decoded, text);
                continue;
            }
            if (!decoded) continue;
            Word answer = slow_rs::encode(*decoded, parity);
            for (const uint8_t p : erased) answer[p] = 0;
            ASSERT_LE(2 * distance(answer, word) + erasures, parity);
            ++(erasures == 0 ? answers : answersBesideErasures);
        }
        EXPECT_TRUE(codec.guardsHold());
    }
    EXPECT_GT(answers, 50);
    EXPECT_GT(answersBesideErasures, 50);
}

TEST(ReedSolomon, CorrectsErasuresBesideErrors) {
    RandomBytes random;
    for (const auto& [message, parity] : {
             std::pair<size_t, size_t>{13,  4  },
              {10,  9  },
              {100, 140}
    }) {
        Guarded codec(message, parity);
        RS::ReedSolomon steps(static_cast<uint8_t>(message), static_cast<uint8_t>(parity));
        const Word text = random.word(message);
        const Word sent = slow_rs::encode(text, parity);
        for (size_t errors = 1; 2 * errors <= parity; ++errors) {
            const size_t erasures = parity - 2 * errors;
            Word where = random.positions(sent.size(), errors + erasures);
            const Word wrong(where.begin(), where.begin() + static_cast<std::ptrdiff_t>(errors));
            const Word erased(where.begin() + static_cast<std::ptrdiff_t>(errors), where.end());
            Word word = random.damaged(sent, wrong);
            for (const uint8_t p : erased) word[p] = 0;
            ASSERT_EQ(codec.decode(word, erased), text) << errors << " errors, " << erasures << " erasures";

            // The same by the other way to the locator: from that of the erasures, with the plain syndromes.
            const auto slot = [&](RS::ReedSolomon::Slot id) { return &steps.polynoms[id]; };
            for (uint8_t& p : where) p = static_cast<uint8_t>(word.size() - 1 - p); // as coefficients
            slot(RS::ReedSolomon::kMessageIn)->Set(word.data(), word.size());
            steps.CalcSyndromes(slot(RS::ReedSolomon::kMessageIn));
            slot(RS::ReedSolomon::kTemp1)->Set(where.data() + errors, erasures);
            steps.FindErrataLocator(slot(RS::ReedSolomon::kTemp1));
            ASSERT_TRUE(steps.FindErrorLocator(slot(RS::ReedSolomon::kSyndromes),
                                               slot(RS::ReedSolomon::kErrataLocator), erasures));
            const RS::Poly* const locator = slot(RS::ReedSolomon::kLocator);
            ASSERT_EQ(locator->length, 1 + errors + erasures);
            for (const uint8_t p : where) ASSERT_EQ(gf::poly_eval(locator, gf::pow(2, -p)), 0);
        }
        EXPECT_TRUE(codec.guardsHold());
    }
}

TEST(ReedSolomon, AnswersFailureToImpossibleErasures) {
    Guarded codec(13, 4);
    const Word sent = slow_rs::encode(Word(13, 9), 4);
    Word damaged = sent;
    damaged[5] = 0;
    EXPECT_EQ(codec.decode(sent, {0, 1, 2, 3, 4}), std::nullopt) << "more than parity bytes";
    EXPECT_EQ(codec.decode(sent, {17}), std::nullopt) << "behind the word";
    EXPECT_EQ(codec.decode(damaged, {2, 2}), std::nullopt) << "twice the same";
    EXPECT_EQ(codec.decode(damaged, {5}), std::nullopt) << "no error beside the erasure";
    RS::ReedSolomon plain(13, 4);
    uint8_t out[13];
    EXPECT_EQ(plain.DecodeBlock(sent.data(), sent.data() + 13, out, nullptr, 1), 1) << "positions missing";
}

TEST(ReedSolomonDeathTest, NamesTheBrokenInvariant) {
    std::array<uint8_t, 8> bytes{};
    uint8_t* base = bytes.data();
    RS::Poly slot, nowhere;
    slot.Init(3, 0, 4, &base);
    EXPECT_DEATH(slot.at(4), "\\(i < _size\\), function at, file poly, line 63");
    EXPECT_DEATH(slot.Set(bytes.data(), 3, 2),
                 "\\(src && len <= this->_size-offset\\), function Set, file poly, line 50");
    EXPECT_DEATH(slot.Set(nullptr, 1), "function Set, file poly, line 50");
    slot.length = 4;
    EXPECT_DEATH(slot.Append(1), "\\(length < _size\\), function Append, file poly, line 26");
    EXPECT_DEATH(nowhere.ptr(), "\\(_memory && \\*_memory\\), function ptr, file poly, line 77");
    EXPECT_DEATH(gf::poly_mul(&slot, &slot, &slot), "function at, file poly, line 63");
    EXPECT_DEATH(gf::div(1, 0), "\\(y != 0\\), function div, file gf, line 118");

    const Word word(256);
    Word out(256);
    RS::ReedSolomon tooLong(200, 56), longest(199, 56);
    EXPECT_DEATH(tooLong.Encode(word.data(), out.data()),
                 "\\(msg_length \\+ ecc_length < 256\\), function EncodeBlock, file rs, line 87");
    EXPECT_DEATH(tooLong.DecodeBlock(word.data(), word.data(), out.data()),
                 "\\(msg_length \\+ ecc_length < 256\\), function DecodeBlock, file rs, line 157");
    longest.Encode(word.data(), out.data());
}

} // namespace
