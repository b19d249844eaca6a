#include "tools/check_analysis.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel::check {

namespace {

constexpr double kSpacing_hz = 46.875;
constexpr double kFirstProbe_hz = 373 * kSpacing_hz;
constexpr double kLowestTone_hz = 18000.0, kHighestTone_hz = 19500.0;

// In hops of the search, so that every probe begins at a whole one.
constexpr double kHop_s = 0.008;
constexpr std::size_t kProbeHops = 12; // 96 ms
constexpr std::size_t kMiddleHops = 4; // from a probe's start to the window amidst it
constexpr std::size_t kWindowHops = 4; // 32 ms, under which Hann's window takes in 46.9 Hz of noise
constexpr std::size_t kReturning = 16; // probes
constexpr double kEdge_s = 0.008;      // of a probe, at either end
constexpr double kLead_s = 1.5, kPause_s = 0.5, kTail_s = 1.0;

// How late the probes may come: an input and an output of a sound server take up to 2 s each.
constexpr double kLatest_s = 6.0;
constexpr double kReturnRange_s = 1.5; // before and behind the time at which they are due

// Of 55 or 16 windows of noise one stands 10 dB over the median in every second recording.
constexpr double kStandsOut = 10.0;
constexpr std::size_t kFewestProbes = 10, kFewestReturning = 6;

constexpr double kFloor = 1e-14; // -140 dBFS, below what floats of a sound server resolve

double decibels(double power) { return 10.0 * std::log10(power + kFloor); }

/// Hann's window, and the power of a tone under it: Goertzel, "An algorithm for the evaluation of
/// finite trigonometric series" (1958).
class Window {
public:
    explicit Window(std::size_t length) : m_weights(length) {
        double sum = 0.0;
        for (std::size_t i = 0; i < length; ++i) {
            m_weights[i] = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * (static_cast<double>(i) + 0.5) /
                                                static_cast<double>(length));
            sum += m_weights[i];
        }
        m_scale = 4.0 / (sum * sum);
    }
    std::size_t length() const noexcept { return m_weights.size(); }

    /// 1.0 for a sine of full scale. @param samples  as many as the window has
    double power(std::span<const float> samples, double frequency_hz, double rate_hz) const noexcept {
        const double c = 2.0 * std::cos(2.0 * std::numbers::pi * frequency_hz / rate_hz);
        double last = 0.0, before = 0.0;
        for (std::size_t i = 0; i < m_weights.size(); ++i) {
            const double next = m_weights[i] * static_cast<double>(samples[i]) + c * last - before;
            before = last;
            last = next;
        }
        return m_scale * (last * last + before * before - c * last * before);
    }

private:
    std::vector<double> m_weights;
    double m_scale = 0.0;
};

std::size_t samplesIn(double seconds, double rate_hz) {
    return static_cast<std::size_t>(std::llround(seconds * rate_hz));
}

/// The probe that sounds as the `place`-th: 21 and 55 have no factor in common.
std::size_t probeAt(std::size_t place) noexcept { return place * 21 % kProbes; }

void appendProbe(std::vector<float>& sound, std::size_t probe, double rate_hz, double amplitude) {
    const std::size_t length = samplesIn(kProbeHops * kHop_s, rate_hz);
    const double edge = kEdge_s * rate_hz;
    for (std::size_t i = 0; i < length; ++i) {
        const double toEdge = std::min(static_cast<double>(i), static_cast<double>(length - i));
        const double envelope = 0.5 - 0.5 * std::cos(std::numbers::pi * std::min(1.0, toEdge / edge));
        const double phase = 2.0 * std::numbers::pi * probe_hz(probe) * static_cast<double>(i) / rate_hz;
        sound.push_back(static_cast<float>(amplitude * envelope * std::sin(phase)));
    }
}

void appendQuiet(std::vector<float>& sound, double seconds, double rate_hz) {
    sound.resize(sound.size() + samplesIn(seconds, rate_hz));
}

