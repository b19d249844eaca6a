#include "deep/motion_gate.hpp"

#include "deep/target_clones.hpp"
#include "deep/window.hpp"

#include <algorithm>

namespace sorvel::deep {

namespace {

constexpr std::size_t kPoints = 512;
constexpr float kNoiseScore = 6.76F;
constexpr float kNever = -1e9F;
// A sum that forgets 1/160 a row and reaches this may have a path behind it that is worth kWorth.
constexpr float kWake = 262.0F;
constexpr float kWorth = 290.0F;
// A path that lost this much since its peak is over: it loses a row that fitted with each that does not.
constexpr float kFall = 0.02F; // of its worth
constexpr float kLeastFall = 15.0F;
constexpr float kMostColour = 16.0F;
constexpr std::size_t kSpans = 4, kRowsPerSpan = 24; // that a whistle has to fill: 2.3 s
// A path over fewer rows is no transmission's; whistles that were there from the beginning are known by then.
constexpr std::uint64_t kLeastRows = 120;

/// One row further along the best path: up to 3 shifts up or down, at 1 each.
template <std::size_t kSize>
inline void advance(std::array<float, kSize>& path, const float* score, std::size_t pad, std::size_t shifts,
                    float keep) {
    std::array<float, kSize> one{}, three{};
    for (std::size_t i = pad - 2; i < pad + shifts + 2; ++i) {
        const float side = (path[i - 1] > path[i + 1] ? path[i - 1] : path[i + 1]) - 1.0F;
        one[i] = side > path[i] ? side : path[i];
    }
    for (std::size_t i = pad; i < pad + shifts; ++i) {
        const float side = (one[i - 2] > one[i + 2] ? one[i - 2] : one[i + 2]) - 2.0F;
        three[i] = side > one[i] ? side : one[i];
    }
    for (std::size_t i = 0; i < shifts; ++i) path[pad + i] = keep * three[pad + i] + (score[i] - kNoiseScore);
}

template <std::size_t kSize>
inline void clear(std::array<float, kSize>& path, std::size_t pad, std::size_t shifts) {
    path.fill(kNever);
    for (std::size_t i = 0; i < shifts; ++i) path[pad + i] = 0.0F;
}

template <std::size_t kSize>
inline float largest(const std::array<float, kSize>& path, std::size_t pad, std::size_t shifts) {
    float most = kNever;
    for (std::size_t i = 0; i < shifts; ++i) most = path[pad + i] > most ? path[pad + i] : most;
    return most;
}

template <std::size_t kSize>
SORVEL_DEEP_CLONES void forgetAndAdd(std::array<float, kSize>& path, const float* score, std::size_t pad,
                                     std::size_t shifts) {
    advance(path, score, pad, shifts, 1.0F - 1.0F / 160.0F);
}

template <std::size_t kSize>
SORVEL_DEEP_CLONES float bestOf(const float* scores, std::size_t ring, std::size_t first, std::size_t rows,
                                std::size_t pad, std::size_t shifts) {
    std::array<float, kSize> path{};
    clear(path, pad, shifts);
    for (std::size_t i = 0; i < rows; ++i)
        advance(path, scores + (first + i) % ring * shifts, pad, shifts, 1.0F);
    return largest(path, pad, shifts);
}

SORVEL_DEEP_CLONES
void multiply(float* __restrict power, const float* __restrict colour, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) power[i] *= colour[i];
}

SORVEL_DEEP_CLONES
void scaleBy(float* values, std::size_t n, float factor) {
    for (std::size_t i = 0; i < n; ++i) values[i] *= factor;
}

/// Keeps the lower quartile of every bin where it is in noise, at 0.288: a quarter of the rows raise it by
/// as much as three quarters lower it. Faster down under what stands far out.
SORVEL_DEEP_CLONES
void follow(const float* __restrict power, float* __restrict colour, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        const float e = power[i];
        const float down = e > 30.0F ? 0.96F : 0.9933F;
        const float next = colour[i] * (e > 0.288F ? down : 1.0203F);
        colour[i] = next > kMostColour ? kMostColour : next;
    }
}

} // namespace

MotionGate::MotionGate()
    : m_transform(kPoints), m_comb(kPoints, kReach), m_window(trapezoid(kWindow_samples, 0.2)), m_re(kPoints),
      m_im(kPoints), m_power(m_comb.bins()), m_colour(m_comb.bins()),
      m_lines(m_comb.bins(), kSpans, kRowsPerSpan), m_scores(kRows * kShifts) {
    reset();
}

