#include "deep/small_decoder.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace sorvel::deep::small {

namespace {

// As in TextDecoder, where they are told.
constexpr float kMostOdds = 80.0F; // nats, so that e to it is a float
constexpr float kWindow = 1.0F;
constexpr float kSurely = 14.0F;
constexpr float kBehind = 10.0F;
constexpr float kRounding = 0.01F;
constexpr int kWordsToOpen = 4000;
constexpr int kWordsToTurn = 6;
constexpr int kWordsToWeigh = 20;
constexpr std::size_t kSureNibbles = 8; // of the dependent ones, as 32 bits are dependent

constexpr int kLeastWords = 2 * kWordsToOpen; // between one preparation and the next
constexpr float kLeastLeft = 1e-5F;           // of the weight, as sums of floats are rounded
constexpr float kClosed = -std::numeric_limits<float>::max();
constexpr float kPerCharacter = 3.6375862F; // nats, ln 38

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

} // namespace

bool Texts::prepare(std::string_view prefix) noexcept {
    std::array<char, encoding::kMaxTextLength> own{};
    const bool isKnown = prefix.size() <= own.size() && std::all_of(prefix.begin(), prefix.end(), [](char c) {
                             return encoding::kAlphabet.find(lower(c)) != std::string_view::npos;
                         });
    m_prefixLength = isKnown ? prefix.size() : 0;
    for (std::size_t i = 0; i < m_prefixLength; ++i) own[i] = lower(prefix[i]);
    for (std::size_t length = 0; length <= encoding::kMaxTextLength; ++length) {
        m_allowed[0][length] = allowedNibbles({own.data(), std::min(m_prefixLength, length)}, length);
        m_allowed[1][length] = allowedNibbles({}, length);
    }
    return isKnown;
}

void Decoder::begin(const Scores& scores, Among among, float leastMargin, int mostWords) noexcept {
    m_scores = &scores;
    m_among = among;
    m_leastMargin = leastMargin;
    m_mostWords = mostWords;
    m_looked = 0;
    m_isDone = false;
    m_length = kLengths;
    m_isWalking = false;
    m_hasBest = false;
    m_others = 0.0F;
    m_totalWeight.fill(0.0F);
    m_lookedWeight.fill(0.0F);
    m_down.fill(kClosed);
    m_means.fill(kClosed);
    for (std::size_t length = among == Among::kPrefixed ? m_texts.prefixLength() : 0; length < kLengths;
         ++length)
        assess(length);
}

/// How good the best word of a length could be, and how good one is on average.
void Decoder::assess(std::size_t length) noexcept {
    float most = 0.0F;
    float mean = 0.0F;
    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble) {
        const std::uint16_t mask = allowed(length)[nibble];
        float best = kClosed;
        float sum = 0.0F;
        for (std::size_t value = 0; value < 16; ++value) {
            if ((mask >> value & 1U) == 0) continue;
            const float score = (*m_scores)[nibble][value];
            best = std::max(best, score);
            sum += std::exp(std::min(score, kMostOdds));
        }
        most += best;
        mean += std::log(sum / static_cast<float>(std::popcount(mask)));
    }
    m_down[length] = most - penalty(length);
    m_means[length] = mean;
}

std::optional<Decoder::Word> Decoder::best() const noexcept {
    if (!m_hasBest) return std::nullopt;
    Word word = m_best;
    word.certainty = certainty();
    return word;
}

float Decoder::penalty(std::size_t length) const noexcept {
    if (m_among == Among::kRivals) return 0.0F;
    const std::size_t known = m_among == Among::kPrefixed ? m_texts.prefixLength() : 0;
    return static_cast<float>(length - known) * kPerCharacter;
}

/// The margin that a word must exceed to matter.
float Decoder::bar() const noexcept {
    if (!m_hasBest) return m_leastMargin;
    return m_best.margin - (m_among == Among::kRivals ? 0.0F : kBehind);
}

