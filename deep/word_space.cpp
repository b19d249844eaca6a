#include "deep/word_space.hpp"

#include "modem/rs.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

namespace sorvel::deep {

namespace {

constexpr std::size_t kFields = encoding::kMaxTextLength + 1; // the length, then the characters
constexpr std::size_t kFieldBits = 6;
constexpr std::size_t kParityBytes = kChunks - encoding::kPayloadBytes;
constexpr float kNever = -1.0e6F; // of a value that cannot be; sums of it stay finite

// Bit of the word (8 * byte + bit, bit 0 the lowest) where bit `bit` of a field lies; fields are packed
// highest bit first behind the check byte.
constexpr std::size_t wordBit(std::size_t field, std::size_t bit) {
    const std::size_t fromTop = kFieldBits * field + (kFieldBits - 1 - bit);
    return 8 * (1 + fromTop / 8) + 7 - fromTop % 8;
}

std::size_t fieldOf(const WordBytes& word, std::size_t field) {
    std::size_t value = 0;
    for (std::size_t bit = 0; bit < kFieldBits; ++bit) {
        const std::size_t at = wordBit(field, bit);
        value |= (word[at / 8] >> at % 8 & std::size_t{1}) << bit;
    }
    return value;
}

} // namespace

Allowed allowedNibbles(std::string_view prefix, std::size_t length) {
    Allowed allowed;
    allowed.fill(0xFFFF);
    // Each nibble of the fields holds bits of one field or two; a value may occur if each field's share of
    // it is part of a code the field may hold.
    for (std::size_t field = 0; field < kFields; ++field) {
        std::uint64_t codes = (std::uint64_t{1} << encoding::kAlphabet.size()) - 1;
        if (field == 0)
            codes = std::uint64_t{1} << length;
        else if (field <= prefix.size())
            codes = std::uint64_t{1} << encoding::kAlphabet.find(prefix[field - 1]);
        else if (field > length)
            codes = 1;
        for (std::size_t nibble = 2; nibble < 2 * encoding::kPayloadBytes; ++nibble) {
            std::size_t share = 0; // bits of the nibble that are this field's
            std::uint32_t seen = 0;
            for (std::size_t code = 0; code < 64; ++code) {
                if ((codes >> code & 1U) == 0) continue;
                std::size_t value = 0;
                for (std::size_t bit = 0; bit < kFieldBits; ++bit) {
                    const std::size_t at = wordBit(field, bit);
                    if (at / 4 != nibble) continue;
                    share |= std::size_t{1} << at % 4;
                    value |= (code >> bit & 1U) << at % 4;
                }
                seen |= 1U << value;
            }
            for (std::size_t value = 0; share != 0 && value < 16; ++value)
                if ((seen >> (value & share) & 1U) == 0)
                    allowed[nibble] = static_cast<std::uint16_t>(allowed[nibble] & ~(1U << value));
        }
    }
    return allowed;
}

bool readText(const WordBytes& word, std::size_t length, std::array<char, 16>& text) {
    if (fieldOf(word, 0) != length) return false;
    std::array<char, 16> read{};
    for (std::size_t i = 0; i < encoding::kMaxTextLength; ++i) {
        const std::size_t code = fieldOf(word, i + 1);
        if (i >= length ? code != 0 : code >= encoding::kAlphabet.size()) return false;
        if (i < length) read[i] = encoding::kAlphabet[code];
    }
    if (static_cast<std::uint8_t>(encoding::CRC8(read.data(), static_cast<unsigned long>(length))) != word[0])
        return false;
    text = read;
    return true;
}

ParityColumns parityColumns() {
    ParityColumns columns{};
    std::array<std::uint8_t, RS::ReedSolomon::workSize(encoding::kPayloadBytes, kParityBytes)> work{};
    RS::ReedSolomon code(encoding::kPayloadBytes, kParityBytes, work.data());
    for (std::size_t bit = 0; bit < columns.size(); ++bit) {
        WordBytes word{};
        word[bit / 8] = static_cast<std::uint8_t>(1U << bit % 8);
        if (bit < 8 * encoding::kPayloadBytes) code.Encode(word.data(), word.data());
        for (std::size_t i = 0; i < kParityBytes; ++i)
            columns[bit] |= std::uint32_t{word[encoding::kPayloadBytes + i]} << 8 * i;
    }
    return columns;
}

bool WordSpace::build(const Scores& scores, const Allowed& allowed, const ParityColumns& columns) {
    rank(scores, allowed);
    Solved solved{.columns = columns};
    if (!eliminate(solved)) return false;
    m_changeCount = 0;
    m_totalWeight = 1.0;
    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble)
        addChanges(nibble, scores, allowed[nibble], solved);
    std::sort(m_changes.begin(), m_changes.begin() + static_cast<std::ptrdiff_t>(m_changeCount),
              [](const Change& a, const Change& b) { return a.cost < b.cost; });

