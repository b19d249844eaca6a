#include "platform/channel_choice.hpp"

#include "deep/transform.hpp"
#include "platform/rate_converter.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

namespace sorvel {

namespace {

constexpr double kLowest_hz = 18000.0, kMiddle_hz = 18726.5625, kHighest_hz = 19453.125; // tones, and between
constexpr double kBand_hz = 39000.0; // rates below do not have it
constexpr double kLongest_s = 0.05;  // of sound that is looked at
constexpr std::size_t kMostPoints = 2048;
constexpr std::ptrdiff_t kPeak_bins = 2; // to both sides, of a tone under the window
constexpr double kShare = 0.1;           // of a look in the mean
constexpr double kBetter_db = 1.5;
constexpr double kLevelShare = 0.1; // of a decibel of level
constexpr double kSilence = 1e-12;  // power that counts as none

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
      m_scores_db(channels) {}

ChannelChoice::~ChannelChoice() = default;
ChannelChoice::ChannelChoice(ChannelChoice&&) noexcept = default;
ChannelChoice& ChannelChoice::operator=(ChannelChoice&&) noexcept = default;

std::size_t ChannelChoice::look(std::span<const float> interleaved) noexcept {
    if (!m_spectrum || interleaved.size() < m_spectrum->points * m_channels) return m_best;
    const double share = m_hasLooked ? kShare : 1.0;
    for (std::size_t channel = 0; channel < m_channels; ++channel) {
        if (channel % 2 == 0) transform(interleaved, channel);
        m_scores_db[channel] += share * (score(channel % 2 == 1) - m_scores_db[channel]);
    }
    const auto best = static_cast<std::size_t>(std::max_element(m_scores_db.begin(), m_scores_db.end()) -
                                               m_scores_db.begin());
    if (m_scores_db[best] > m_scores_db[m_best] + kBetter_db) m_best = best;
    m_hasLooked = true;
    return m_best;
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

/// How far the strongest bin stands out in the half where it does so less, in decibels, and the share of
/// the level.
double ChannelChoice::score(bool isSecond) const noexcept {
    const Spectrum& own = *m_spectrum;
    for (std::size_t bin = own.first; bin < own.end; ++bin) {
        const std::size_t mirrored = own.points - bin;
        const double re = static_cast<double>(own.re[bin]), otherRe = static_cast<double>(own.re[mirrored]);
        const double im = static_cast<double>(own.im[bin]), otherIm = static_cast<double>(own.im[mirrored]);
        const double a = isSecond ? im + otherIm : re + otherRe, b = isSecond ? re - otherRe : im - otherIm;
        own.power[bin - own.first] = a * a + b * b;
    }
    const auto begin = own.power.cbegin();
    const auto middle = begin + static_cast<std::ptrdiff_t>(own.middle - own.first);
    double all = kSilence, least = 1e12;
    for (const auto& [from, to] : {
             std::pair{begin,  middle          },
             std::pair{middle, own.power.cend()}
    }) {
        const auto peak = std::max_element(from, to);
        const auto left = peak - std::min(kPeak_bins, peak - from);
        const auto right = peak + std::min(kPeak_bins + 1, to - peak);
        double rest = kSilence;
        for (auto bin = from; bin != to; ++bin) {
            all += *bin;
            if (bin < left || bin >= right) rest += *bin;
        }
        const auto others = static_cast<double>((to - from) - (right - left));
        least = std::min(least, std::max(*peak, kSilence) * others / rest);
    }
    return 10.0 * std::log10(least) + kLevelShare * 10.0 * std::log10(all);
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
