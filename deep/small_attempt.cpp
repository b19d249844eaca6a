#include "deep/small_attempt.hpp"

#include "deep/delivery.hpp"
#include "deep/likelihood.hpp"
#include "deep/small_sub_blocks.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel::deep::small {

namespace {

constexpr int kModels = 22;    // of a step, of 66
constexpr int kWords = 20'000; // of a step
constexpr int kMostWords = 100'000;
constexpr int kWordsToCompare = 200'000;

// As in deep::Attempt, where they are told.
constexpr float kClear_dB = 10.0F;
constexpr float kBandOverTone_dB = 21.6F;

} // namespace

void Attempt::begin(const Candidate& candidate) noexcept {
    m_candidate = candidate;
    m_found.reset();
    m_shift = 0;
    beginShift();
}

void Attempt::beginShift() noexcept {
    if (m_shift == m_candidate.shiftCount) {
        m_stage = Stage::Done;
        return;
    }
    m_work.emplace<Refinement>().begin((m_candidate.row + 1) * static_cast<std::int64_t>(kBlock),
                                       m_candidate.shifts[m_shift]);
    m_which = 0;
    m_isSecondView = false;
    m_stage = Stage::Refine;
}

void Attempt::step(const Baseband& baseband, Spectrum& spectrum,
                   std::span<float, Spectrum::kBins> power) noexcept {
    switch (m_stage) {
    case Stage::Refine:
        return refine(baseband, spectrum, power);
    case Stage::Score: {
        Hearing& hearing = std::get<Hearing>(m_work);
        if (!hearing.search.step(hearing.energies, kModels)) return;
        m_air = hearing.search.finish(hearing.energies, hearing.scores);
        return beginDecode(hearing);
    }
    case Stage::Decode:
        return decode(baseband);
    case Stage::Compare:
        return compare();
    case Stage::SecondView: {
        Hearing& hearing = std::get<Hearing>(m_work);
        m_isSecondView = true;
        scoreSubBlocks(baseband, m_place, hearing.scores);
        return beginDecode(hearing);
    }
    case Stage::Done:
        return;
    }
}

void Attempt::refine(const Baseband& baseband, Spectrum& spectrum,
                     std::span<float, Spectrum::kBins> power) noexcept {
    Refinement& refinement = std::get<Refinement>(m_work);
    refinement.tryEnd(baseband, spectrum, power, m_which);
    if (++m_which < Refinement::kEnds) return;
    m_place = refinement.place();
    // The energies lie where the hearing will.
    ToneEnergies energies;
    refinement.energies(energies);
    m_work.emplace<Hearing>(m_texts).energies = energies;
    m_stage = Stage::Score;
}

void Attempt::beginDecode(Hearing& hearing) noexcept {
    hearing.decoder.begin(hearing.scores,
                          m_texts.prefixLength() > 0 ? Decoder::Among::kPrefixed : Decoder::Among::kAll,
                          m_margin, kMostWords);
    m_stage = Stage::Decode;
}

void Attempt::decode(const Baseband& baseband) noexcept {
    Hearing& hearing = std::get<Hearing>(m_work);
    if (!hearing.decoder.step(kWords)) return;
    const auto found = hearing.decoder.best();
    if (!found || found->certainty < Delivery::kCertainty) return endDecode(baseband);
    m_word = *found;
    if (m_texts.prefixLength() == 0) return accept();
    hearing.decoder.begin(hearing.scores, Decoder::Among::kRivals, m_word.score, kWordsToCompare);
    m_stage = Stage::Compare;
}

void Attempt::compare() noexcept {
    Decoder& decoder = std::get<Hearing>(m_work).decoder;
    if (!decoder.step(kWords)) return;
    if (!decoder.best()) return accept();
    m_stage = Stage::Done; // another prefix's
}

/// Without a text: to the second view, or to the next shift.
void Attempt::endDecode(const Baseband& baseband) noexcept {
    if (!isKept(baseband)) {
        m_stage = Stage::Done;
    } else if (!m_isSecondView && m_air.ratio >= kClear_dB) {
        m_stage = Stage::SecondView;
    } else {
        ++m_shift;
        beginShift();
    }
}

/// Whether all the sound of the transmission is still there, for as long as refining takes.
bool Attempt::isKept(const Baseband& baseband) const noexcept {
    constexpr auto kLength = static_cast<std::int64_t>(kTransmission + (Refinement::kEnds + 2) * kBlock);
    return (m_candidate.row + 1) * static_cast<std::int64_t>(kBlock) - kLength >= baseband.first();
}

void Attempt::accept() noexcept {
    const ToneEnergies& energies = std::get<Hearing>(m_work).energies;
    float sent = 0.0F;
    float before = 0.0F; // of tones that are not sent any more in the next chunk
    float rest = 0.0F;   // and what is left of them there
    float gone = 0.0F;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        for (const std::size_t side : {0U, 4U}) {
            const auto toneOf = [&](std::size_t c) { return 4U * side + (m_word.bytes[c] >> side & 15U); };
            sent += energies[chunk][toneOf(chunk)];
            if (chunk == 0 || toneOf(chunk) == toneOf(chunk - 1)) continue;
            before += energies[chunk - 1][toneOf(chunk - 1)];
            rest += energies[chunk][toneOf(chunk - 1)];
            gone += 1.0F;
        }
    }
    const float ratio = std::max(sent / static_cast<float>(kNibbles) - 1.0F, 0.01F);
    const float echo = std::clamp((rest - gone) / std::max(before - gone, 1.0F), 0.0F, 1.0F);
    m_found = Found{m_word, m_place, 10.0F * std::log10(ratio) - kBandOverTone_dB, echo};
    m_stage = Stage::Done;
}

} // namespace sorvel::deep::small