    m_start = 0;
    for (std::size_t bit = 0; bit < columns.size(); ++bit) {
        const bool isSet = (m_best[bit / 4] >> bit % 4 & 1) != 0;
        const bool isTied = (m_tied[bit / 4] >> bit % 4 & 1) != 0;
        if (isSet && !isTied) m_start ^= maskOf(bit, solved);
    }
    return true;
}

/// The best allowed value of every nibble, the bits left open, and how far the next value is behind.
void WordSpace::rank(const Scores& scores, const Allowed& allowed) {
    std::array<float, kNibbles> lead{};
    m_most = 0.0F;
    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble) {
        const auto& score = scores[nibble];
        unsigned best = 16;
        unsigned second = 16;
        unsigned ever = 0;
        unsigned always = 0xF;
        for (unsigned value = 0; value < 16; ++value) {
            if ((allowed[nibble] >> value & 1U) == 0) continue;
            ever |= value;
            always &= value;
            if (best == 16 || score[value] > score[best]) {
                second = best;
                best = value;
            } else if (second == 16 || score[value] > score[second]) {
                second = value;
            }
        }
        m_best[nibble] = static_cast<std::uint8_t>(best);
        m_open[nibble] = static_cast<std::uint8_t>(ever & ~always);
        m_most += score[best];
        lead[nibble] = second == 16 ? -kNever : score[best] - score[second];
    }
    std::iota(m_order.begin(), m_order.end(), std::uint8_t{0});
    std::sort(m_order.begin(), m_order.end(), [&](std::uint8_t a, std::uint8_t b) {
        return lead[a] < lead[b] || (lead[a] == lead[b] && a > b);
    });
}

/// Makes 32 bits the dependent ones, each with a sum of its own that no other of them takes part in.
bool WordSpace::eliminate(Solved& solved) {
    m_tied.fill(0);
    m_slot.fill(-1);
    m_dependentCount = 0;
    std::uint32_t unused = ~0U;
    for (std::size_t i = 0; i < kNibbles && unused != 0; ++i) {
        const std::size_t nibble = m_order[i];
        for (std::size_t inNibble = 0; inNibble < 4; ++inNibble) {
            const std::size_t bit = 4 * nibble + inNibble;
            const std::uint32_t candidates = solved.columns[bit] & unused;
            if ((m_open[nibble] >> inNibble & 1) == 0 || candidates == 0) continue;
            const std::uint32_t sum = candidates & (~candidates + 1);
            const std::uint32_t others = solved.columns[bit] & ~sum;
            for (std::uint32_t& column : solved.columns)
                if ((column & sum) != 0) column ^= others;
            unused &= ~sum;
            solved.pivotBit[static_cast<std::size_t>(std::countr_zero(sum))] = static_cast<std::uint8_t>(bit);
            m_tied[nibble] = static_cast<std::uint8_t>(m_tied[nibble] | 1U << inNibble);
        }
        if (m_tied[nibble] == 0) continue;
        if (m_dependentCount == kMaxDependent) return false;
        m_slot[nibble] = static_cast<std::int8_t>(m_dependentCount);
        m_dependent[m_dependentCount++] = static_cast<std::uint8_t>(nibble);
    }
    return unused == 0;
}

/// What a bit that is not dependent does to the dependent nibbles; its own may be one of them.
std::uint64_t WordSpace::maskOf(std::size_t bit, const Solved& solved) const {
    std::uint64_t mask = 0;
    const auto add = [&](std::size_t at) {
        mask ^= std::uint64_t{1} << (4 * static_cast<std::size_t>(m_slot[at / 4]) + at % 4);
    };
    for (std::uint32_t sums = solved.columns[bit]; sums != 0; sums &= sums - 1)
        add(solved.pivotBit[static_cast<std::size_t>(std::countr_zero(sums))]);
    if (m_slot[bit / 4] >= 0) add(bit);
    return mask;
}