float Decoder::certainty() const noexcept {
    float others = m_others;
    for (std::size_t length = 0; length < kLengths; ++length) {
        if (m_means[length] == kClosed) continue;
        const float total = m_totalWeight[length];
        const float left = total > 0.0F ? std::max(1.0F - m_lookedWeight[length] / total, kLeastLeft) : 1.0F;
        others += left * std::exp(std::min(m_means[length] - m_best.margin, kMostOdds));
    }
    return -std::log(others);
}

bool Decoder::step(int words) noexcept {
    const int until = m_looked + std::min(words, m_mostWords);
    while (!m_isDone && m_looked < until) {
        if (m_looked >= m_mostWords) {
            m_isDone = true;
        } else if (!m_isWalking) {
            if (!startNextWindow()) m_isDone = true;
        } else if (!goOn()) {
            m_isWalking = false;
        }
        if (m_among == Among::kRivals && m_hasBest) m_isDone = true;
    }
    return m_isDone;
}

/// The one that may hold the best word left.
std::size_t Decoder::nextLength() const noexcept {
    const auto best =
        static_cast<std::size_t>(std::max_element(m_down.begin(), m_down.end()) - m_down.begin());
    const bool isPaid = m_looked - m_lookedBefore >= kLeastWords;
    if (m_length < kLengths && m_down[m_length] > bar() && !isPaid) return m_length;
    return m_down[best] > bar() ? best : kLengths;
}

bool Decoder::build(std::size_t length) noexcept {
    m_length = length;
    m_lookedBefore = m_looked;
    m_looked += kWordsToOpen;
    if (!m_space.build(*m_scores, allowed(length), parityColumns())) {
        m_down[length] = kClosed;
        m_length = kLengths;
        return false;
    }
    if (m_totalWeight[length] > 0.0F) return true;
    m_totalWeight[length] = static_cast<float>(m_space.totalWeight());
    correctHardDecisions();
    return true;
}

/// Two wrong bytes anywhere, or one beside two of the least sure.
void Decoder::correctHardDecisions() noexcept {
    std::array<std::uint8_t, RS::ReedSolomon::workSize(encoding::kPayloadBytes, 4)> work{};
    RS::ReedSolomon code(encoding::kPayloadBytes, 4, work.data());
    const WordBytes heard = m_space.heard();
    const auto correct = [&](std::span<const std::uint8_t> erased) {
        WordBytes word = heard;
        for (const std::uint8_t at : erased) word[at] = 0;
        const std::uint8_t* const parity = word.data() + encoding::kPayloadBytes;
        WordBytes corrected{};
        if (code.DecodeBlock(word.data(), parity, corrected.data(), erased.data(), erased.size()) != 0)
            return;
        code.EncodeBlock(corrected.data(), corrected.data() + encoding::kPayloadBytes);
        weigh(corrected);
    };
    correct({});
    const auto unsure = m_space.leastSureBytes();
    for (std::size_t i = 0; i < unsure.size(); ++i)
        for (std::size_t k = i + 1; k < unsure.size(); ++k) correct(std::array{unsure[i], unsure[k]});
}

/// The next window of margins of the length that is at hand, or of a better one.
bool Decoder::startNextWindow() noexcept {
    for (;;) {
        if (m_hasBest && certainty() >= kSurely) return false;
        const std::size_t length = nextLength();
        if (length == kLengths) return false;
        if (length != m_length) {
            build(length); // may find the best word, or close the length
            continue;
        }
        const float most = m_space.most() - penalty(length);
        const float above = m_down[length];
        m_down[length] = std::max(above - kWindow, bar());
        m_low = most - above;
        m_high = most - m_down[length];
        m_nodes[0] = {m_space.start(), 0, 0.0F, 1.0F, 0};
        m_depth = 0;
        m_isWalking = true;
        // A window holds the cost it ends with, not the one it begins with; but no cost is below 0.
        if (m_lookedWeight[length] == 0.0F) {
            m_low = -1.0F;
            m_lookedWeight[length] = 1.0F;
            weigh(m_space.word({}, m_space.start()));
        }
        look(m_nodes[0]);
        return true;
    }
}

