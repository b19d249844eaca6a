#include "platform/audio/polyphase_filter.hpp"

#include "modem/target_clones.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

namespace sorvel {

namespace {

constexpr std::size_t kMostRows = 320;
constexpr std::size_t kMostFall = 8;
constexpr std::size_t kTaps = 2 * PolyphaseFilter::kAhead; // at the lower rate
constexpr std::size_t kLanes = 16;                         // sums side by side
constexpr std::size_t kRoom_samples = 1024;

// 104 dB with a transition of 0.116 of the rate (Kaiser, "Nonrecursive digital filter design using the
// I0-sinh window function", 1974).
constexpr double kBeta = 0.1102 * (104.0 - 8.7);

/// The modified Bessel function of order 0, by its series: not every standard library has it.
double bessel0(double x) {
    double sum = 1.0, term = 1.0;
    for (int k = 1; term > 1e-18 * sum; ++k) {
        term *= x * x / (4.0 * k * k);
        sum += term;
    }
    return sum;
}

struct Place {
    std::size_t first, place;
};

/// Makes as many output samples as `out` has room for.
SORVEL_TARGET_CLONES Place makeSamples(const float* line, Place at, const float* weights, std::size_t rows,
                                       std::size_t step, std::size_t taps, std::span<float> out) {
    for (float& sample : out) {
        const float* const x = line + at.first;
        const float* const w = weights + at.place * taps;
        std::array<float, kLanes> sums{};
        for (std::size_t tap = 0; tap < taps; tap += kLanes)
            for (std::size_t lane = 0; lane < kLanes; ++lane) sums[lane] += x[tap + lane] * w[tap + lane];
        for (std::size_t half = kLanes / 2; half > 0; half /= 2)
            for (std::size_t lane = 0; lane < half; ++lane) sums[lane] += sums[lane + half];
        sample = sums[0];
        at.place += step;
        at.first += at.place / rows;
        at.place %= rows;
    }
    return at;
}

} // namespace

std::optional<PolyphaseFilter> PolyphaseFilter::make(std::uint32_t from, std::uint32_t to) {
    if (from == 0 || to == 0) return std::nullopt;
    const std::uint32_t common = std::gcd(from, to);
    const std::size_t rows = to / common, step = from / common;
    if (rows > kMostRows || step > kMostFall * rows) return std::nullopt;
    const std::size_t taps = step <= rows ? kTaps : kTaps * step / rows;
    return PolyphaseFilter(rows, step, (taps + kLanes - 1) / kLanes * kLanes);
}

PolyphaseFilter::PolyphaseFilter(std::size_t rows, std::size_t step, std::size_t taps)
    : m_rows(rows), m_step(step), m_taps(taps), m_weights(rows * taps), m_line(taps + kRoom_samples),
      m_count(taps - 1) {
    makeWeights();
}

/// The sample in place p lies p / rows behind the tap in the middle. Each row passes a constant unchanged.
void PolyphaseFilter::makeWeights() {
    const double width = static_cast<double>(m_taps) / 2.0;
    const double cutoff = std::min(1.0, static_cast<double>(m_rows) / static_cast<double>(m_step));
    std::vector<double> row(m_taps);
    for (std::size_t place = 0; place < m_rows; ++place) {
        const double middle = width - 1.0 + static_cast<double>(place) / static_cast<double>(m_rows);
        for (std::size_t tap = 0; tap < m_taps; ++tap) {
            const double t = static_cast<double>(tap) - middle, x = std::numbers::pi * cutoff * t;
            const double inside = std::max(0.0, 1.0 - t * t / (width * width));
            row[tap] = (x == 0.0 ? 1.0 : std::sin(x) / x) * bessel0(kBeta * std::sqrt(inside));
        }
        const double sum = std::accumulate(row.begin(), row.end(), 0.0);
        for (std::size_t tap = 0; tap < m_taps; ++tap)
            m_weights[place * m_taps + tap] = static_cast<float>(row[tap] / sum);
    }
}

Converted PolyphaseFilter::process(std::span<const float> in, std::span<float> out) noexcept {
    Converted all;
    while (all.produced < out.size()) {
        dropPassed();
        const std::size_t missing = wanted(out.size() - all.produced) - m_count;
        const std::size_t n = std::min({missing, in.size() - all.consumed, m_line.size() - m_count});
        std::copy_n(in.begin() + static_cast<std::ptrdiff_t>(all.consumed), n,
                    m_line.begin() + static_cast<std::ptrdiff_t>(m_count));
        m_count += n;
        all.consumed += n;
        // As many as end within the line.
        std::size_t made = 0;
        if (m_count >= m_first + m_taps)
            made = ((m_count - m_first - m_taps + 1) * m_rows - m_place + m_step - 1) / m_step;
        made = std::min(made, out.size() - all.produced);
        if (made == 0 && n == 0) break;
        const Place at = makeSamples(m_line.data(), {m_first, m_place}, m_weights.data(), m_rows, m_step,
                                     m_taps, out.subspan(all.produced, made));
        m_first = at.first;
        m_place = at.place;
        all.produced += made;
    }
    return all;
}

/// Where the line has to end for so many output samples, as far as it has room.
std::size_t PolyphaseFilter::wanted(std::size_t outputs) const noexcept {
    const std::size_t most = std::min<std::size_t>(outputs, kRoom_samples * m_rows);
    const std::size_t last = m_first + (m_place + (most - 1) * m_step) / m_rows;
    return std::max(m_count, last + m_taps);
}

/// Moves what is still needed to the front.
void PolyphaseFilter::dropPassed() noexcept {
    const std::size_t passed = std::min(m_first, m_count);
    std::copy(m_line.begin() + static_cast<std::ptrdiff_t>(passed),
              m_line.begin() + static_cast<std::ptrdiff_t>(m_count), m_line.begin());
    m_first -= passed;
    m_count -= passed;
}

} // namespace sorvel