void MotionGate::reset() noexcept {
    std::fill(m_colour.begin(), m_colour.end(), 1.0F);
    m_lines.reset();
    clear(m_path, kPad, kShifts);
    m_worth.fill(0.0F);
    m_row = m_firstRow = m_candidate = m_lastCandidate = 0;
    m_isWaiting = m_hasRows = false;
}

void MotionGate::push(const float* re, const float* im, std::uint64_t row) noexcept {
    if (!m_hasRows) {
        m_hasRows = true;
        m_firstRow = m_lastCandidate = row;
    }
    m_row = row;
    std::fill(m_re.begin() + kWindow_samples, m_re.end(), 0.0F);
    std::fill(m_im.begin() + kWindow_samples, m_im.end(), 0.0F);
    for (std::size_t i = 0; i < kWindow_samples; ++i) {
        m_re[i] = re[i] * m_window[i];
        m_im[i] = im[i] * m_window[i];
    }
    m_transform.forward(m_re.data(), m_im.data());
    m_comb.powers(m_re.data(), m_im.data(), m_power.data());
    multiply(m_power.data(), m_colour.data(), m_power.size());
    scaleBy(m_power.data(), m_power.size(), 1.0F / ToneComb::noise(m_power));
    const bool isNewLine = m_lines.takeOut(m_power);
    follow(m_power.data(), m_colour.data(), m_power.size());
    float* const scores = m_scores.data() + row % kRows * kShifts;
    m_comb.scores(m_power.data(), 1.0F, -kReach, kReach, scores);
    forgetAndAdd(m_path, scores, kPad, kShifts);
    if (isNewLine) beginAnew(row + 1); // the rows so far owe their scores to it
    m_worth[row % kKept] = largest(m_path, kPad, kShifts) >= kWake ? bestPath() : 0.0F;
    decide();
}

float MotionGate::bestPath() const noexcept {
    const auto rows = static_cast<std::size_t>(std::min<std::uint64_t>(kRows, m_row + 1 - m_firstRow));
    const auto first = static_cast<std::size_t>((m_row + 1 - rows) % kRows);
    return bestOf<std::tuple_size_v<Path>>(m_scores.data(), kRows, first, rows, kPad, kShifts);
}

/// The oldest first: by then it is known best.
void MotionGate::decide() noexcept {
    for (std::uint64_t age = kLatency_rows; age >= kSoonest_rows; --age)
        if (m_row >= m_firstRow + age && isEnd(age)) return take(m_row - age);
}

/// Whether the row that is `age` rows old is a peak or a plateau, and no higher one can follow.
bool MotionGate::isEnd(std::uint64_t age) const noexcept {
    const std::uint64_t row = m_row - age;
    const float height = m_worth[row % kKept];
    if (height < kWorth || row < m_lastCandidate + 8 || row < m_firstRow + kLeastRows) return false;
    float most = 0.0F; // of the 12 rows before and all that came since
    for (std::uint64_t back = 0; back <= age + kLatency_rows; ++back)
        most = std::max(most, m_worth[(m_row + kKept - back) % kKept]);
    const bool isPlateau = height >= 0.98F * most && row >= m_lastCandidate + 16;
    if (age == kLatency_rows && isPlateau) return true;
    return height >= most &&
           (age == kLatency_rows || worth() <= height - std::max(kFall * height, kLeastFall));
}

void MotionGate::take(std::uint64_t row) noexcept {
    m_candidate = m_lastCandidate = row;
    m_isWaiting = true;
}

bool MotionGate::takeCandidate(std::uint64_t& endRow) noexcept {
    if (!m_isWaiting) return false;
    m_isWaiting = false;
    endRow = m_candidate;
    return true;
}

void MotionGate::beginAnew(std::uint64_t row) noexcept {
    m_firstRow = row;
    m_worth.fill(0.0F);
    m_isWaiting = false;
    clear(m_path, kPad, kShifts);
}

void MotionGate::forget(std::uint64_t endRow) noexcept {
    if (!m_hasRows || endRow < m_firstRow) return;
    beginAnew(endRow + 1);
    // What followed the transmission is still in the ring, so the next one loses nothing.
    for (std::uint64_t row = std::max(m_firstRow, m_row + 1 - std::min<std::uint64_t>(m_row + 1, kRows));
         row <= m_row; ++row)
        forgetAndAdd(m_path, m_scores.data() + row % kRows * kShifts, kPad, kShifts);
}

} // namespace sorvel::deep