/// Looks at a recording through windows that begin at whole hops, and remembers what it saw.
class Hops {
public:
    Hops(std::span<const float> recording, double rate_hz)
        : m_recording(recording), m_rate_hz(rate_hz), m_window(samplesIn(kWindowHops * kHop_s, rate_hz)) {
        const std::size_t last =
            recording.size() < m_window.length() ? 0 : recording.size() - m_window.length();
        m_count = recording.size() < m_window.length()
                      ? 0
                      : static_cast<std::size_t>(static_cast<double>(last) / (kHop_s * rate_hz)) + 1;
        m_powers.assign(m_count * kProbes, -1.0F);
    }
    std::size_t count() const noexcept { return m_count; }

    double power(std::size_t hop, std::size_t probe) {
        if (hop >= m_count) return 0.0;
        float& known = m_powers[hop * kProbes + probe];
        if (known < 0.0F) {
            const std::size_t from = std::min(samplesIn(static_cast<double>(hop) * kHop_s, m_rate_hz),
                                              m_recording.size() - m_window.length());
            known = static_cast<float>(
                m_window.power(m_recording.subspan(from, m_window.length()), probe_hz(probe), m_rate_hz));
        }
        return static_cast<double>(known);
    }

private:
    std::span<const float> m_recording;
    double m_rate_hz;
    Window m_window;
    std::size_t m_count = 0;
    std::vector<float> m_powers; // by hop and probe; below 0: not looked at
};

double median(std::vector<double> values) {
    if (values.empty()) return 0.0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct Match {
    std::size_t hop = 0;
    std::size_t outstanding = 0; // probes that stand out of the noise
};

/// Where the first `places` probes fit best, between two hops. Each counts by the logarithm of what
/// it stands out, so that none outweighs the others.
Match bestMatch(Hops& hops, std::size_t from, std::size_t to, std::size_t places) {
    std::vector<double> usual(kProbes);
    for (std::size_t place = 0; place < places; ++place) {
        std::vector<double> powers;
        for (std::size_t hop = from; hop < std::min(to + places * kProbeHops, hops.count()); ++hop)
            powers.push_back(hops.power(hop, probeAt(place)));
        usual[probeAt(place)] = median(std::move(powers)) + kFloor;
    }
    Match best;
    double bestScore = -1.0;
    for (std::size_t hop = from; hop <= std::min(to, hops.count()); ++hop) {
        double score = 0.0;
        std::size_t outstanding = 0;
        for (std::size_t place = 0; place < places; ++place) {
            const std::size_t probe = probeAt(place);
            const double ratio = hops.power(hop + place * kProbeHops + kMiddleHops, probe) / usual[probe];
            score += std::log1p(ratio);
            if (ratio > kStandsOut) ++outstanding;
        }
        if (score <= bestScore) continue;
        bestScore = score;
        best = {hop, outstanding};
    }
    return best;
}

/// The middle, in hops, of what the first probes sound over, seen from a match: their centre of
/// gravity once each weighs the same. An echo shifts it, but equally when they return.
double centre(Hops& hops, std::size_t match) {
    double weights = 0.0, moments = 0.0;
    constexpr std::size_t kReach = 2 * kProbeHops;
    for (std::size_t place = 0; place < kReturning; ++place) {
        const std::size_t middle = match + place * kProbeHops + kMiddleHops;
        double sum = kFloor, moment = 0.0;
        for (std::size_t hop = middle - std::min(middle, kReach); hop <= middle + kReach; ++hop) {
            const double power = hops.power(hop, probeAt(place));
            sum += power;
            moment += power * (static_cast<double>(hop) - static_cast<double>(middle));
        }
        weights += 1.0;
        moments += moment / sum;
    }
    return static_cast<double>(match) + moments / weights;
}

std::optional<double> lateness(Hops& hops, std::size_t start, double distance_s) {
    const double due = static_cast<double>(start) + distance_s / kHop_s;
    const auto from = static_cast<std::size_t>(due - kReturnRange_s / kHop_s);
    const auto to = static_cast<std::size_t>(due + kReturnRange_s / kHop_s);
    if (from >= hops.count()) return std::nullopt;
    const Match returned = bestMatch(hops, from, to, kReturning);
    if (returned.outstanding < kFewestReturning) return std::nullopt;
    return (centre(hops, returned.hop) - centre(hops, start)) * kHop_s - distance_s;
}

Tone measured(Hops& hops, std::size_t start, std::size_t place) {
    const std::size_t probe = probeAt(place), middle = start + place * kProbeHops + kMiddleHops;
    double heard = 0.0;
    for (const std::size_t hop : {middle - 1, middle, middle + 1}) heard += hops.power(hop, probe) / 3.0;
    // Some hops before the probes, as they may begin a little before they are found.
    double noise = 0.0;
    std::size_t windows = 0;
    for (std::size_t hop = 0; hop + kWindowHops + 2 < start; hop += 2, ++windows)
        noise += hops.power(hop, probe);
    noise = windows > 0 ? noise / static_cast<double>(windows) : 0.0;
    return {probe_hz(probe), decibels(heard), decibels(std::max(0.0, heard - noise)) - decibels(noise)};
}

} // namespace

