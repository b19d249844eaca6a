#include "deep/front_end.hpp"

#include "deep/target_clones.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel::deep {

namespace {

constexpr double kLength_s = 0.006;
constexpr double kCutoff_hz = 1330.0;
constexpr double kBeta = 7.86;
// The filter is known at every eighth of a sample, or this often in a second if that is enough.
constexpr std::size_t kMostPositions = 8;
constexpr double kPositions_hz = 8 * 44100.0;
constexpr std::size_t kPiece = 256; // samples of the device mixed at a time

/// Modified Bessel function of the first kind and order 0, by its power series.
double besselI0(double x) {
    double term = 1.0;
    double sum = 1.0;
    for (int k = 1; term > 1e-12 * sum; ++k) {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
    }
    return sum;
}

/// The filter's weight `t` seconds from its middle, not yet scaled to unit gain.
double weight(double t) {
    const double place = 2.0 * t / kLength_s;
    if (std::abs(place) >= 1.0) return 0.0;
    const double x = 2.0 * std::numbers::pi * kCutoff_hz * t;
    const double sinc = x == 0.0 ? 1.0 : std::sin(x) / x;
    return sinc * besselI0(kBeta * std::sqrt(1.0 - place * place));
}

inline float full(float sample) { return std::abs(sample) <= 1e6F ? sample : 0.0F; } // nor not a number
inline float full(std::int16_t sample) { return (1.0F / 32768.0F) * static_cast<float>(sample); }

SORVEL_DEEP_CLONES
void mixDown(const float* x, const float* cosine, const float* sine, float c, float s, std::size_t count,
             float* re, float* im) {
    for (std::size_t i = 0; i < count; ++i) {
        re[i] = x[i] * (c * cosine[i] - s * sine[i]);
        im[i] = -x[i] * (c * sine[i] + s * cosine[i]);
    }
}

struct Sum {
    float re, im;
};

SORVEL_DEEP_CLONES
Sum weightedSum(const float* w, const float* re, const float* im, std::size_t taps) {
    Sum sum{0.0F, 0.0F};
    for (std::size_t i = 0; i < taps; ++i) {
        sum.re += w[i] * re[i];
        sum.im += w[i] * im[i];
    }
    return sum;
}

} // namespace

FrontEnd::FrontEnd(double rate_hz)
    : m_step(rate_hz / kBasebandRate_hz), m_cyclesPerSample(kCentre_hz / rate_hz),
      m_taps((static_cast<std::size_t>(std::ceil(kLength_s * rate_hz)) + 16) / 16 * 16),
      m_positions(std::min(kMostPositions, static_cast<std::size_t>(std::ceil(kPositions_hz / rate_hz)))),
      m_rows(m_step == std::floor(m_step) ? 1 : m_positions + 1), m_piece(kPiece), m_re(m_taps + 4 * kPiece),
      m_im(m_taps + 4 * kPiece) {
    m_weights.reserve(m_rows * m_taps);
    const std::size_t before = m_taps / 2 - 1; // taps before the middle one
    const auto middle = static_cast<double>(before);
    for (std::size_t row = 0; row < m_rows; ++row) {
        const double offset = static_cast<double>(row) / static_cast<double>(m_positions);
        double sum = 0.0;
        for (std::size_t k = 0; k < m_taps; ++k)
            sum += weight((static_cast<double>(k) - offset - middle) / rate_hz);
        // A real tone has half its amplitude at either sign of its frequency.
        for (std::size_t k = 0; k < m_taps; ++k)
            m_weights.push_back(
                static_cast<float>(2.0 / sum * weight((static_cast<double>(k) - offset - middle) / rate_hz)));
    }
    m_turn.reserve(2 * kPiece);
    for (const bool isSine : {false, true}) {
        for (std::size_t k = 0; k < kPiece; ++k) {
            const double angle = 2.0 * std::numbers::pi * m_cyclesPerSample * static_cast<double>(k);
            m_turn.push_back(static_cast<float>(isSine ? std::sin(angle) : std::cos(angle)));
        }
    }
    reset();
}

void FrontEnd::reset() noexcept {
    // As if silence had gone before: the first sample of the baseband lies on the device's first.
    m_held = m_taps / 2 - 1;
    std::fill_n(m_re.begin(), m_held, 0.0F);
    std::fill_n(m_im.begin(), m_held, 0.0F);
    m_taken = 0;
    m_next = 0.0;
}

template <typename Sample>
std::size_t FrontEnd::take(std::span<const Sample>& samples, float* re, float* im) noexcept {
    // So few that what they complete, and what was held back before, has room.
    const std::size_t most = std::min(kPiece, static_cast<std::size_t>(48.0 * m_step));
    const std::size_t count = std::min(samples.size(), most);
    for (std::size_t i = 0; i < count; ++i) m_piece[i] = full(samples[i]);
    samples = samples.subspan(count);
    mix(count);
    const std::size_t written = filter(re, im);
    keepTail();
    return written;
}

template std::size_t FrontEnd::take(std::span<const float>&, float*, float*) noexcept;
template std::size_t FrontEnd::take(std::span<const std::int16_t>&, float*, float*) noexcept;

void FrontEnd::mix(std::size_t count) noexcept {
    const double cycles = m_cyclesPerSample * static_cast<double>(m_taken);
    const double angle = 2.0 * std::numbers::pi * (cycles - std::floor(cycles));
    mixDown(m_piece.data(), m_turn.data(), m_turn.data() + kPiece, static_cast<float>(std::cos(angle)),
            static_cast<float>(std::sin(angle)), count, m_re.data() + m_held, m_im.data() + m_held);
    m_held += count;
    m_taken += count;
}

std::size_t FrontEnd::filter(float* re, float* im) noexcept {
    std::size_t written = 0;
    while (true) {
        const auto first = static_cast<std::size_t>(m_next);
        if (first + m_taps > m_held) return written;
        const float* const r = m_re.data() + first;
        const float* const i = m_im.data() + first;
        if (m_rows == 1) {
            const Sum sum = weightedSum(m_weights.data(), r, i, m_taps);
            re[written] = sum.re;
            im[written] = sum.im;
        } else {
            const double place = (m_next - static_cast<double>(first)) * static_cast<double>(m_positions);
            const auto row = std::min(static_cast<std::size_t>(place), m_positions - 1);
            const auto part = static_cast<float>(place - static_cast<double>(row));
            const Sum a = weightedSum(m_weights.data() + row * m_taps, r, i, m_taps);
            const Sum b = weightedSum(m_weights.data() + (row + 1) * m_taps, r, i, m_taps);
            re[written] = a.re + part * (b.re - a.re);
            im[written] = a.im + part * (b.im - a.im);
        }
        ++written;
        m_next += m_step;
    }
}

void FrontEnd::keepTail() noexcept {
    if (m_held + kPiece <= m_re.size()) return;
    const std::size_t used = std::min(static_cast<std::size_t>(m_next), m_held);
    std::copy(m_re.begin() + static_cast<std::ptrdiff_t>(used),
              m_re.begin() + static_cast<std::ptrdiff_t>(m_held), m_re.begin());
    std::copy(m_im.begin() + static_cast<std::ptrdiff_t>(used),
              m_im.begin() + static_cast<std::ptrdiff_t>(m_held), m_im.begin());
    m_held -= used;
    m_next -= static_cast<double>(used);
}

} // namespace sorvel::deep