/// The changes of a nibble's information, and the losses of its dependent part.
void WordSpace::addChanges(std::size_t nibble, const Scores& scores, std::uint16_t allowed,
                           const Solved& solved) {
    const unsigned information = m_open[nibble] & ~unsigned{m_tied[nibble]};
    std::array<float, 16> most{}; // by information: the best score it leaves
    most.fill(kNever);
    const unsigned best = m_best[nibble];
    std::array<float, 16> weights{};
    for (unsigned value = 0; value < 16; ++value) {
        if ((allowed >> value & 1U) == 0) continue;
        most[value & information] = std::max(most[value & information], scores[nibble][value]);
        weights[value & information] += std::exp(scores[nibble][value] - scores[nibble][best]);
    }
    const float bestWeight = weights[best & information];
    m_totalWeight *= static_cast<double>(std::accumulate(weights.begin(), weights.end(), 0.0F) / bestWeight);

    for (unsigned flip = 1; flip < 16; ++flip) {
        if ((flip & ~information) != 0) continue;
        const float left = most[(best ^ flip) & information];
        if (left == kNever) continue;
        Change change;
        change.cost = most[best & information] - left;
        change.weight = shortened(weights[(best ^ flip) & information] / bestWeight);
        change.nibble = static_cast<std::uint8_t>(nibble);
        change.flip = static_cast<std::uint8_t>(flip);
        for (std::size_t bit = 0; bit < 4; ++bit)
            if ((flip >> bit & 1U) != 0) change.mask ^= maskOf(4 * nibble + bit, solved);
        if (m_changeCount < kMaxChanges) {
            m_changes[m_changeCount++] = change;
            continue;
        }
        const auto dearest =
            std::max_element(m_changes.begin(), m_changes.end(),
                             [](const Change& a, const Change& b) { return a.cost < b.cost; });
        if (change.cost < dearest->cost) *dearest = change;
    }

    if (m_slot[nibble] < 0) return;
    auto& losses = m_losses[static_cast<std::size_t>(m_slot[nibble])];
    for (unsigned value = 0; value < 16; ++value)
        losses[value] =
            (allowed >> value & 1U) == 0 ? kNever : scores[nibble][value] - most[value & information];
}

void WordSpace::losses(std::size_t pair, std::span<float, 256> out) const {
    const auto& low = m_losses[2 * pair];
    const bool hasHigh = 2 * pair + 1 < m_dependentCount;
    for (std::size_t value = 0; value < 256; ++value)
        out[value] = low[value % 16] + (hasHigh ? m_losses[2 * pair + 1][value / 16] : 0.0F);
}

WordBytes WordSpace::word(std::span<const std::uint8_t> changes, std::uint64_t dependent) const {
    std::array<std::uint8_t, kNibbles> nibbles = m_best;
    for (const std::uint8_t change : changes) nibbles[m_changes[change].nibble] ^= m_changes[change].flip;
    for (std::size_t slot = 0; slot < m_dependentCount; ++slot)
        nibbles[m_dependent[slot]] = static_cast<std::uint8_t>(dependent >> 4 * slot & 0xFU);
    return joined(nibbles);
}

WordBytes WordSpace::joined(const std::array<std::uint8_t, kNibbles>& nibbles) {
    WordBytes word{};
    for (std::size_t i = 0; i < word.size(); ++i)
        word[i] = static_cast<std::uint8_t>(nibbles[2 * i] | nibbles[2 * i + 1] << 4);
    return word;
}

std::array<std::uint8_t, 6> WordSpace::leastSureBytes() const {
    std::array<std::uint8_t, 6> bytes{};
    std::size_t count = 0;
    for (std::size_t i = 0; i < kNibbles && count < bytes.size(); ++i) {
        const auto byte = static_cast<std::uint8_t>(m_order[i] / 2);
        const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(count);
        if (std::find(bytes.begin(), end, byte) == end) bytes[count++] = byte;
    }
    return bytes;
}

} // namespace sorvel::deep