double probe_hz(std::size_t probe) noexcept {
    return kFirstProbe_hz + static_cast<double>(probe) * kSpacing_hz;
}

Program program(std::span<const std::vector<float>> transmissions, double rate_hz, int volume_percent) {
    Program program;
    std::vector<float>& sound = program.samples;
    const double amplitude = volume_percent / 200.0; // a transmission's volume is shared by two tones
    appendQuiet(sound, kLead_s, rate_hz);
    const std::size_t first = sound.size();
    for (std::size_t place = 0; place < kProbes; ++place)
        appendProbe(sound, probeAt(place), rate_hz, amplitude);
    for (const std::vector<float>& transmission : transmissions) {
        appendQuiet(sound, kPause_s, rate_hz);
        sound.insert(sound.end(), transmission.begin(), transmission.end());
    }
    appendQuiet(sound, kPause_s, rate_hz);
    program.distance_s = static_cast<double>(sound.size() - first) / rate_hz;
    for (std::size_t place = 0; place < kReturning; ++place)
        appendProbe(sound, probeAt(place), rate_hz, amplitude);
    appendQuiet(sound, kTail_s, rate_hz);
    return program;
}

std::optional<Found> findProbes(std::span<const float> recording, double rate_hz, double distance_s) {
    Hops hops(recording, rate_hz);
    if (hops.count() == 0) return std::nullopt;
    const Match match = bestMatch(hops, 0, static_cast<std::size_t>(kLatest_s / kHop_s), kProbes);
    if (match.outstanding < kFewestProbes) return std::nullopt;
    // A window fits in a probe at several hops: the middle one is as far as can be from both edges.
    const double start = std::max(0.0, centre(hops, match.hop));
    const auto hop = static_cast<std::size_t>(std::llround(start));
    Found found;
    found.start_s = start * kHop_s;
    for (std::size_t place = 0; place < kProbes; ++place)
        found.response.push_back(measured(hops, hop, place));
    std::sort(found.response.begin(), found.response.end(),
              [](const Tone& a, const Tone& b) { return a.frequency_hz < b.frequency_hz; });
    found.late_s = lateness(hops, hop, distance_s);
    return found;
}

