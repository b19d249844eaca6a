#include "deep/decoder.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/nibble_energies.hpp"

#include <gtest/gtest.h>
#include <limits>

namespace {

using sorvel::deep::Scores;
using sorvel::deep::TextDecoder;
using sorvel::deep::Workspace;

float scoreOf(const Scores& scores, const std::string& text) {
    const auto word = codeWord(text);
    float sum = 0.0F;
    for (std::size_t nibble = 0; nibble < scores.size(); ++nibble)
        sum += scores[nibble][word[nibble / 2] >> 4 * (nibble % 2) & 0xFU];
    return sum;
}

/// All texts of `prefix` and at most two characters more.
std::vector<std::string> textsFrom(const std::string& prefix) {
    std::vector<std::string> texts{prefix};
    for (const char c : encoding::kAlphabet) {
        texts.push_back(prefix + c);
        for (const char d : encoding::kAlphabet) texts.push_back(prefix + c + d);
    }
    return texts;
}

TEST(WordSpace, AllowsEveryTextAndReadsItBack) {
    std::mt19937 generator(1);
    for (std::size_t length = 0; length <= 15; ++length) {
        const std::string text = randomText(generator, length);
        SCOPED_TRACE(text);
        const auto word = codeWord(text);
        const auto allowed = sorvel::deep::allowedNibbles(text.substr(0, length / 2), length);
        for (std::size_t nibble = 0; nibble < allowed.size(); ++nibble)
            EXPECT_TRUE(allowed[nibble] >> (word[nibble / 2] >> 4 * (nibble % 2) & 0xF) & 1) << nibble;
        std::array<char, 16> read{};
        EXPECT_TRUE(sorvel::deep::readText(word, length, read));
        EXPECT_EQ(read.data(), text);
        for (std::size_t bit = 0; bit < 8 * encoding::kPayloadBytes; ++bit) { // one wrong bit passes no check
            auto damaged = word;
            damaged[bit / 8] = static_cast<std::uint8_t>(damaged[bit / 8] ^ 1U << bit % 8);
            EXPECT_FALSE(sorvel::deep::readText(damaged, length, read)) << bit;
        }
    }
}

// Every word is one start with changes: the space of a hearing contains the code words and nothing else.
TEST(WordSpace, HoldsCodeWordsOnly) {
    std::mt19937 generator(2);
    const auto columns = sorvel::deep::parityColumns();
    sorvel::deep::WordSpace space;
    for (int trial = 0; trial < 50; ++trial) {
        const std::string text = randomText(generator, 12);
        const auto scores = noisyScores(codeWord(text), -14.0, generator);
        ASSERT_TRUE(space.build(scores, sorvel::deep::allowedNibbles(text.substr(0, 4), 12), columns));
        const auto& changes = space.changes();
        for (int word = 0; word < 20; ++word) {
            const std::array<std::uint8_t, 2> path{static_cast<std::uint8_t>(generator() % 40),
                                                   static_cast<std::uint8_t>(40 + generator() % 40)};
            const auto bytes =
                space.word(path, space.start() ^ changes[path[0]].mask ^ changes[path[1]].mask);
            auto encoded = bytes;
            RS::ReedSolomon(encoding::kPayloadBytes, 4).Encode(bytes.data(), encoded.data());
            EXPECT_EQ(bytes, encoded);
        }
    }
}

TEST(TextDecoder, FindsWhatTryingEveryTextFinds) {
    std::mt19937 generator(3);
    Workspace workspace;
    TextDecoder decoder(workspace);
    int found = 0;
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        const std::string prefix = randomText(generator, 13);
        const auto texts = textsFrom(prefix);
        // Half are of another prefix, so that nothing true is to be found and any text may be best.
        const std::string sent =
            trial % 2 == 0 ? texts[generator() % texts.size()] : randomText(generator, 15);
        const auto scores = noisyScores(codeWord(sent), -16.0 - trial % 4, generator);
        const auto margin = [&](const std::string& text) {
            return scoreOf(scores, text) - static_cast<float>(text.size() - 13) * std::log(38.0F);
        };
        const auto best = std::max_element(
            texts.begin(), texts.end(), [&](const auto& a, const auto& b) { return margin(a) < margin(b); });

        constexpr float kLeast = 3.0F;
        ASSERT_TRUE(decoder.prepare(prefix));
        decoder.begin(scores, TextDecoder::Among::kPrefixed, kLeast);
        while (!decoder.step(1000)) {
        }
        const auto word = decoder.best();
        ASSERT_EQ(word.has_value(), margin(*best) > kLeast) << *best << ' ' << margin(*best);
        if (!word) continue;
        ++found;
        EXPECT_EQ(word->text.data(), *best);
        EXPECT_EQ(word->bytes, codeWord(*best));
        EXPECT_NEAR(word->score, scoreOf(scores, *best), 1e-3);
        EXPECT_NEAR(word->margin, margin(*best), 1e-3);
    }
    EXPECT_GT(found, 100);
}

// Up to four nibbles whose right values are as unlikely as all others: the search alone would not get there.
TEST(TextDecoder, RepairsTwoBytesThatAreSurelyWrong) {
    Workspace workspace;
    TextDecoder decoder(workspace);
    std::mt19937 generator(4);
    for (int trial = 0; trial < 50; ++trial) {
        const std::string text = randomText(generator, 15);
        auto heard = codeWord(text);
        heard[generator() % 8] ^= 0x5A;
        heard[8 + generator() % 9] ^= 0xC3;
        Scores scores;
        for (std::size_t nibble = 0; nibble < scores.size(); ++nibble) {
            scores[nibble].fill(-6.0F);
            scores[nibble][heard[nibble / 2] >> 4 * (nibble % 2) & 0xFU] = 2.7F;
        }
        decoder.begin(scores, TextDecoder::Among::kRivals, -10.0F);
        while (!decoder.step(100000)) {
        }
        ASSERT_TRUE(decoder.best());
        EXPECT_EQ(decoder.best()->text.data(), text);
    }
}

TEST(TextDecoder, EndsOnAnyScoresWithoutAllocation) {
    std::mt19937 generator(5);
    Workspace workspace;
    TextDecoder decoder(workspace);
    ASSERT_TRUE(decoder.prepare("Ac"));
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(),
                         0.0F,
                         -0.0F,
                         3e38F,
                         2.7F};
    for (int trial = 0; trial < 40; ++trial) {
        Scores scores;
        for (auto& nibble : scores)
            for (float& score : nibble) score = trial < 7 ? odd[trial] : odd[generator() % 7];
        const AllocationCount count;
        for (const auto among :
             {TextDecoder::Among::kPrefixed, TextDecoder::Among::kAll, TextDecoder::Among::kRivals}) {
            decoder.begin(scores, among, trial % 2 == 0 ? -1e9F : 17.0F);
            int steps = 0;
            while (!decoder.step(10000) && steps < 1000) ++steps;
            EXPECT_LT(steps, 200);
        }
        EXPECT_EQ(count.total(), 0U);
    }
}

TEST(TextDecoder, TakesPrefixesOfTheAlphabetOnly) {
    Workspace workspace;
    TextDecoder decoder(workspace);
    EXPECT_TRUE(decoder.prepare("ACME_ 9"));
    EXPECT_TRUE(decoder.hasPrefix());
    for (const std::string_view wrong : {"a-b", "1234567890123456", "\xC3\xA4"}) {
        EXPECT_FALSE(decoder.prepare(wrong));
        EXPECT_FALSE(decoder.hasPrefix());
    }
    EXPECT_FALSE(decoder.prepare(std::string_view("a\0b", 3)));
}

} // namespace
