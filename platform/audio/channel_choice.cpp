#include "platform/audio/channel_choice.hpp"

#include "deep/transform.hpp"
#include "platform/audio/rate_converter.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <numeric>

namespace sorvel {

namespace {

constexpr double kLowest_hz = 18000.0, kMiddle_hz = 18726.5625, kHighest_hz = 19453.125; // tones, and between
constexpr double kBand_hz = 39000.0; // rates below do not have it
constexpr double kLongest_s = 0.1;   // of sound that is looked at
constexpr std::size_t kMostPoints = 8192;
constexpr std::ptrdiff_t kPeak_bins = 2; // to both sides, of a tone under the window
constexpr double kShare = 0.1;           // of a look in the mean
constexpr double kMostOut = 100.0;       // that a tone stands out
constexpr double kBetter_db = 1.2;
constexpr double kLevelShare = 0.08; // of a decibel of level
constexpr double kSilence = 1e-12;   // power that counts as none

/// The strongest bin over the mean of those that are not beside it; 1 in silence.
double standingOut(std::span<const double> power) noexcept {
    const auto peak = std::max_element(power.begin(), power.end());
    const auto left = peak - std::min(kPeak_bins, peak - power.begin());
    const auto right = peak + std::min(kPeak_bins + 1, power.end() - peak);
    const double rest = std::accumulate(power.begin(), left, 0.0) + std::accumulate(right, power.end(), 0.0);
    const auto others = static_cast<double>(static_cast<std::ptrdiff_t>(power.size()) - (right - left));
    return std::min((*peak + kSilence) / (rest / others + kSilence), kMostOut);
}

} // namespace

/// Two channels at a time, as real and imaginary part.
struct ChannelChoice::Spectrum {
    explicit Spectrum(double rate_hz)
        : points(std::min(kMostPoints, std::bit_floor(static_cast<std::size_t>(rate_hz * kLongest_s)))),
          transform(points), window(points), re(points), im(points) {
        const double turn = 2.0 * std::numbers::pi / static_cast<double>(points);
        for (std::size_t i = 0; i < points; ++i)
            window[i] = static_cast<float>(0.5 - 0.5 * std::cos(turn * (static_cast<double>(i) + 0.5)));
        const double bins = static_cast<double>(points) / rate_hz;
        first = static_cast<std::size_t>(std::lround(kLowest_hz * bins)) - 1;
        middle = static_cast<std::size_t>(std::lround(kMiddle_hz * bins));
        end = static_cast<std::size_t>(std::lround(kHighest_hz * bins)) + 2;
        power.resize(end - first);
    }

    const std::size_t points;
    deep::Transform transform;
    std::vector<float> window, re, im;
    std::size_t first = 0, middle = 0, end = 0; // bins
    mutable std::vector<double> power;          // of the bins from the first on, of one channel
};

ChannelChoice::ChannelChoice(double rate_hz, std::size_t channels)
    : m_channels(channels),
      m_spectrum(channels > 1 && rate_hz > kBand_hz ? std::make_unique<Spectrum>(rate_hz) : nullptr),
      m_means(channels) {}

ChannelChoice::~ChannelChoice() = default;
ChannelChoice::ChannelChoice(ChannelChoice&&) noexcept = default;
ChannelChoice& ChannelChoice::operator=(ChannelChoice&&) noexcept = default;

std::size_t ChannelChoice::look(std::span<const float> interleaved) noexcept {
    if (!m_spectrum || interleaved.size() < m_spectrum->points * m_channels) return m_best;
    const double share = m_hasLooked ? kShare : 1.0;
    for (std::size_t channel = 0; channel < m_channels; ++channel) {
        if (channel % 2 == 0) transform(interleaved, channel);
        m_means[channel].add(spectrumLook(channel % 2 == 1), share);
    }
    std::size_t best = m_best;
    for (std::size_t channel = 0; channel < m_channels; ++channel)
        if (m_means[channel].score_db() > m_means[best].score_db()) best = channel;
    if (m_means[best].score_db() > m_means[m_best].score_db() + kBetter_db) m_best = best;
    m_hasLooked = true;
    return m_best;
}

void ChannelChoice::Look::add(const Look& other, double share) noexcept {
    lower += share * (other.lower - lower);
    upper += share * (other.upper - upper);
    level_db += share * (other.level_db - level_db);
}

double ChannelChoice::Look::score_db() const noexcept {
    return 10.0 * std::log10(std::min(lower, upper)) + kLevelShare * level_db;
}

void ChannelChoice::transform(std::span<const float> interleaved, std::size_t channel) noexcept {
    Spectrum& own = *m_spectrum;
    const std::size_t second = std::min(channel + 1, m_channels - 1);
    for (std::size_t i = 0; i < own.points; ++i) {
        own.re[i] = interleaved[i * m_channels + channel];
        own.im[i] = interleaved[i * m_channels + second];
    }
    tame(own.re);
    tame(own.im);
    for (std::size_t i = 0; i < own.points; ++i) {
        own.re[i] *= own.window[i];
        own.im[i] *= own.window[i];
    }
    own.transform.forward(own.re.data(), own.im.data());
}

ChannelChoice::Look ChannelChoice::spectrumLook(bool isSecond) const noexcept {
    const Spectrum& own = *m_spectrum;
    for (std::size_t bin = own.first; bin < own.end; ++bin) {
        const std::size_t mirrored = own.points - bin;
        const double re = static_cast<double>(own.re[bin]), otherRe = static_cast<double>(own.re[mirrored]);
        const double im = static_cast<double>(own.im[bin]), otherIm = static_cast<double>(own.im[mirrored]);
        const double a = isSecond ? im + otherIm : re + otherRe, b = isSecond ? re - otherRe : im - otherIm;
        own.power[bin - own.first] = a * a + b * b;
    }
    const std::span<const double> power = own.power;
    const double all = std::accumulate(power.begin(), power.end(), kSilence);
    return {standingOut(power.first(own.middle - own.first)),
            standingOut(power.subspan(own.middle - own.first)), 10.0 * std::log10(all)};
}

void takeChannel(std::span<const float> interleaved, std::size_t channels, std::size_t channel,
                 std::span<float> mono) noexcept {
    if (channels == 2) // known when compiling, which makes it faster
        for (std::size_t frame = 0; frame < mono.size(); ++frame)
            mono[frame] = interleaved[frame * 2 + channel];
    else
        for (std::size_t frame = 0; frame < mono.size(); ++frame)
            mono[frame] = interleaved[frame * channels + channel];
    tame(mono);
}

} // namespace sorvel
