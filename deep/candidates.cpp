#include "deep/candidates.hpp"

#include "deep/target_clones.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel::deep {

namespace {

constexpr float kUnit = 8.0F;        // steps to one of strength; 16 bits then hold 90 dB
constexpr float kNoise = 6.76F;      // mean of a row's strength in noise
constexpr float kThreshold = 138.0F; // of the sum over 17 chunks; noise has 115
constexpr float kClear = 8.5F;       // a row that may hold a chunk
constexpr int kFewestClear = 10;     // of 17
constexpr float kSimilar = 0.85F;    // of the best sum: another shift worth a look
constexpr int kApart = 9;            // bins from one shift to another; tones lie 18 apart

SORVEL_DEEP_CLONES
void add(std::int32_t* sums, const std::uint16_t* row, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) sums[i] += row[i];
}

} // namespace

Candidates::Candidates() : m_rows(kRows * kShifts), m_ages(kChunks * kShifts) {
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        for (std::size_t shift = 0; shift < kShifts; ++shift) {
            const double ratio = ratioOfShift(static_cast<double>(shift) - kMostShift);
            m_ages[chunk * kShifts + shift] =
                static_cast<std::uint8_t>(std::lround(static_cast<double>(kRowsOfChunk * chunk) / ratio));
        }
        for (std::size_t shift = 0; shift < kShifts;) {
            std::size_t end = shift + 1;
            while (end < kShifts && age(chunk, end) == age(chunk, shift)) ++end;
            m_runs.push_back({static_cast<std::uint8_t>(shift), static_cast<std::uint8_t>(end - shift),
                              static_cast<std::uint8_t>(age(chunk, shift))});
            shift = end;
        }
    }
    reset();
}

void Candidates::reset() noexcept {
    std::fill(m_rows.begin(), m_rows.end(), static_cast<Packed>(kUnit * kNoise));
    m_bests.fill({});
    m_next = kRows; // so that rows before the first are silence
}

std::optional<Candidate> Candidates::take(std::span<const float, kShifts> row) noexcept {
    pack(row);
    sum();
    std::move(m_bests.begin() + 1, m_bests.end(), m_bests.begin());
    m_bests.back() = best();
    ++m_next;

    const Best& middle = m_bests[kPatience];
    if (middle.strength < kThreshold) return std::nullopt;
    for (std::size_t i = 0; i < m_bests.size(); ++i)
        if (m_bests[i].strength > middle.strength) return std::nullopt;
    const std::int64_t row_ = m_next - 1 - kPatience;
    if (!hasManyChunks(row_, static_cast<std::size_t>(middle.shifts[0] + kMostShift))) return std::nullopt;
    return Candidate{row_ - static_cast<std::int64_t>(kRows), middle.strength, middle.shifts,
                     middle.shiftCount};
}

/// Sixteen bits end at 8192. Were all loud rows alike, the strongest end would be any of those near it.
static float withinRoom(float strength) {
    constexpr float kLoud = 4000.0F;
    return strength <= kLoud ? strength : kLoud + kLoud / 8.0F * std::log(strength / kLoud);
}

void Candidates::pack(std::span<const float, kShifts> row) noexcept {
    Packed* const to = &m_rows[static_cast<std::size_t>(m_next % static_cast<std::int64_t>(kRows)) * kShifts];
    // Windows that reach back before the first sample know no noise to measure against.
    const bool isWhole = m_next >= static_cast<std::int64_t>(kRows + kRowsOfChunk);
    for (std::size_t i = 0; i < kShifts; ++i)
        to[i] =
            static_cast<Packed>(std::min(kUnit * (isWhole ? withinRoom(row[i]) : kNoise) + 0.5F, 65535.0F));
}

void Candidates::sum() noexcept {
    m_sums.fill(0);
    for (const Run& run : m_runs)
        add(m_sums.data() + run.first, packedRow(m_next - run.rowsBack) + run.first, run.count);
}

/// The strongest shift, and those nearly as strong that are no neighbours of a stronger one.
Candidates::Best Candidates::best() const noexcept {
    Best best;
    const auto strongest = std::max_element(m_sums.begin(), m_sums.end());
    best.strength = static_cast<float>(*strongest) / kUnit;
    if (best.strength < kThreshold) return best;
    auto sums = m_sums;
    while (best.shiftCount < best.shifts.size()) {
        const auto next = std::max_element(sums.begin(), sums.end());
        if (static_cast<float>(*next) < kSimilar * static_cast<float>(*strongest)) break;
        const auto place = static_cast<int>(next - sums.begin());
        best.shifts[best.shiftCount++] = place - kMostShift;
        for (int i = std::max(0, place - kApart + 1); i < std::min(static_cast<int>(kShifts), place + kApart);
             ++i)
            sums[static_cast<std::size_t>(i)] = 0;
    }
    return best;
}

bool Candidates::hasManyChunks(std::int64_t row, std::size_t shift) const noexcept {
    int clear = 0;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk)
        clear += static_cast<float>(packedRow(row - age(chunk, shift))[shift]) > kClear * kUnit ? 1 : 0;
    return clear >= kFewestClear;
}

} // namespace sorvel::deep
