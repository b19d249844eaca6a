#include "deep/small_candidates.hpp"

#include "deep/small_tables.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel::deep::small {

namespace {

// As in deep::Candidates, where they are told.
constexpr float kNoise = 6.76F;
constexpr float kThreshold = 138.0F;
constexpr float kClear = 8.5F;
constexpr int kFewestClear = 10;
constexpr float kSimilar = 0.85F;
constexpr int kApart = 9;

constexpr float kUnit = 8.0F;         // steps of a sum to one of strength
constexpr float kStepsToOne = 4.0F;   // of a byte
constexpr float kLinear = 16.0F;      // up to here
constexpr int kFirstRatio = 64;       // the byte that stands for it
constexpr double kRatio = 1.0332;     // from byte to byte beyond, up to 8192
constexpr float kRatioSteps = 30.62F; // 1 / ln 1.0332
constexpr float kLoud = 4000.0F;      // from here on by the logarithm, as there

/// What a byte stands for.
constexpr std::array<std::uint16_t, 256> kValues = [] {
    std::array<std::uint16_t, 256> values{};
    double value = static_cast<double>(kLinear);
    for (int byte = 0; byte < 256; ++byte) {
        const double strength = byte < kFirstRatio ? byte / static_cast<double>(kStepsToOne) : value;
        values[static_cast<std::size_t>(byte)] =
            static_cast<std::uint16_t>(rounded(static_cast<double>(kUnit) * strength));
        if (byte >= kFirstRatio) value *= kRatio;
    }
    return values;
}();

/// Rows back from a transmission's end to that of each of its chunks, at each shift.
constexpr std::array<std::array<std::uint8_t, kShifts>, kChunks> kAges = [] {
    std::array<std::array<std::uint8_t, kShifts>, kChunks> ages{};
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk)
        for (std::size_t shift = 0; shift < kShifts; ++shift)
            ages[chunk][shift] = static_cast<std::uint8_t>(
                rounded(static_cast<double>(kRowsOfChunk * chunk) /
                        ratioOfShift(static_cast<double>(shift) - static_cast<double>(kMostShift))));
    return ages;
}();

std::uint8_t toByte(float strength, float dither) {
    if (strength > kLoud) strength = kLoud + kLoud / 8.0F * std::log(strength / kLoud);
    const float step = strength < kLinear
                           ? kStepsToOne * strength
                           : static_cast<float>(kFirstRatio) + kRatioSteps * std::log(strength / kLinear);
    return static_cast<std::uint8_t>(std::clamp(step + dither, 0.0F, 255.0F));
}

} // namespace

void Candidates::reset() noexcept {
    for (auto& row : m_rows) row.fill(toByte(kNoise, 0.5F));
    m_bests.fill({});
    m_next = kRows; // so that rows before the first are silence
}

std::optional<Candidate> Candidates::take(std::span<const float, kShifts> row) noexcept {
    pack(row);
    std::move(m_bests.begin() + 1, m_bests.end(), m_bests.begin());
    m_bests.back() = best();
    ++m_next;

    const Best& middle = m_bests[kPatience];
    if (middle.strength < kThreshold) return std::nullopt;
    for (const Best& other : m_bests)
        if (other.strength > middle.strength) return std::nullopt;
    const std::int64_t number = m_next - 1 - kPatience;
    if (!hasManyChunks(number, static_cast<std::size_t>(middle.shifts[0] + kMostShift))) return std::nullopt;
    Candidate candidate{number - static_cast<std::int64_t>(kRows), middle.strength, {}, middle.shiftCount};
    std::copy(middle.shifts.begin(), middle.shifts.end(), candidate.shifts.begin());
    return candidate;
}

void Candidates::pack(std::span<const float, kShifts> row) noexcept {
    // Windows that reach back before the first sample know no noise to measure against.
    const bool isWhole = m_next >= static_cast<std::int64_t>(kRows + kRowsOfChunk);
    // The golden ratio's multiples spread any number of chunks evenly.
    const float turns =
        0.618034F * static_cast<float>(m_next / static_cast<std::int64_t>(kRowsOfChunk) % 1024);
    const float dither = turns - std::floor(turns);
    for (std::size_t i = 0; i < kShifts; ++i)
        m_rows[slot(m_next)][i] = toByte(isWhole ? row[i] : kNoise, dither);
}

/// The strongest shift, and those nearly as strong that are no neighbours of a stronger one.
Candidates::Best Candidates::best() const noexcept {
    std::array<std::int32_t, kShifts> sums{};
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        for (std::size_t shift = 0; shift < kShifts;) { // neighbours mostly lie in one row
            const std::uint8_t age = kAges[chunk][shift];
            const auto& row = m_rows[slot(m_next - age)];
            for (; shift < kShifts && kAges[chunk][shift] == age; ++shift) sums[shift] += kValues[row[shift]];
        }
    }
    Best best;
    const std::int32_t most = *std::max_element(sums.begin(), sums.end());
    best.strength = static_cast<float>(most) / kUnit;
    if (best.strength < kThreshold) return best;
    while (best.shiftCount < best.shifts.size()) {
        const auto next = std::max_element(sums.begin(), sums.end());
        if (static_cast<float>(*next) < kSimilar * static_cast<float>(most)) break;
        const auto place = static_cast<int>(next - sums.begin());
        best.shifts[best.shiftCount++] = static_cast<std::int8_t>(place - kMostShift);
        for (int i = std::max(0, place - kApart + 1); i < std::min(static_cast<int>(kShifts), place + kApart);
             ++i)
            sums[static_cast<std::size_t>(i)] = 0;
    }
    return best;
}

bool Candidates::hasManyChunks(std::int64_t row, std::size_t shift) const noexcept {
    int clear = 0;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk)
        clear += static_cast<float>(kValues[m_rows[slot(row - kAges[chunk][shift])][shift]]) > kClear * kUnit;
    return clear >= kFewestClear;
}

} // namespace sorvel::deep::small
