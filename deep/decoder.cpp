#include "deep/decoder.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace sorvel::deep {

namespace {

constexpr float kLimit = 100.0F;    // of a nibble's score, nats
constexpr float kMostOdds = 80.0F;  // nats, so that e to it is a float
constexpr float kWindow = 1.0F;     // nats that the search goes down at a time, in all lengths
constexpr float kSurely = 14.0F;    // certainty of a word that needs no further search
constexpr float kBehind = 10.0F;    // nats by which words are below the best that do not matter beside it
constexpr double kLeastLeft = 1e-6; // of the weight, as sums are rounded
constexpr float kRounding = 0.01F;  // nats
// What other work costs, in words looked at
constexpr int kWordsToOpen = 4000;
constexpr int kWordsToTurn = 6;
constexpr int kWordsToWeigh = 20;
constexpr std::size_t kSurePairs = 4; // of dependent nibbles, as 32 bits are dependent
const float kPerCharacter = std::log(static_cast<float>(encoding::kAlphabet.size()));

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

} // namespace

TextDecoder::TextDecoder(Workspace& workspace) : m_workspace(workspace), m_columns(parityColumns()) {
    prepare({});
}

bool TextDecoder::prepare(std::string_view prefix) {
    std::array<char, encoding::kMaxTextLength + 1> own{}; // vectors write in sixteens
    const bool isKnown =
        prefix.size() <= encoding::kMaxTextLength && std::all_of(prefix.begin(), prefix.end(), [](char c) {
            return encoding::kAlphabet.find(lower(c)) != std::string_view::npos;
        });
    m_prefixLength = isKnown ? prefix.size() : 0;
    if (isKnown) std::transform(prefix.begin(), prefix.end(), own.begin(), lower);
    for (std::size_t length = 0; length < kLengths; ++length) {
        m_allowed[0][length] = allowedNibbles({own.data(), std::min(m_prefixLength, length)}, length);
        m_allowed[1][length] = allowedNibbles({}, length);
    }
    m_phase = Phase::kDone;
    m_hasBest = false;
    return isKnown;
}

void TextDecoder::begin(const Scores& scores, Among among, float leastMargin, int mostWords) {
    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble)
        for (std::size_t value = 0; value < 16; ++value) {
            const float score = scores[nibble][value];
            m_scores[nibble][value] = score > -kLimit ? std::min(score, kLimit) : -kLimit;
            m_odds[nibble][value] = std::exp(std::min(m_scores[nibble][value], kMostOdds));
        }
    m_workspace.begin<Work>();
    m_among = among;
    m_leastMargin = leastMargin;
    m_mostWords = mostWords;
    m_looked = 0;
    m_isOpen.fill(false);
    m_lookedWeight.fill(0.0);
    m_others = 0.0;
    m_isWalking = false;
    m_hasBest = false;
    m_firstLength = among == Among::kPrefixed ? m_prefixLength : 0;
    m_length = m_firstLength;
    m_phase = Phase::kOpening;
}

std::optional<TextDecoder::Word> TextDecoder::best() const {
    if (!m_hasBest) return std::nullopt;
    Word word = m_best;
    word.certainty = certainty();
    return word;
}

float TextDecoder::bar() const {
    if (!m_hasBest) return m_leastMargin;
    return m_best.margin - (m_among == Among::kRivals ? 0.0F : kBehind);
}

float TextDecoder::certainty() const {
    double others = m_others;
    for (std::size_t length = m_firstLength; length < kLengths; ++length) {
        const double total = space(length).totalWeight();
        const double left =
            m_isOpen[length] ? std::max(1.0 - m_lookedWeight[length] / total, kLeastLeft) : 1.0;
        others += left * std::exp(static_cast<double>(m_means[length]));
    }
    return m_best.margin - static_cast<float>(std::log(others));
}

bool TextDecoder::step(int words) {
    const int until = m_looked + std::min(words, m_mostWords);
    while (m_phase != Phase::kDone && m_looked < until) {
        if (m_looked >= m_mostWords) {
            m_phase = Phase::kDone;
        } else if (m_phase == Phase::kOpening) {
            if (m_length < kLengths) {
                open(m_length++);
                continue;
            }
            m_above = -std::numeric_limits<float>::infinity();
            for (std::size_t length = 0; length < kLengths; ++length)
                if (m_isOpen[length]) m_above = std::max(m_above, space(length).most() - penalty(length));
            m_down = m_above;
            m_length = kLengths;
            m_phase = Phase::kSearching;
        } else if (!m_isWalking) {
            if (!startNextWindow()) m_phase = Phase::kDone;
        } else if (!goOn()) {
            m_isWalking = false;
        }
        if (m_among == Among::kRivals && m_hasBest) m_phase = Phase::kDone;
    }
    return m_phase == Phase::kDone;
}

float TextDecoder::penalty(std::size_t length) const {
    if (m_among == Among::kRivals) return 0.0F;
    const std::size_t known = m_among == Among::kPrefixed ? m_prefixLength : 0;
    return static_cast<float>(length - known) * kPerCharacter;
}

/// Prepares the search of one length, if the best that could be there is good enough.
void TextDecoder::open(std::size_t length) {
    const Allowed& allowed = m_allowed[m_among == Among::kPrefixed ? 0 : 1][length];
    float most = 0.0F;
    float mean = 0.0F;
    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble) {
        float best = -kLimit;
        float sum = 0.0F;
        for (std::size_t value = 0; value < 16; ++value) {
            if ((allowed[nibble] >> value & 1U) == 0) continue;
            best = std::max(best, m_scores[nibble][value]);
            sum += m_odds[nibble][value];
        }
        most += best;
        mean += std::log(sum / static_cast<float>(std::popcount(allowed[nibble])));
    }
    m_means[length] = mean;
    if (most - penalty(length) < bar()) return;
    m_looked += kWordsToOpen;
    m_isOpen[length] = m_workspace.of<Work>().spaces[length].build(m_scores, allowed, m_columns);
    if (m_isOpen[length]) correctHardDecisions(length);
}

