#pragma once

#include "deep/word_space.hpp"
#include "deep/workspace.hpp"
#include "modem/rs.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace sorvel::deep {

/// From what is known of 34 nibbles to the best text that explains it.
///
///     TextDecoder decoder(workspace);
///     decoder.prepare("acme");
///     decoder.begin(scores, TextDecoder::Among::kPrefixed, 20.0F);
///     while (!decoder.step(50000)) {}          // spread over blocks of sound
///     if (const auto word = decoder.best()) use(word->text);
///
/// Words of every length compete by their margin: score less ln 38 for each character that is not the
/// prefix's, as there are so many more texts to fall for. All lengths are searched together, in the order
/// of the most margin that a pattern of changes to the best hearing leaves (`WordSpace`), until no word
/// left could beat the best one or the least margin asked for, or until `kMostWords` were looked at. Each
/// length's hard decisions are corrected algebraically too, which finds two bytes that are surely wrong.
///
/// How certain the best word is, against all others that were searched for: those found have their scores;
/// those in patterns that were not looked at weigh as much as random words there do on average, that is the
/// share of the patterns' probability that is left, times e^score's mean over the words of a length. A search
/// goes on behind the best word until those left are 10 nats below it or its odds are 14 nats.
///
/// Time: some 5 ns a word, 20 us more for each length that can reach the margin; in noise none can.
/// Thread: one at a time per object. Allocates nothing. Any scores are safe: those beyond +-100 nats count
/// as that much, those that are not numbers as -100.
class TextDecoder {
public:
    struct Word {
        WordBytes bytes{};           ///< as sent, parity included
        std::array<char, 16> text{}; ///< zero-terminated
        std::size_t length = 0;      ///< characters
        float score = 0.0F;          ///< sum over the word, nats
        float free_score = 0.0F;     ///< beyond what any word of this prefix and length gets on average
        float margin = 0.0F;         ///< score less what length and prefix leave open
        float free_margin = 0.0F;    ///< free score, less the same
        float certainty = 0.0F;      ///< logarithm of the odds that no other text of the search was sent
    };

    enum class Among {
        kPrefixed, ///< texts with the prefix
        kAll,      ///< all texts
        kRivals    ///< all texts by their score alone; the first above the margin asked for ends the search
    };

    static constexpr int kMostWords = 1'200'000;

    /// @param workspace  lent for good; nobody else may begin there until a search's result is taken
    explicit TextDecoder(Workspace& workspace);
    TextDecoder(const TextDecoder&) = delete;
    TextDecoder& operator=(const TextDecoder&) = delete;

    /// Lower or upper case. False, and the texts without prefix, if it has more than 15 characters or one
    /// that no text can have.
    bool prepare(std::string_view prefix);
    bool hasPrefix() const { return m_prefixLength > 0; }

    /// Starts a search for a word with at least this margin; ends the one under way.
    void begin(const Scores& scores, Among among, float leastMargin, int mostWords = kMostWords);

    /// Goes on for some `words` words, up to 20,000 more. True: finished.
    bool step(int words);

    /// The best word so far.
    std::optional<Word> best() const;

    int looked() const { return m_looked; } ///< words since `begin`

private:
    static constexpr std::size_t kLengths = encoding::kMaxTextLength + 1;
    static constexpr std::size_t kDepth = 8; ///< changes to one word
    enum class Phase { kOpening, kSearching, kDone };

    /// A word with some changes, on the way to more of them.
    struct Node {
        std::uint64_t dependent = 0;
        std::uint64_t used = 0; ///< nibbles that are changed
        float cost = 0.0F;
        float weight = 1.0F;
        std::size_t next = 0; ///< change to be added next
    };

    /// Of the search under way, in the workspace.
    struct Work {
        std::array<WordSpace, kLengths> spaces{};
        /// Of the length that is looked at, by pair of dependent nibbles.
        std::array<std::array<float, 256>, WordSpace::kMaxDependent / 2> losses{};
    };

    const WordSpace& space(std::size_t length) const { return m_workspace.of<Work>().spaces[length]; }
    void open(std::size_t length);
    void correctHardDecisions(std::size_t length);
    bool startNextWindow();
    void look(const Node& node);
    bool goOn();
    void weigh(const WordBytes& word, std::size_t length);
    float penalty(std::size_t length) const;
    float bar() const; ///< margin that a word must exceed to matter
    float certainty() const;

    Workspace& m_workspace;
    ParityColumns m_columns;
    std::array<std::array<Allowed, kLengths>, 2> m_allowed{}; ///< with the prefix, without
    std::size_t m_prefixLength = 0;
    std::array<std::uint8_t, RS::ReedSolomon::workSize(encoding::kPayloadBytes, 4)> m_codeWork{};
    RS::ReedSolomon m_code{encoding::kPayloadBytes, 4, m_codeWork.data()};

    // Of the search under way
    Scores m_scores{};
    Among m_among = Among::kAll;
    float m_leastMargin = 0.0F;
    int m_mostWords = 0;
    int m_looked = 0;
    Phase m_phase = Phase::kDone;
    std::size_t m_firstLength = 0;
    std::size_t m_length = 0; ///< to be taken next
    std::array<bool, kLengths> m_isOpen{};
    float m_above = 0.0F; ///< margins from here up were searched in all lengths,
    float m_down = 0.0F;  ///< those down to here are now, length by length

    // Of one length: changes that cost more than m_low and at most m_high
    float m_low = 0.0F, m_high = 0.0F;
    bool m_isWalking = false;
    std::array<Node, kDepth> m_nodes{};
    std::array<std::uint8_t, kDepth> m_path{};
    std::size_t m_depth = 0;

    std::array<std::array<float, 16>, kNibbles> m_odds{}; ///< e^score
    std::array<float, kLengths> m_means{}; ///< of e^score over each length's words, as a logarithm
    std::array<double, kLengths> m_lookedWeight{};
    double m_others = 0.0; ///< sum of e^margin over texts that are not the best
    Word m_best{};
    bool m_hasBest = false;
};

} // namespace sorvel::deep
