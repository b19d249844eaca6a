#pragma once

#include "deep/decoder.hpp"

#include <array>
#include <optional>
#include <string_view>

namespace sorvel::deep::small {

/// What texts of every length leave open, with the prefix and without one.
class Texts {
public:
    /// As TextDecoder::prepare.
    bool prepare(std::string_view prefix) noexcept;
    std::size_t prefixLength() const noexcept { return m_prefixLength; }
    const Allowed& allowed(bool isPrefixed, std::size_t length) const noexcept {
        return m_allowed[isPrefixed ? 0 : 1][length];
    }

private:
    std::array<std::array<Allowed, encoding::kMaxTextLength + 1>, 2> m_allowed{};
    std::size_t m_prefixLength = 0;
};

/// From what is known of 34 nibbles to the best text that explains it, as TextDecoder, in 7 KiB: lengths
/// are looked at one at a time.
///
/// The length that may still hold the best word is searched until another one could hold a better word, and
/// for twice as long at least as its preparation took. Sums of odds are reckoned as float, the weight of
/// words that were not looked at is taken for no less than its error.
///
/// Thread: one at a time per object. Allocates nothing.
class Decoder {
public:
    using Word = TextDecoder::Word;
    using Among = TextDecoder::Among;

    explicit Decoder(const Texts& texts) : m_texts(texts) {}

    /// Starts a search for a word with at least this margin; ends the one under way.
    ///
    /// @param scores  numbers between -100 and 100 that stay the same until it has finished
    void begin(const Scores& scores, Among among, float leastMargin, int mostWords) noexcept;
    /// Goes on for some `words` words. True: finished.
    bool step(int words) noexcept;
    std::optional<Word> best() const noexcept; ///< so far
    int looked() const noexcept { return m_looked; }

private:
    static constexpr std::size_t kLengths = encoding::kMaxTextLength + 1;
    static constexpr std::size_t kDepth = 6; ///< changes to one word

    struct Node {
        std::uint64_t dependent = 0;
        std::uint64_t used = 0; ///< nibbles that are changed
        float cost = 0.0F;
        float weight = 1.0F;
        std::uint32_t next = 0; ///< change to be added next
    };

    const Allowed& allowed(std::size_t length) const noexcept {
        return m_texts.allowed(m_among == Among::kPrefixed, length);
    }
    void assess(std::size_t length) noexcept;
    std::size_t nextLength() const noexcept;
    bool build(std::size_t length) noexcept;
    void correctHardDecisions() noexcept;
    bool startNextWindow() noexcept;
    void look(const Node& node) noexcept;
    bool goOn() noexcept;
    void weigh(const WordBytes& bytes) noexcept;
    float penalty(std::size_t length) const noexcept;
    float bar() const noexcept;
    float certainty() const noexcept;

    const Texts& m_texts;
    const Scores* m_scores = nullptr;
    Among m_among = Among::kAll;
    float m_leastMargin = 0.0F;
    int m_mostWords = 0;
    int m_looked = 0;
    bool m_isDone = true;

    // By length
    std::array<float, kLengths> m_down{};        ///< margins from here up were searched
    std::array<float, kLengths> m_means{};       ///< of e^score over the words, as a logarithm
    std::array<float, kLengths> m_totalWeight{}; ///< 0: not looked at
    std::array<float, kLengths> m_lookedWeight{};

    // Of the length that is looked at
    std::size_t m_length = kLengths;
    int m_lookedBefore = 0;
    WordSpace m_space;
    float m_low = 0.0F, m_high = 0.0F;
    bool m_isWalking = false;
    std::array<Node, kDepth> m_nodes{};
    std::array<std::uint8_t, kDepth> m_path{};
    std::size_t m_depth = 0;

    Word m_best{};
    bool m_hasBest = false;
    float m_others = 0.0F; ///< sum of e^margin over other texts, over that of the best
};

} // namespace sorvel::deep::small
