#include "deep/delivery.hpp"

namespace sorvel::deep {

namespace {
constexpr int kWordsToCompare = TextDecoder::kMostWords / 3;
}

Delivery::Delivery(std::string_view prefix, Workspace& workspace)
    : m_decoder(workspace), m_isReady(m_decoder.prepare(prefix)) {
    m_margin = m_decoder.hasPrefix() ? kMarginBehindPrefix : kMarginWithoutPrefix;
}

bool Delivery::begin(const Scores& scores, int mostWords) {
    m_phase = Phase::kIdle;
    if (m_decodes >= kDecodes) return false;
    ++m_decodes;
    m_scores = scores;
    m_decoder.begin(m_scores,
                    m_decoder.hasPrefix() ? TextDecoder::Among::kPrefixed : TextDecoder::Among::kAll,
                    m_margin, mostWords);
    m_phase = Phase::kSearching;
    return true;
}

bool Delivery::step(int words) {
    if (m_phase != Phase::kSearching && m_phase != Phase::kComparing) return true;
    if (!m_decoder.step(words)) return false;
    const auto found = m_decoder.best();
    if (m_phase == Phase::kComparing) {
        m_phase = found ? Phase::kIdle : Phase::kAccepted;
        return true;
    }
    if (!found || found->certainty < kCertainty) {
        m_phase = Phase::kIdle;
        return true;
    }
    m_word = *found;
    if (!m_decoder.hasPrefix()) {
        m_phase = Phase::kAccepted;
        return true;
    }
    m_phase = Phase::kComparing;
    m_decoder.begin(m_scores, TextDecoder::Among::kRivals, m_word.score, kWordsToCompare);
    return false;
}

std::optional<TextDecoder::Word> Delivery::accepted() const {
    if (m_phase != Phase::kAccepted) return std::nullopt;
    return m_word;
}

} // namespace sorvel::deep
