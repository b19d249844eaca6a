#include "deep/attempt.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel::deep {

namespace {

// What steps cost, about; together with the allowances they were set so that ten minutes of dense tones ran
// at over 200 times real time.
constexpr int kEnd_us = 200;
constexpr int kScore_us = 600;
constexpr int kSecondView_us = 300;
constexpr int kWords = 100'000; // of a step of decoding
constexpr int kWords_us = 500;
constexpr int kQuickWords = 60'000;

constexpr std::int64_t kMemory_samples = 80'000; // half a minute
constexpr int kCombine_us = 100;
constexpr float kOneWord = 6.0F; // nats that two hearings agree by, to be worth a decode

constexpr float kClear_dB = 10.0F; // ratio from which on the second view is worth its decode

} // namespace

void Attempt::begin(std::int64_t end, std::span<const int> shifts, Effort effort) noexcept {
    m_end = end;
    m_shiftCount = std::min(shifts.size(), effort == Effort::Quick ? std::size_t{1} : m_shifts.size());
    std::copy_n(shifts.begin(), m_shiftCount, m_shifts.begin());
    m_effort = effort;
    m_found.reset();
    m_delivery.beginAttempt();
    m_shift = 0;
    m_stage = m_shiftCount > 0 ? Stage::Refine : Stage::Done;
    m_which = 0;
    m_refinement.begin(end, m_shifts[0]);
}

int Attempt::mostWords() const noexcept {
    return m_effort == Effort::Quick ? kQuickWords : TextDecoder::kMostWords / 3;
}

void Attempt::reset() noexcept {
    m_stage = Stage::Done;
    m_found.reset();
    for (Hearing& hearing : m_before) hearing.isKept = false;
}

void Attempt::nextShift() noexcept {
    m_which = 0;
    m_stage = ++m_shift < m_shiftCount ? Stage::Refine : Stage::Done;
    if (m_stage == Stage::Refine) m_refinement.begin(m_end, m_shifts[m_shift]);
}

/// How much likelier it is that both heard one word than two, as a logarithm.
float Attempt::agreement(const Hearing& before) const noexcept {
    float sum = 0.0F;
    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble) {
        float mean = 0.0F;
        for (std::size_t value = 0; value < 16; ++value)
            mean += std::exp(m_scores[nibble][value] + lengthened(before.scores[nibble][value])) / 16.0F;
        sum += std::log(mean);
    }
    return sum;
}

/// Keeps this hearing, and fills the scores with what it and a former one say together. False: there is none.
bool Attempt::combine() noexcept {
    const std::int64_t end = m_refinement.place().end;
    const Hearing* best = nullptr;
    float most = kOneWord;
    for (const Hearing& before : m_before) {
        const std::int64_t apart = end - before.end;
        if (!before.isKept || apart < static_cast<std::int64_t>(kTransmission - kChunk) ||
            apart > kMemory_samples)
            continue;
        const float agreed = agreement(before);
        if (agreed <= most) continue;
        most = agreed;
        best = &before;
    }
    const std::array<std::array<ShortFloat, 16>, kNibbles> former =
        best != nullptr ? best->scores : m_before[0].scores;
    Hearing& kept = m_before[m_oldest];
    m_oldest = (m_oldest + 1) % m_before.size();
    kept.end = end;
    kept.isKept = true;
    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble)
        for (std::size_t value = 0; value < 16; ++value)
            kept.scores[nibble][value] = shortened(m_scores[nibble][value]);
    if (best == nullptr) return false;

    for (std::size_t nibble = 0; nibble < kNibbles; ++nibble) {
        auto& sum = m_scores[nibble];
        float mean = 0.0F;
        for (std::size_t value = 0; value < 16; ++value) {
            sum[value] += lengthened(former[nibble][value]);
            mean += std::exp(sum[value]) / 16.0F;
        }
        for (float& value : sum) value -= std::log(mean);
    }
    return true;
}

int Attempt::step(SampleView samples) noexcept {
    switch (m_stage) {
    case Stage::Refine:
        m_refinement.tryEnd(samples, m_which);
        if (++m_which == Refinement::kEnds) m_stage = Stage::Score;
        return kEnd_us;
    case Stage::Score:
        m_refinement.finish(samples, m_energies);
        m_air = score(m_energies, m_scores);
        m_stage = Stage::Decode;
        if (!m_delivery.begin(m_scores, mostWords())) m_stage = Stage::Done;
        return kEnd_us + kScore_us;
    case Stage::Decode:
        return decode(m_effort == Effort::Quick  ? Stage::Combine
                      : m_air.ratio >= kClear_dB ? Stage::SecondView
                                                 : Stage::Done);
    case Stage::SecondView:
        m_subBlocks.score(samples, m_refinement.place(), m_scores);
        m_stage = Stage::DecodeSecond;
        if (!m_delivery.begin(m_scores, mostWords())) m_stage = Stage::Done;
        return kSecondView_us;
    case Stage::DecodeSecond:
        return decode(Stage::Done);
    case Stage::Combine:
        m_stage = combine() && m_delivery.begin(m_scores, mostWords()) ? Stage::DecodeCombined : Stage::Done;
        return kCombine_us;
    case Stage::DecodeCombined:
        return decode(Stage::Done);
    case Stage::Done:
        break;
    }
    return 0;
}

/// @param next  where to go on without a text; Done: with the next shift, if there is one
int Attempt::decode(Stage next) noexcept {
    const int before = m_delivery.looked();
    const bool isDone = m_delivery.step(kWords);
    const int looked = m_delivery.looked() - before;
    const int cost = 20 + kWords_us * std::clamp(looked, 0, 2 * kWords) / kWords;
    if (!isDone) return cost;
    if (const auto word = m_delivery.accepted())
        accept(*word);
    else if (next == Stage::Done)
        nextShift();
    else
        m_stage = next;
    return cost;
}

void Attempt::accept(const TextDecoder::Word& word) noexcept {
    const Arrival arrived = arrival(m_energies, word.bytes);
    m_found = Found{word, m_refinement.place(), arrived.snr_db, arrived.echo};
    m_stage = Stage::Done;
}

} // namespace sorvel::deep
