#include "deep/receiver.hpp"

#include "deep/allowance.hpp"
#include "deep/attempt.hpp"
#include "deep/baseband.hpp"
#include "deep/candidates.hpp"
#include "deep/front_end.hpp"
#include "deep/motion_gate.hpp"
#include "deep/motion_search.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

namespace sorvel::deep {

namespace {

// With what every block costs, some 1 ms a second, this stays below 5 ms a second.
constexpr float kSteadyPerBlock_us = 40.0F, kSteadyLimit_us = 50'000.0F;
constexpr float kMotionPerBlock_us = 20.0F, kMotionLimit_us = 80'000.0F;
constexpr float kQuick_us = 1500.0F;  // of a quick attempt
constexpr float kFull_us = 15'000.0F; // what must be left for a full one
// Of full ones at what stands out from those in vain of late, as a transmission does from whistles and tones
// that used the allowance up.
constexpr float kReservePerBlock_us = 8.0F, kReserveLimit_us = 30'000.0F;
constexpr float kOutstanding = 1.2F;
constexpr float kForget = 0.995F; // in a row: half in the time of a transmission
constexpr float kMotion_us = 40'000.0F;
constexpr int kMotionStep_us = 600;    // what it takes
constexpr int kMotionCharge_us = 1000; // to its allowance, with which dense tones ran at over 200 times
// Of all work in a block. In 100 ms of sound five blocks may end, which together take less than 20 ms.
constexpr int kPerBlock_us = 3400;

constexpr std::int64_t kHoldOff_samples = 2667; // one second
// A chunk, and what its candidate takes to show: a better end would have come by then.
constexpr std::int64_t kDeferred_rows = 13;
constexpr std::int64_t kNextEnd_rows = 132; // from one transmission's end to the next one's, at least
constexpr float kLouder = 1.15F;            // than what was delivered: not the same transmission any more
constexpr float kNearlyAsStrong = 0.97F;    // a chunk behind the end, 16 of 17 chunks fit
constexpr int kSlipped_bins = 18;           // a path that followed the neighbouring tones

std::int64_t endOfRow(std::int64_t row) { return (row + 1) * static_cast<std::int64_t>(kBlock); }

float speed_m_s(float shift) { return kSpeedOfSound_m_s * shift * static_cast<float>(kBin_hz / kMiddle_hz); }

} // namespace

class Receiver::Parts {
public:
    Parts(double rate_hz, std::string_view prefix)
        : m_frontEnd(rate_hz), m_attempt(prefix, m_transform, m_workspace), m_rate_hz(rate_hz) {}

    bool isReady() const { return m_attempt.isReady(); }
    double rate_hz() const { return m_rate_hz; }
    void reset() noexcept;
    template <typename Sample>
    void push(std::span<const Sample> samples) noexcept;
    void completeWork() noexcept;
    bool poll(Reception& reception) noexcept;

private:
    enum class Work : std::uint8_t { None, Steady, Path, Moving };

    void takeBlock() noexcept;
    void take(const Candidate& candidate) noexcept;
    void takeMotion(std::uint64_t endRow) noexcept;
    int workOn() noexcept;
    bool beginNext() noexcept;
    void beginSteady(Attempt::Effort effort) noexcept;
    void endSteady() noexcept;
    int stepOfPath() noexcept;
    void endMoving() noexcept;
    bool isTooOld(std::int64_t end) const noexcept;
    bool isHeldOff(std::int64_t end) const noexcept;
    void deliver(const Found& found, std::int64_t end, float speed) noexcept;
    SampleView baseband() const noexcept;
    SampleView turnedBack() const noexcept;

    FrontEnd m_frontEnd;
    Baseband m_baseband;
    std::size_t m_inBlock = 0;
    std::int64_t m_row = 0;
    Transform m_transform{1024};
    Workspace m_workspace; // of one attempt or motion search
    Rows m_rows{m_transform};
    Candidates m_candidates;
    MotionGate m_gate;
    MotionSearch m_motion{m_transform, m_workspace};
    Attempt m_attempt;
    double m_rate_hz;

