#include "sorvel/rate_conversion.hpp"

#include "modem/target_clones.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

namespace sorvel::stream {

namespace {

constexpr double kHalfWidth = 32.0;         // samples at the lower rate
constexpr double kPlacesPerSample = 128.0;  // at the lower rate: straight lines between are 86 dB off at most
constexpr std::size_t kLanes = 16;          // sums side by side
constexpr std::size_t kRoom_samples = 1024; // beyond the taps

// 104 dB with a transition of 0.116 of the rate (Kaiser, "Nonrecursive digital filter design using
// the I0-sinh window function", 1974).
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

SORVEL_TARGET_CLONES float weightedSum(const float* x, const float* w, std::size_t taps) {
    std::array<float, kLanes> sums{};
    for (std::size_t tap = 0; tap < taps; tap += kLanes)
        for (std::size_t lane = 0; lane < kLanes; ++lane) sums[lane] += x[tap + lane] * w[tap + lane];
    for (std::size_t half = kLanes / 2; half > 0; half /= 2)
        for (std::size_t lane = 0; lane < half; ++lane) sums[lane] += sums[lane + half];
    return sums[0];
}

} // namespace

RateConversion::RateConversion(double from_hz, double to_hz)
    : m_step(from_hz / to_hz), m_taps(0), m_places(0) {
    if (m_step == 1.0) return;
    const double fall = std::max(1.0, m_step);
    m_taps = (static_cast<std::size_t>(std::ceil(2.0 * kHalfWidth * fall)) + kLanes - 1) / kLanes * kLanes;
    if (m_step != std::floor(m_step)) m_places = static_cast<std::size_t>(std::ceil(kPlacesPerSample / fall));
    m_line.resize(m_taps + kRoom_samples);
    makeWeights(m_step);
    reset();
}

/// A row's taps have their middle m_taps / 2 - 1 samples behind the first, and its place behind
/// that. Each row passes a constant unchanged.
void RateConversion::makeWeights(double step) {
    const double cutoff = std::min(1.0, 1.0 / step); // of half the input's rate
    const double width = static_cast<double>(m_taps) / 2.0;
    std::vector<double> row(m_taps);
    m_weights.reserve((m_places + 1) * m_taps);
    for (std::size_t place = 0; place <= m_places; ++place) {
        const double behind =
            m_places == 0 ? 0.0 : static_cast<double>(place) / static_cast<double>(m_places);
        for (std::size_t tap = 0; tap < m_taps; ++tap) {
            const double t = static_cast<double>(tap) - (width - 1.0 + behind);
            const double x = std::numbers::pi * cutoff * t;
            const double inside = std::max(0.0, 1.0 - t * t / (width * width));
            row[tap] = (x == 0.0 ? 1.0 : std::sin(x) / x) * bessel0(kBeta * std::sqrt(inside));
        }
        const double sum = std::accumulate(row.begin(), row.end(), 0.0);
        for (const double weight : row) m_weights.push_back(static_cast<float>(weight / sum));
    }
}

void RateConversion::reset() noexcept {
    if (m_taps == 0) return;
    // As if silence had gone before: the first output lies on the first input.
    m_held = m_taps / 2 - 1;
    std::fill_n(m_line.begin(), m_held, 0.0F);
    m_next = 0.0;
}

RateConversion::Step RateConversion::convert(std::span<const float> in, std::span<float> out) noexcept {
    Step all;
    if (m_taps == 0) {
        all.consumed = all.produced = std::min(in.size(), out.size());
        std::copy_n(in.begin(), all.produced, out.begin());
        return all;
    }
    while (all.produced < out.size()) {
        if (static_cast<std::size_t>(m_next) + m_taps <= m_held) {
            out[all.produced++] = outputAt(m_next);
            m_next += m_step;
        } else {
            if (all.consumed == in.size()) break;
            all.consumed += take(in.subspan(all.consumed));
        }
    }
    return all;
}

/// Appends what has room, after what is not needed any more has made it; at least one sample.
std::size_t RateConversion::take(std::span<const float> in) noexcept {
    if (m_held == m_line.size()) {
        const auto passed = static_cast<std::size_t>(m_next);
        std::copy(m_line.begin() + static_cast<std::ptrdiff_t>(passed), m_line.end(), m_line.begin());
        m_held -= passed;
        m_next -= static_cast<double>(passed);
    }
    const std::size_t count = std::min(in.size(), m_line.size() - m_held);
    std::copy_n(in.begin(), count, m_line.begin() + static_cast<std::ptrdiff_t>(m_held));
    m_held += count;
    return count;
}

float RateConversion::outputAt(double place) const noexcept {
    const auto first = static_cast<std::size_t>(place);
    const float* const x = m_line.data() + first;
    if (m_places == 0) return weightedSum(x, m_weights.data(), m_taps);
    const double row = (place - static_cast<double>(first)) * static_cast<double>(m_places);
    const auto before = std::min(static_cast<std::size_t>(row), m_places - 1);
    const auto part = static_cast<float>(row - static_cast<double>(before));
    const float a = weightedSum(x, m_weights.data() + before * m_taps, m_taps);
    const float b = weightedSum(x, m_weights.data() + (before + 1) * m_taps, m_taps);
    return a + part * (b - a);
}

} // namespace sorvel::stream
