#include "deep/small_front_end.hpp"

#include "deep/small_tables.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel::deep::small {

namespace {

constexpr double kHighest_hz = 50000.0; // of what is held
constexpr double kOne = 4294967296.0;   // a sample, in the units of positions

float full(float sample) { return std::abs(sample) <= 1e6F ? sample : 0.0F; } // nor not a number
float full(std::int16_t sample) { return (1.0F / 32768.0F) * static_cast<float>(sample); }

struct Sum {
    float re, im;
};

/// Every tap on an entry of the table, `step` apart.
Sum sumOnEntries(const float* re, const float* im, std::size_t taps, std::int32_t from, std::int32_t step) {
    Sum sum{0.0F, 0.0F};
    for (std::size_t i = 0; i < taps; ++i) {
        const float w = kBandFilter.weights[static_cast<std::size_t>(std::abs(from))];
        from += step;
        sum.re += w * re[i];
        sum.im += w * im[i];
    }
    return sum;
}

/// Between entries; positions count in 2^-16 of them.
Sum sumBetween(const float* re, const float* im, std::size_t taps, std::int32_t from, std::int32_t step) {
    Sum sum{0.0F, 0.0F};
    for (std::size_t i = 0; i < taps; ++i) {
        const auto place = static_cast<std::uint32_t>(std::abs(from));
        const float* const w = kBandFilter.weights.data() + (place >> 16U);
        const float part = (1.0F / 65536.0F) * static_cast<float>(place & 0xFFFFU);
        const float weight = w[0] + part * (w[1] - w[0]);
        from += step;
        sum.re += weight * re[i];
        sum.im += weight * im[i];
    }
    return sum;
}

} // namespace

FrontEnd::FrontEnd(double rate_hz)
    : m_phaseStep(static_cast<std::uint64_t>(std::ldexp(kCentre_hz / rate_hz, 64))) {
    double held_hz = rate_hz;
    double offset = 0.0; // of held sample 0 from the device's, in held samples
    while (held_hz > kHighest_hz) {
        ++m_halvings;
        held_hz /= 2.0;
        offset = (offset - 0.5) / 2.0;
    }
    const double entries = BandFilter::kRate_hz / held_hz;
    const double step = held_hz / kBasebandRate_hz;
    m_reach = static_cast<std::size_t>(static_cast<double>(BandFilter::kReach) / entries);
    m_step = static_cast<std::uint64_t>(std::llround(step * kOne));
    m_start = static_cast<std::int64_t>((static_cast<double>(m_reach) - offset) * kOne);
    m_tableStep = static_cast<std::uint32_t>(std::lround(entries * 65536.0));
    m_isWhole = m_halvings == 0 && step == std::floor(step) && entries == std::floor(entries);
    // A real tone has half its amplitude at either sign of its frequency.
    m_gain = static_cast<float>(2.0 * entries / kBandFilter.sum);
    for (std::size_t i = 0; i < kPiece; ++i) {
        const double angle = 2.0 * std::numbers::pi * kCentre_hz / rate_hz * static_cast<double>(i);
        m_cosines[i] = static_cast<float>(std::cos(angle));
        m_sines[i] = static_cast<float>(std::sin(angle));
    }
    reset();
}

void FrontEnd::reset() noexcept {
    // As if silence had gone before.
    m_held = m_reach;
    m_re.fill(0.0F);
    m_im.fill(0.0F);
    m_halving.fill({});
    m_phase = 0;
    m_next = m_start;
}

template <typename Sample>
void FrontEnd::mix(std::span<const Sample>& samples) noexcept {
    keepTail();
    const std::size_t count = std::min(samples.size(), kPiece);
    const float angle = static_cast<float>(2.0 * std::numbers::pi) / 16777216.0F *
                        static_cast<float>(static_cast<std::uint32_t>(m_phase >> 40U));
    const float c = std::cos(angle);
    const float s = std::sin(angle);
    std::array<float, kPiece> re{}, im{};
    for (std::size_t i = 0; i < count; ++i) {
        const float x = full(samples[i]);
        re[i] = x * (c * m_cosines[i] - s * m_sines[i]);
        im[i] = -x * (c * m_sines[i] + s * m_cosines[i]);
    }
    m_phase += m_phaseStep * count;
    samples = samples.subspan(count);
    if (m_halvings == 0) {
        std::copy_n(re.begin(), count, m_re.begin() + static_cast<std::ptrdiff_t>(m_held));
        std::copy_n(im.begin(), count, m_im.begin() + static_cast<std::ptrdiff_t>(m_held));
        m_held += count;
        return;
    }
    for (std::size_t i = 0; i < count; ++i) append(re[i], im[i]);
}

template void FrontEnd::mix(std::span<const float>&) noexcept;
template void FrontEnd::mix(std::span<const std::int16_t>&) noexcept;

void FrontEnd::append(float re, float im) noexcept {
    for (int i = 0; i < m_halvings; ++i)
        if (!m_halving[static_cast<std::size_t>(i)].take(re, im)) return;
    m_re[m_held] = re;
    m_im[m_held++] = im;
}

bool FrontEnd::Halving::take(float& r, float& i) noexcept {
    const float newRe = r;
    const float newIm = i;
    r = 0.125F * (re[0] + newRe) + 0.375F * (re[1] + re[2]);
    i = 0.125F * (im[0] + newIm) + 0.375F * (im[1] + im[2]);
    re = {re[1], re[2], newRe};
    im = {im[1], im[2], newIm};
    isSecond = !isSecond;
    return !isSecond;
}

bool FrontEnd::next(float& re, float& im) noexcept {
    const auto middle = static_cast<std::size_t>(m_next >> 32U);
    if (middle + m_reach >= m_held) return false;
    const std::size_t first = middle - m_reach;
    const std::size_t taps = 2 * m_reach + 1;
    Sum sum{};
    if (m_isWhole) {
        const auto step = static_cast<std::int32_t>(m_tableStep >> 16U);
        sum =
            sumOnEntries(&m_re[first], &m_im[first], taps, -static_cast<std::int32_t>(m_reach) * step, step);
    } else {
        // One tap less at the end: its place may be beyond the table.
        const auto part = static_cast<std::uint64_t>(m_next & 0xFFFFFFFF);
        const auto step = static_cast<std::int32_t>(m_tableStep);
        const auto from =
            -static_cast<std::int32_t>(m_reach) * step - static_cast<std::int32_t>(part * m_tableStep >> 32U);
        const bool isBeyond = from < -static_cast<std::int32_t>(BandFilter::kReach << 16U);
        const std::size_t skipped = isBeyond ? 1 : 0;
        sum = sumBetween(&m_re[first + skipped], &m_im[first + skipped], taps - skipped,
                         isBeyond ? from + step : from, step);
    }
    re = m_gain * sum.re;
    im = m_gain * sum.im;
    m_next += static_cast<std::int64_t>(m_step);
    return true;
}

void FrontEnd::keepTail() noexcept {
    if (m_held + kPiece <= kHeld) return;
    const std::size_t used = std::min(static_cast<std::size_t>(m_next >> 32U) - m_reach, m_held);
    std::copy(m_re.begin() + static_cast<std::ptrdiff_t>(used),
              m_re.begin() + static_cast<std::ptrdiff_t>(m_held), m_re.begin());
    std::copy(m_im.begin() + static_cast<std::ptrdiff_t>(used),
              m_im.begin() + static_cast<std::ptrdiff_t>(m_held), m_im.begin());
    m_held -= used;
    m_next -= static_cast<std::int64_t>(used) << 32U;
}

} // namespace sorvel::deep::small
