#include "deep/small_receiver.hpp"

#include "deep/small_attempt.hpp"
#include "deep/small_baseband.hpp"
#include "deep/small_candidates.hpp"
#include "deep/small_front_end.hpp"
#include "deep/small_rows.hpp"

#include <algorithm>
#include <cmath>
#include <new>
#include <optional>
#include <type_traits>

namespace sorvel::deep {

namespace {

// Steps of attempts: what they may be in the long run, and at once.
constexpr float kStepsPerBlock = 0.27F; // 40,000 an hour: 9000 decodes at most, two in nine steps
constexpr float kMostSteps = 80.0F;
constexpr float kManySteps = 12.0F; // from here on candidates are tried at once

// A chunk, and what its candidate takes to show: a better end would have come by then.
constexpr std::int64_t kPatience_rows = 13;

// As in Receiver, where they are told.
constexpr std::int64_t kHoldOff_samples = 2667;
constexpr std::int64_t kNextEnd_rows = 132;
constexpr float kLouder = 1.15F;
constexpr float kNearlyAsStrong = 0.97F;

std::int64_t endOfRow(std::int64_t row) { return (row + 1) * static_cast<std::int64_t>(kBlock); }

float speed_m_s(float shift) { return kSpeedOfSound_m_s * shift * static_cast<float>(kBin_hz / kMiddle_hz); }

} // namespace

class SmallReceiver::Parts {
public:
    Parts(double rate_hz, const small::Texts& texts) noexcept
        : m_frontEnd(rate_hz), m_texts(texts), m_attempt(m_texts), m_rate_hz(rate_hz) {
        reset();
    }
    double rate_hz() const noexcept { return m_rate_hz; }
    void reset() noexcept;
    template <typename Sample>
    void push(std::span<const Sample> samples) noexcept;
    void completeWork() noexcept;
    bool poll(Reception& reception) noexcept;

private:
    void takeBlock() noexcept;
    void take(const Candidate& candidate) noexcept;
    bool step() noexcept;
    bool beginNext() noexcept;
    bool isTooOld(std::int64_t end) const noexcept;
    bool isHeldOff(std::int64_t end) const noexcept { return std::abs(end - m_lastEnd) < kHoldOff_samples; }
    void deliver(const Found& found) noexcept;

    small::FrontEnd m_frontEnd;
    std::array<float, kBlock> m_re{}, m_im{}; // of the block under way
    std::size_t m_inBlock = 0;
    small::Baseband m_baseband;
    small::Spectrum m_spectrum;
    std::array<float, small::Spectrum::kBins> m_power{};
    small::Rows m_rows;
    small::Candidates m_candidates;
    std::int64_t m_row = 0;

    small::Texts m_texts;
    small::Attempt m_attempt;
    std::optional<Candidate> m_waiting;
    float m_steps = 0.0F; // that may be done