namespace {

// Of the background's spectrum: whistles are found to a fraction of a step.
constexpr double kStep_hz = 6.0, kFirstStep_hz = 16000.0, kLastStep_hz = 20100.0;
constexpr double kLowestWhistle_hz = 17500.0;
constexpr double kWhistleOverNoise_db = 12.0, kWeakestWhistle_dbfs = -110.0;
constexpr double kSkirt_hz = 66.0, kSkirtBelow_db = 15.0;
constexpr std::size_t kBeside = 40; // steps to either side whose median is the noise

/// Mean power in steps of 6 Hz through windows of a sixth of a second, half of which overlap.
std::vector<double> spectrum(std::span<const float> sound, double rate_hz) {
    const Window window(std::min(samplesIn(1.0 / kStep_hz, rate_hz), sound.size()));
    std::vector<double> powers(static_cast<std::size_t>((kLastStep_hz - kFirstStep_hz) / kStep_hz) + 1);
    std::size_t windows = 0;
    for (std::size_t from = 0; window.length() > 1 && from + window.length() <= sound.size();
         from += window.length() / 2, ++windows)
        for (std::size_t step = 0; step < powers.size(); ++step)
            powers[step] += window.power(sound.subspan(from, window.length()),
                                         kFirstStep_hz + static_cast<double>(step) * kStep_hz, rate_hz);
    for (double& power : powers) power /= static_cast<double>(std::max<std::size_t>(windows, 1));
    return powers;
}

std::size_t stepAt(double frequency_hz) {
    return static_cast<std::size_t>((frequency_hz - kFirstStep_hz) / kStep_hz);
}

std::span<const double> between(const std::vector<double>& powers, double from_hz, double to_hz) {
    return std::span(powers).subspan(stepAt(from_hz), stepAt(to_hz) - stepAt(from_hz));
}

/// Mean without what stands out of it.
double usualPower(std::span<const double> powers) { return median({powers.begin(), powers.end()}); }

std::optional<Whistle> whistleAt(const std::vector<double>& powers, std::size_t step) {
    const double here = powers[step], before = powers[step - 1], after = powers[step + 1];
    if (here < before || here <= after) return std::nullopt;
    const std::size_t from = step - std::min(step, kBeside);
    const std::size_t to = std::min(powers.size(), step + kBeside + 1);
    const double noise_dbfs = decibels(usualPower(std::span(powers).subspan(from, to - from)));
    const double level_dbfs = decibels(here);
    if (level_dbfs < std::max(noise_dbfs + kWhistleOverNoise_db, kWeakestWhistle_dbfs)) return std::nullopt;
    // The vertex of a parabola through three logarithms.
    const double left = decibels(before) - level_dbfs, right = decibels(after) - level_dbfs;
    const double shift = left + right < 0.0 ? 0.5 * (left - right) / (left + right) : 0.0;
    return Whistle{kFirstStep_hz + (static_cast<double>(step) + shift) * kStep_hz, level_dbfs,
                   level_dbfs - noise_dbfs};
}

} // namespace

Background background(std::span<const float> quiet, double rate_hz) {
    Background result;
    for (const float sample : quiet)
        result.peak = std::max(result.peak, std::abs(static_cast<double>(sample)));
    const std::vector<double> powers = spectrum(quiet, rate_hz);
    const auto band = between(powers, kLowestTone_hz, kHighestTone_hz);
    double sum = 0.0;
    for (const double power : band) sum += power;
    result.noise_dbfs = decibels(sum / 1.5); // Hann's window sees the same noise in one and a half steps
    result.falloff_db = decibels(usualPower(between(powers, kFirstStep_hz, kLowestWhistle_hz))) -
                        decibels(usualPower(between(powers, 18500.0, kHighestTone_hz)));
    for (std::size_t step = stepAt(kLowestWhistle_hz); step + 1 < powers.size(); ++step)
        if (const auto whistle = whistleAt(powers, step)) result.whistles.push_back(*whistle);
    auto& whistles = result.whistles;
    std::sort(whistles.begin(), whistles.end(),
              [](const Whistle& a, const Whistle& b) { return a.level_dbfs > b.level_dbfs; });
    // Beside a strong one neither the window's own edges are whistles nor the skirts that an interruption
    // gives it: these reach -20 dB at five steps, with ripples like peaks.
    std::vector<Whistle> kept;
    for (const Whistle& whistle : whistles)
        if (std::none_of(kept.begin(), kept.end(), [&](const Whistle& other) {
                return std::abs(other.frequency_hz - whistle.frequency_hz) < kSkirt_hz &&
                       other.level_dbfs > whistle.level_dbfs + kSkirtBelow_db;
            }))
            kept.push_back(whistle);
    whistles = std::move(kept);
    return result;
}

} // namespace sorvel::check