    Allowance m_steadyAllowance{kSteadyPerBlock_us, kSteadyLimit_us};
    Allowance m_reserve{kReservePerBlock_us, kReserveLimit_us};
    Allowance m_motionAllowance{kMotionPerBlock_us, kMotionLimit_us};
    Allowance* m_paidBy = &m_steadyAllowance; // the attempt under way
    Work m_work = Work::None;
    Candidate m_current;
    float m_inVain = 0.0F; // strength of the strongest candidate of late that came to nothing, fading
    std::optional<Candidate> m_waiting;   // for a quick attempt
    std::optional<Candidate> m_deferred;  // the best so far, for a full one
    std::optional<std::int64_t> m_moving; // end, for a motion search
    std::int64_t m_movingEnd = 0;

    std::int64_t m_lastEnd = -kHoldOff_samples; // of what was delivered
    float m_lastStrength = 0.0F;
    std::array<Reception, 8> m_heard;
    std::size_t m_heardFirst = 0, m_heardCount = 0;
};

void Receiver::Parts::reset() noexcept {
    m_frontEnd.reset();
    m_baseband.reset();
    m_inBlock = 0;
    m_row = 0;
    m_rows.reset();
    m_candidates.reset();
    m_gate.reset();
    m_steadyAllowance.reset();
    m_reserve.reset();
    m_motionAllowance.reset();
    m_work = Work::None;
    m_inVain = 0.0F;
    m_attempt.reset();
    m_waiting.reset();
    m_deferred.reset();
    m_moving.reset();
    m_lastEnd = -kHoldOff_samples;
    m_lastStrength = 0.0F;
    m_heardCount = 0;
}

template <typename Sample>
void Receiver::Parts::push(std::span<const Sample> samples) noexcept {
    while (!samples.empty()) {
        m_baseband.makeRoom();
        std::size_t left = m_frontEnd.take(samples, m_baseband.nextRe(), m_baseband.nextIm());
        while (left > 0) {
            const std::size_t taken = std::min(left, kBlock - m_inBlock);
            m_baseband.append(taken);
            m_inBlock += taken;
            left -= taken;
            if (m_inBlock < kBlock) continue;
            m_inBlock = 0;
            takeBlock();
        }
    }
}

void Receiver::Parts::takeBlock() noexcept {
    const std::int64_t end = m_baseband.end();
    const auto chunk = static_cast<std::int64_t>(kChunk);
    if (const auto candidate =
            m_candidates.take(m_rows.take(m_baseband.re(end - chunk), m_baseband.im(end - chunk))))
        take(*candidate);
    const auto window = static_cast<std::int64_t>(MotionGate::kWindow_samples);
    m_gate.push(m_baseband.re(end - window), m_baseband.im(end - window), static_cast<std::uint64_t>(m_row));
    if (std::uint64_t endRow = 0; m_gate.takeCandidate(endRow)) takeMotion(endRow);
    ++m_row;

    m_inVain *= kForget;
    m_steadyAllowance.grow();
    m_reserve.grow();
    m_motionAllowance.grow();
    int spent = 0;
    while (spent + (m_work == Work::Path ? kMotionStep_us : Attempt::kMostPerStep_us) <= kPerBlock_us) {
        const int cost = workOn();
        if (cost == 0) break;
        spent += cost;
    }
}

void Receiver::Parts::take(const Candidate& candidate) noexcept {
    const std::int64_t end = endOfRow(candidate.row);
    if (isHeldOff(end)) return;
    // The chunks of what was delivered fit the end of another transmission too, 192 ms later and so on.
    const bool mayBeNew = end - m_lastEnd >= kNextEnd_rows * static_cast<std::int64_t>(kBlock);
    if (!mayBeNew && candidate.strength < kLouder * m_lastStrength) return;
    if (!m_waiting || isTooOld(endOfRow(m_waiting->row)) ||
        candidate.strength > kNearlyAsStrong * m_waiting->strength)
        m_waiting = candidate;
    if (!m_deferred || candidate.strength > m_deferred->strength) m_deferred = candidate;
}

void Receiver::Parts::takeMotion(std::uint64_t endRow) noexcept {
    const std::int64_t end = endOfRow(static_cast<std::int64_t>(endRow));
    if (!isHeldOff(end)) m_moving = end;
}

/// One step of what is under way, or of what comes next.
int Receiver::Parts::workOn() noexcept {
    if (m_work == Work::None && !beginNext()) return 0;
    if (m_work == Work::Path) return stepOfPath();
    const bool isSteady = m_work == Work::Steady;
    const int cost = m_attempt.step(isSteady ? baseband() : turnedBack());
    m_paidBy->draw(cost);
    if (m_attempt.isFinished()) isSteady ? endSteady() : endMoving();
    return cost;
}

/// What is quick first, then what has waited long enough.
bool Receiver::Parts::beginNext() noexcept {
    // Without allowance it goes on waiting: the last transmission behind dense tones is heard later.
    if (m_waiting && m_steadyAllowance.has(kQuick_us)) {
        m_current = *m_waiting;
        m_waiting.reset();
        if (!isTooOld(endOfRow(m_current.row))) {
            beginSteady(Attempt::Effort::Quick);
            return true;
        }
    }
    if (m_deferred && m_row - m_deferred->row > kDeferred_rows) {
        m_current = *m_deferred;
        m_deferred.reset();
        const bool isOutstanding = m_current.strength > kOutstanding * m_inVain;
        const bool needsReserve = !m_steadyAllowance.has(kFull_us);
        if ((!needsReserve || (isOutstanding && m_reserve.has(kFull_us))) &&
            !isTooOld(endOfRow(m_current.row))) {
            beginSteady(Attempt::Effort::Full);
            m_paidBy = needsReserve ? &m_reserve : &m_steadyAllowance;
            return true;
        }
        m_inVain = std::max(m_inVain, m_current.strength);
    }
    if (m_moving) {
        m_movingEnd = *m_moving;
        m_moving.reset();
        if (m_motionAllowance.has(kMotion_us) && !isTooOld(m_movingEnd) && !isHeldOff(m_movingEnd)) {
            const SampleView samples = baseband();
            m_motion.begin({samples.re, samples.count}, {samples.im, samples.count},
                           static_cast<std::size_t>(m_movingEnd - samples.first));
            m_work = Work::Path;
            return true;
        }
    }
    return false;
}

void Receiver::Parts::beginSteady(Attempt::Effort effort) noexcept {
    m_attempt.begin(endOfRow(m_current.row), {m_current.shifts.data(), m_current.shiftCount}, effort);
    m_paidBy = &m_steadyAllowance;
    m_work = Work::Steady;
}

void Receiver::Parts::endSteady() noexcept {
    m_work = Work::None;
    const auto& found = m_attempt.found();
    if (!found) {
        if (m_attempt.effort() == Attempt::Effort::Full) m_inVain = std::max(m_inVain, m_current.strength);
        return;
    }
    m_lastStrength = m_current.strength;
    deliver(*found, found->place.end, speed_m_s(found->place.shift));
}

int Receiver::Parts::stepOfPath() noexcept {
    m_motionAllowance.draw(kMotionCharge_us);
    if (!m_motion.step()) return kMotionStep_us;
    if (!m_motion.hasPath()) {
        m_work = Work::None;
        return kMotionStep_us;
    }
    const int shift = m_motion.shift();
    const std::array<int, 3> shifts{shift, shift + kSlipped_bins, shift - kSlipped_bins};
    m_attempt.begin(static_cast<std::int64_t>(m_motion.re().size() - MotionSearch::kMargin_samples), shifts,
                    Attempt::Effort::Full);
    m_paidBy = &m_motionAllowance;
    m_work = Work::Moving;
    return kMotionStep_us;
}

void Receiver::Parts::endMoving() noexcept {
    m_work = Work::None;
    if (const auto& found = m_attempt.found()) {
        m_lastStrength = 0.0F;
        deliver(*found, m_movingEnd + m_motion.endOffset_samples(), m_motion.speed_m_s());
        return;
    }
    if (m_motionAllowance.has(kMotion_us) && m_motion.nextOffset()) m_work = Work::Path;
}

/// Whether the beginning of a transmission that ended there is no longer kept.
bool Receiver::Parts::isTooOld(std::int64_t end) const noexcept {
    constexpr std::int64_t kLongest = static_cast<std::int64_t>(kTransmission + 2 * kBlock);
    return end - kLongest < m_baseband.end() - Baseband::kKept;
}

bool Receiver::Parts::isHeldOff(std::int64_t end) const noexcept {
    return std::abs(end - m_lastEnd) < kHoldOff_samples;
}

void Receiver::Parts::deliver(const Found& found, std::int64_t end, float speed) noexcept {
    if (isHeldOff(end)) return;
    m_lastEnd = end;
    m_gate.forget(
        static_cast<std::uint64_t>(std::max<std::int64_t>(end / static_cast<std::int64_t>(kBlock) - 1, 0)));
    if (m_moving && isHeldOff(*m_moving)) m_moving.reset();
    if (m_waiting && isHeldOff(endOfRow(m_waiting->row))) m_waiting.reset();
    if (m_deferred && isHeldOff(endOfRow(m_deferred->row))) m_deferred.reset();
    if (m_heardCount == m_heard.size()) {
        m_heardFirst = (m_heardFirst + 1) % m_heard.size();
        --m_heardCount;
    }
    Reception& reception = m_heard[(m_heardFirst + m_heardCount++) % m_heard.size()];
    reception.text = found.word.text;
    reception.end_s = static_cast<double>(end) / kBasebandRate_hz;
    reception.snr_db = found.snr_db;
    reception.speed_m_s = speed;
    reception.echo = found.echo;
    reception.margin = found.word.margin - m_attempt.margin();
}

bool Receiver::Parts::poll(Reception& reception) noexcept {
    if (m_heardCount == 0) return false;
    reception = m_heard[m_heardFirst];
    m_heardFirst = (m_heardFirst + 1) % m_heard.size();
    --m_heardCount;
    return true;
}

void Receiver::Parts::completeWork() noexcept {
    while (workOn() > 0) {
    }
}

SampleView Receiver::Parts::baseband() const noexcept {
    const std::int64_t first = m_baseband.end() - Baseband::kKept;
    return {m_baseband.re(first), m_baseband.im(first), first, static_cast<std::size_t>(Baseband::kKept)};
}

SampleView Receiver::Parts::turnedBack() const noexcept {
    return {m_motion.re().data(), m_motion.im().data(), 0, m_motion.re().size()};
}

Receiver::Receiver(double rate_hz, std::string_view prefix) {
    if (!(rate_hz >= kLowestRate_hz && rate_hz <= kHighestRate_hz)) return;
    m_parts = std::make_unique<Parts>(rate_hz, prefix);
    if (!m_parts->isReady()) m_parts.reset();
}

Receiver::~Receiver() = default;
Receiver::Receiver(Receiver&&) noexcept = default;
Receiver& Receiver::operator=(Receiver&&) noexcept = default;

bool Receiver::isReady() const noexcept { return m_parts != nullptr; }

void Receiver::push(std::span<const float> samples) noexcept {
    if (m_parts) m_parts->push(samples);
}

void Receiver::push(std::span<const std::int16_t> samples) noexcept {
    if (m_parts) m_parts->push(samples);
}

bool Receiver::poll(Reception& reception) noexcept { return m_parts && m_parts->poll(reception); }

void Receiver::finish() noexcept {
    if (!m_parts) return;
    constexpr std::array<float, 256> kSilence{};
    for (auto left = static_cast<std::size_t>(0.7 * m_parts->rate_hz()); left > 0;) {
        const std::size_t count = std::min(left, kSilence.size());
        m_parts->push(std::span<const float>(kSilence).first(count));
        m_parts->completeWork();
        left -= count;
    }
}

void Receiver::reset() noexcept {
    if (m_parts) m_parts->reset();
}

} // namespace sorvel::deep