    std::int64_t m_lastEnd = 0; // of what was delivered
    float m_lastStrength = 0.0F;
    std::array<Reception, 4> m_heard{};
    std::size_t m_heardFirst = 0, m_heardCount = 0;
    double m_rate_hz;
};

void SmallReceiver::Parts::reset() noexcept {
    m_frontEnd.reset();
    m_inBlock = 0;
    m_baseband.reset();
    m_rows.reset();
    m_candidates.reset();
    m_row = 0;
    m_attempt.abandon();
    m_waiting.reset();
    m_steps = kMostSteps;
    m_lastEnd = -kHoldOff_samples;
    m_lastStrength = 0.0F;
    m_heardCount = 0;
}

template <typename Sample>
void SmallReceiver::Parts::push(std::span<const Sample> samples) noexcept {
    while (!samples.empty()) {
        m_frontEnd.mix(samples);
        while (m_frontEnd.next(m_re[m_inBlock], m_im[m_inBlock])) {
            if (++m_inBlock < kBlock) continue;
            m_inBlock = 0;
            takeBlock();
        }
    }
}

void SmallReceiver::Parts::takeBlock() noexcept {
    m_baseband.append(m_re.data(), m_im.data());
    m_spectrum.take(m_baseband, m_baseband.end() - static_cast<std::int64_t>(kChunk));
    m_spectrum.wholeBins(m_power);
    std::array<float, kShifts> row{};
    m_rows.take(m_power, row);
    if (const auto candidate = m_candidates.take(row)) take(*candidate);
    ++m_row;
    m_steps = std::min(m_steps + kStepsPerBlock, kMostSteps);
    step();
}

void SmallReceiver::Parts::take(const Candidate& candidate) noexcept {
    const std::int64_t end = endOfRow(candidate.row);
    if (isHeldOff(end)) return;
    // The chunks of what was delivered fit the end of another transmission too, 192 ms later and so on.
    const bool mayBeNew = end - m_lastEnd >= kNextEnd_rows * static_cast<std::int64_t>(kBlock);
    if (!mayBeNew && candidate.strength < kLouder * m_lastStrength) return;
    if (!m_attempt.isFinished() && !m_attempt.isComparing() &&
        candidate.strength > m_attempt.candidate().strength)
        m_attempt.abandon();
    if (!m_waiting || isTooOld(endOfRow(m_waiting->row)) ||
        candidate.strength > kNearlyAsStrong * m_waiting->strength)
        m_waiting = candidate;
}

/// False: there is nothing to do.
bool SmallReceiver::Parts::step() noexcept {
    if (m_attempt.isFinished() && !beginNext()) return false;
    m_attempt.step(m_baseband, m_spectrum, m_power);
    m_steps -= 1.0F;
    if (const auto& found = m_attempt.found(); m_attempt.isFinished() && found) deliver(*found);
    return true;
}

bool SmallReceiver::Parts::beginNext() noexcept {
    if (!m_waiting) return false;
    // While steps are scarce, the best of a chunk's time is tried alone.
    if (m_steps < kManySteps && m_row - m_waiting->row <= kPatience_rows) return false;
    if (!isTooOld(endOfRow(m_waiting->row)) && m_steps < 0.0F) return false;
    const Candidate candidate = *m_waiting;
    m_waiting.reset();
    if (isTooOld(endOfRow(candidate.row))) return false;
    m_attempt.begin(candidate);
    return true;
}

/// Whether the beginning of a transmission that ended there will be gone before it was looked at.
bool SmallReceiver::Parts::isTooOld(std::int64_t end) const noexcept {
    constexpr auto kLongest =
        static_cast<std::int64_t>(kTransmission + (small::Refinement::kEnds + 2) * kBlock);
    return end - kLongest < m_baseband.first();
}

void SmallReceiver::Parts::deliver(const Found& found) noexcept {
    const std::int64_t end = found.place.end;
    if (isHeldOff(end)) return;
    m_lastEnd = end;
    m_lastStrength = m_attempt.candidate().strength;
    if (m_waiting && isHeldOff(endOfRow(m_waiting->row))) m_waiting.reset();
    if (m_heardCount == m_heard.size()) {
        m_heardFirst = (m_heardFirst + 1) % m_heard.size();
        --m_heardCount;
    }
    Reception& reception = m_heard[(m_heardFirst + m_heardCount++) % m_heard.size()];
    reception.text = found.word.text;
    reception.end_s = static_cast<double>(end) / kBasebandRate_hz;
    reception.snr_db = found.snr_db;
    reception.speed_m_s = speed_m_s(found.place.shift);
    reception.echo = found.echo;
    reception.margin = found.word.margin - m_attempt.margin();
}

bool SmallReceiver::Parts::poll(Reception& reception) noexcept {
    if (m_heardCount == 0) return false;
    reception = m_heard[m_heardFirst];
    m_heardFirst = (m_heardFirst + 1) % m_heard.size();
    --m_heardCount;
    return true;
}

void SmallReceiver::Parts::completeWork() noexcept {
    m_steps = kMostSteps; // no sound waits for its turn
    while (step()) {
    }
}

SmallReceiver::SmallReceiver(double rate_hz, std::string_view prefix) noexcept {
    static_assert(sizeof(Parts) <= sizeof m_memory && alignof(Parts) <= 8);
    static_assert(std::is_trivially_destructible_v<Parts>); // nobody ends its life
    if (!(rate_hz >= Receiver::kLowestRate_hz && rate_hz <= Receiver::kHighestRate_hz)) return;
    small::Texts texts;
    m_isReady = texts.prepare(prefix);
    if (m_isReady) new (m_memory.data()) Parts(rate_hz, texts);
}

SmallReceiver::Parts& SmallReceiver::parts() noexcept {
    return *std::launder(reinterpret_cast<Parts*>(m_memory.data()));
}

void SmallReceiver::push(std::span<const float> samples) noexcept {
    if (m_isReady) parts().push(samples);
}

void SmallReceiver::push(std::span<const std::int16_t> samples) noexcept {
    if (m_isReady) parts().push(samples);
}

bool SmallReceiver::poll(Reception& reception) noexcept { return m_isReady && parts().poll(reception); }

void SmallReceiver::finish() noexcept {
    if (!m_isReady) return;
    constexpr std::array<float, 256> kSilence{};
    for (auto left = static_cast<std::size_t>(0.7 * parts().rate_hz()); left > 0;) {
        const std::size_t count = std::min(left, kSilence.size());
        parts().push(std::span<const float>(kSilence).first(count));
        parts().completeWork();
        left -= count;
    }
}

void SmallReceiver::reset() noexcept {
    if (m_isReady) parts().reset();
}

} // namespace sorvel::deep
