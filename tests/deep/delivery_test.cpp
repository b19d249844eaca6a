#include "deep/delivery.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/nibble_energies.hpp"

#include <gtest/gtest.h>

namespace {

using sorvel::deep::Delivery;

std::string accepted(Delivery& delivery, const sorvel::deep::Scores& scores) {
    delivery.beginAttempt();
    EXPECT_TRUE(delivery.begin(scores));
    while (!delivery.step(20000)) {
    }
    const auto word = delivery.accepted();
    return word ? word->text.data() : "";
}

struct Case {
    const char* prefix;
    double snr_db;
};

class DeliveryInNoise : public testing::TestWithParam<Case> {};

// 1998 and 1994 of 2000 in bench/deep_words.
TEST_P(DeliveryInNoise, TakesTextsAndNoWrongOnes) {
    const auto [prefix, snr_db] = GetParam();
    std::mt19937 generator(6);
    sorvel::deep::Workspace workspace;
    Delivery delivery(prefix, workspace);
    std::size_t allocated = 0;
    int taken = 0;
    for (int trial = 0; trial < 200; ++trial) {
        const std::string text = prefix + randomText(generator, 15 - std::string_view(prefix).size());
        const auto scores = noisyScores(codeWord(text), snr_db, generator);
        const AllocationCount count;
        const std::string got = accepted(delivery, scores); // 15 characters fit into the string object
        allocated += count.total();
        EXPECT_TRUE(got.empty() || got == text) << got << " for " << text;
        taken += got == text ? 1 : 0;
    }
    EXPECT_GE(taken, 190);
    EXPECT_EQ(allocated, 0U);
}

INSTANTIATE_TEST_SUITE_P(WithPrefixAndWithout, DeliveryInNoise,
                         testing::Values(Case{"acme", -13.0}, Case{"", -12.5}));

TEST(Delivery, TakesNoTextOfAnotherPrefixAndNoNoise) {
    std::mt19937 generator(7);
    sorvel::deep::Workspace workspace; // one after the other
    Delivery delivery("acme", workspace);
    Delivery all("", workspace);
    for (int trial = 0; trial < 200; ++trial) {
        // One letter away from the prefix, so that most of the evidence speaks for it.
        const std::string text = "acmf" + randomText(generator, generator() % 12);
        EXPECT_EQ(accepted(delivery, noisyScores(codeWord(text), -14.0 + trial % 10, generator)), "") << text;
        const auto noise = noisyScores(codeWord(text), -60.0, generator);
        EXPECT_EQ(accepted(delivery, noise) + accepted(all, noise), "");
    }
}

TEST(Delivery, RefusesTheNinthDecodeOfAnAttempt) {
    std::mt19937 generator(8);
    sorvel::deep::Workspace workspace;
    Delivery delivery("", workspace);
    const auto scores = noisyScores(codeWord("hello"), -5.0, generator);
    delivery.beginAttempt();
    for (int decode = 0; decode < 8; ++decode) EXPECT_TRUE(delivery.begin(scores));
    EXPECT_FALSE(delivery.begin(scores));
    EXPECT_TRUE(delivery.step(1));
    EXPECT_FALSE(delivery.accepted());
    EXPECT_EQ(accepted(delivery, scores), "hello");
}

} // namespace