/// Two wrong bytes anywhere, or one beside two of the least sure.
void TextDecoder::correctHardDecisions(std::size_t length) {
    const WordBytes heard = space(length).heard();
    const auto correct = [&](std::span<const std::uint8_t> erased) {
        WordBytes word = heard;
        for (const std::uint8_t at : erased) word[at] = 0;
        const std::uint8_t* const parity = word.data() + encoding::kPayloadBytes;
        WordBytes corrected{};
        if (m_code.DecodeBlock(word.data(), parity, corrected.data(), erased.data(), erased.size()) != 0)
            return;
        m_code.EncodeBlock(corrected.data(), corrected.data() + encoding::kPayloadBytes);
        weigh(corrected, length);
    };
    correct({});
    const auto unsure = space(length).leastSureBytes();
    for (std::size_t i = 0; i < unsure.size(); ++i)
        for (std::size_t k = i + 1; k < unsure.size(); ++k) correct(std::array{unsure[i], unsure[k]});
}

/// The next length that has words in the window of margins, or the next window.
bool TextDecoder::startNextWindow() {
    for (;;) {
        if (m_length == kLengths) {
            if (m_down <= bar()) return false;
            if (m_hasBest && certainty() >= kSurely) return false;
            m_above = m_down;
            m_down = std::max(m_above - kWindow, bar());
            m_length = 0;
        }
        const std::size_t length = m_length++;
        if (!m_isOpen[length]) continue;
        const WordSpace& words = space(length);
        const float most = words.most() - penalty(length);
        m_low = most - m_above;
        m_high = most - m_down;
        if (m_high < 0.0F) continue;
        for (std::size_t pair = 0; pair < words.pairs(); ++pair)
            words.losses(pair, m_workspace.of<Work>().losses[pair]);
        m_nodes[0] = {words.start(), 0, 0.0F, 1.0F, 0};
        m_depth = 0;
        m_isWalking = true;
        // A window holds the cost it ends with, not the one it begins with; but no cost is below 0.
        if (m_low <= 0.0F) {
            m_lookedWeight[length] = 1.0;
            weigh(words.word({}, words.start()), length);
        }
        look(m_nodes[0]);
        return true;
    }
}

/// Looks at all words with one change more whose cost is in the window. The hot loop.
void TextDecoder::look(const Node& node) {
    const std::size_t length = m_length - 1;
    const Work& work = m_workspace.of<Work>();
    const WordSpace& words = work.spaces[length];
    const std::span<const WordSpace::Change> changes = words.changes();
    const auto costsMore = [](float cost, const WordSpace::Change& change) { return cost < change.cost; };
    const auto from = changes.begin() + static_cast<std::ptrdiff_t>(std::min(node.next, changes.size()));
    const auto first = std::upper_bound(from, changes.end(), m_low - node.cost, costsMore);
    const auto last = std::upper_bound(first, changes.end(), m_high - node.cost, costsMore);
    m_looked += static_cast<int>(last - first) + kWordsToTurn;

    // What costs and losses may take away; sums rounded in another order may differ.
    const float spare = words.most() - node.cost - (bar() + penalty(length)) + kRounding;
    float weight = 0.0F;
    for (auto change = first; change != last; ++change) {
        if ((node.used >> change->nibble & 1U) != 0) continue;
        weight += lengthened(change->weight);
        const std::uint64_t dependent = node.dependent ^ change->mask;
        float left = spare - change->cost;
        for (std::size_t pair = 0; pair < kSurePairs; ++pair)
            left += work.losses[pair][dependent >> 8 * pair & 0xFFU];
        if (left < 0.0F) continue;
        for (std::size_t pair = kSurePairs; pair < words.pairs(); ++pair)
            left += work.losses[pair][dependent >> 8 * pair & 0xFFU];
        if (left < 0.0F) continue;
        m_path[m_depth] = static_cast<std::uint8_t>(change - changes.begin());
        weigh(words.word({m_path.data(), m_depth + 1}, dependent), length);
        m_looked += kWordsToWeigh;
    }
    m_lookedWeight[length] += static_cast<double>(node.weight * weight);
}

/// To the next word with changes to which more can be added within the window. False: there is none.
bool TextDecoder::goOn() {
    const std::span<const WordSpace::Change> changes = space(m_length - 1).changes();
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
void TextDecoder::weigh(const WordBytes& bytes, std::size_t length) {
    const Allowed& allowed = m_allowed[m_among == Among::kPrefixed ? 0 : 1][length];
    Word word;
    word.bytes = bytes;
    word.length = length;
    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble) {
        const unsigned value = bytes[nibble / 2] >> 4 * (nibble % 2) & 0xFU;
        if ((allowed[nibble] >> value & 1U) == 0) return;
        word.score += m_scores[nibble][value];
    }
    word.margin = word.score - penalty(length);
    if (!(word.margin > bar()) || !readText(bytes, length, word.text)) return;

    if (m_hasBest && word.margin <= m_best.margin) {
        if (bytes != m_best.bytes) m_others += std::exp(static_cast<double>(word.margin));
        return;
    }
    if (m_hasBest) m_others += std::exp(static_cast<double>(m_best.margin));
    word.free_score = word.score - m_means[length];
    word.free_margin = word.free_score - penalty(length);
    m_best = word;
    m_hasBest = true;
}

} // namespace sorvel::deep