/// Looks at all words with one change more whose cost is in the window. The hot loop.
void Decoder::look(const Node& node) noexcept {
    const std::span<const WordSpace::Change> changes = m_space.changes();
    const auto costsMore = [](float cost, const WordSpace::Change& change) { return cost < change.cost; };
    const auto from =
        changes.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(node.next, changes.size()));
    const auto first = std::upper_bound(from, changes.end(), m_low - node.cost, costsMore);
    const auto last = std::upper_bound(first, changes.end(), m_high - node.cost, costsMore);
    m_looked += static_cast<int>(last - first) + kWordsToTurn;

    // What costs and losses may take away; sums rounded in another order may differ.
    const float spare = m_space.most() - node.cost - (bar() + penalty(m_length)) + kRounding;
    const auto losses = m_space.losses();
    float weight = 0.0F;
    for (auto change = first; change != last; ++change) {
        if ((node.used >> change->nibble & 1U) != 0) continue;
        weight += lengthened(change->weight);
        const std::uint64_t dependent = node.dependent ^ change->mask;
        float left = spare - change->cost;
        auto low = static_cast<std::uint32_t>(dependent);
        for (std::size_t slot = 0; slot < kSureNibbles; ++slot, low >>= 4U) left += losses[slot][low & 0xFU];
        if (left < 0.0F) continue;
        auto high = static_cast<std::uint32_t>(dependent >> 32U);
        for (std::size_t slot = kSureNibbles; slot < losses.size(); ++slot, high >>= 4U)
            left += losses[slot][high & 0xFU];
        if (left < 0.0F) continue;
        m_path[m_depth] = static_cast<std::uint8_t>(change - changes.begin());
        weigh(m_space.word({m_path.data(), m_depth + 1}, dependent));
        m_looked += kWordsToWeigh;
    }
    m_lookedWeight[m_length] += node.weight * weight;
}

/// To the next word with changes to which more can be added within the window. False: there is none.
bool Decoder::goOn() noexcept {
    const std::span<const WordSpace::Change> changes = m_space.changes();
    Node& node = m_nodes[m_depth];
    while (m_depth + 1 < kDepth && node.next + 1 < changes.size()) {
        const std::size_t at = node.next++;
        const WordSpace::Change& change = changes[at];
        const float cost = node.cost + change.cost;
        if (cost + changes[at + 1].cost > m_high) break;
        if ((node.used >> change.nibble & 1U) != 0) continue;
        m_path[m_depth] = static_cast<std::uint8_t>(at);
        Node& further = m_nodes[++m_depth];
        further = {node.dependent ^ change.mask, node.used | std::uint64_t{1} << change.nibble, cost,
                   node.weight * lengthened(change.weight), node.next};
        look(further);
        return true;
    }
    if (m_depth == 0) return false;
    --m_depth;
    return true;
}

/// Keeps the word if it is a text, of this length and prefix, and better than the best.
void Decoder::weigh(const WordBytes& bytes) noexcept {
    Word word;
    word.bytes = bytes;
    word.length = m_length;
    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble) {
        const unsigned value = bytes[nibble / 2] >> 4 * (nibble % 2) & 0xFU;
        if ((allowed(m_length)[nibble] >> value & 1U) == 0) return;
        word.score += (*m_scores)[nibble][value];
    }
    word.margin = word.score - penalty(m_length);
    if (!(word.margin > bar()) || !readText(bytes, m_length, word.text)) return;

    if (m_hasBest && word.margin <= m_best.margin) {
        if (bytes != m_best.bytes) m_others += std::exp(word.margin - m_best.margin);
        return;
    }
    if (m_hasBest) m_others = (m_others + 1.0F) * std::exp(m_best.margin - word.margin);
    word.free_score = word.score - m_means[m_length];
    word.free_margin = word.free_score - penalty(m_length);
    m_best = word;
    m_hasBest = true;
}

} // namespace sorvel::deep::small
