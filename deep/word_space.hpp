#pragma once

#include "deep/band.hpp"
#include "deep/short_float.hpp"
#include "payload/encoding.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace sorvel::deep {

/// The coded bytes of a transmission: 13 of payload, 4 of parity.
using WordBytes = std::array<std::uint8_t, kChunks>;

/// By nibble, low before high: bit v is set where the value v may occur.
using Allowed = std::array<std::uint16_t, kNibbles>;

/// What the texts of one length that begin with `prefix` leave open, nibble by nibble. The check byte and
/// the parity may be anything.
Allowed allowedNibbles(std::string_view prefix, std::size_t length);

/// Whether the payload in `word` holds a text of this length: fields, padding and check byte. Parity is
/// not looked at. Copies the text to `text`, terminated.
bool readText(const WordBytes& word, std::size_t length, std::array<char, 16>& text);

/// The parity check of the code, bit by bit. Column 8 * byte + bit says which of 32 sums that bit of the
/// word takes part in; a word is a code word if all of them are even.
using ParityColumns = std::array<std::uint32_t, 8 * kChunks>;
ParityColumns parityColumns();

/// The code words around the best hearing of one length, each as changes to it.
///
/// The nibbles heard most surely become the information set, as many as the code leaves free; the other
/// some 8 to 10 follow from them ("dependent" below). Found by elimination from the least sure nibble on,
/// which makes the rest the surest basis (ordered statistics: M. Fossorier, S. Lin, "Soft-decision decoding
/// of linear block codes based on ordered statistics", 1995). Where only some bits of a nibble are
/// dependent, the others are information with a cost of their own, that of the best nibble they leave.
///
/// A word is the best one with some changes of information nibbles, at most one per nibble. Each change has
/// a cost in nats and a mask that turns the dependent nibbles.
class WordSpace {
public:
    struct Change {
        std::uint64_t mask = 0; ///< to the dependent nibbles, 4 bits each
        float cost = 0.0F;
        ShortFloat weight = 0;   ///< probability of what it changes to over that of the best
        std::uint8_t nibble = 0; ///< whose information changes
        std::uint8_t flip = 0;   ///< bits of it that change
    };

    static constexpr std::size_t kMaxChanges = 256; ///< dearer ones are left out
    static constexpr std::size_t kMaxDependent = 16;

    /// False where more nibbles are dependent than there is room for; such scores do not come from sound.
    bool build(const Scores& scores, const Allowed& allowed, const ParityColumns& columns);

    /// Cheapest first.
    std::span<const Change> changes() const { return {m_changes.data(), m_changeCount}; }
    std::uint64_t start() const { return m_start; } ///< dependent nibbles of the word without changes
    float most() const { return m_most; }           ///< no word scores higher, nats
    /// Weights of all patterns of changes together, the empty one's being 1.
    double totalWeight() const { return m_totalWeight; }
    /// Pairs of dependent nibbles.
    std::size_t pairs() const { return (m_dependentCount + 1) / 2; }

    /// What a pair's values take away from `most()`; a word's score is that, less all costs, plus these.
    void losses(std::size_t pair, std::span<float, 256> out) const;
    /// The same by single dependent nibble.
    std::span<const std::array<float, 16>> losses() const { return {m_losses.data(), m_dependentCount}; }

    /// The best allowed value of every nibble: hard decisions, no code word in general.
    WordBytes heard() const { return joined(m_best); }
    /// Positions of the bytes that hold the least sure nibbles, least sure first.
    std::array<std::uint8_t, 6> leastSureBytes() const;

    /// The word for these changes, with the dependent nibbles that come of them.
    WordBytes word(std::span<const std::uint8_t> changes, std::uint64_t dependent) const;

private:
    /// The parity check, once each of its 32 sums determines a bit of its own.
    struct Solved {
        ParityColumns columns{};
        std::array<std::uint8_t, 32> pivotBit{}; ///< by sum: the bit it determines
    };

    void rank(const Scores& scores, const Allowed& allowed);
    bool eliminate(Solved& solved);
    void addChanges(std::size_t nibble, const Scores& scores, std::uint16_t allowed, const Solved& solved);
    std::uint64_t maskOf(std::size_t bit, const Solved& solved) const;
    static WordBytes joined(const std::array<std::uint8_t, kNibbles>& nibbles);

    // By nibble
    std::array<std::uint8_t, kNibbles> m_best{};  // value with the highest score
    std::array<std::uint8_t, kNibbles> m_open{};  // bits that the structure leaves open
    std::array<std::uint8_t, kNibbles> m_tied{};  // bits that are dependent
    std::array<std::uint8_t, kNibbles> m_order{}; // least sure first
    std::array<std::int8_t, kNibbles> m_slot{};   // among the dependent nibbles, -1: none

    std::array<std::uint8_t, kMaxDependent> m_dependent{};
    std::array<std::array<float, 16>, kMaxDependent> m_losses{};
    std::size_t m_dependentCount = 0;

    std::array<Change, kMaxChanges> m_changes{};
    std::size_t m_changeCount = 0;
    std::uint64_t m_start = 0;
    float m_most = 0.0F;
    double m_totalWeight = 1.0;
};

} // namespace sorvel::deep
