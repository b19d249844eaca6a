#include "bench/hearing/device.hpp"

#include "bench/hearing/noise.hpp"
#include "modem/fft.h"
#include "tools/simulated_air.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace sorvel::hearing {

void slope(std::span<float> sound, double fall_db, double rate_hz) {
    // Twice the room, so that what the filter smears over the end does not come back at the start.
    const std::size_t n = std::bit_ceil(std::max<std::size_t>(2 * sound.size(), 2));
    std::vector<float> spectrum(n), turns(n / 2);
    std::vector<int> work(static_cast<std::size_t>(std::sqrt(static_cast<double>(n) / 2.0)) + 4);
    std::copy(sound.begin(), sound.end(), spectrum.begin());
    rdft(static_cast<int>(n), 1, spectrum.data(), work.data(), turns.data());
    const double bin_hz = rate_hz / static_cast<double>(n);
    for (std::size_t k = 0; k < n / 2; ++k) {
        const double way = (static_cast<double>(k) * bin_hz - air::kLowestTone_hz) /
                           (air::kHighestTone_hz - air::kLowestTone_hz);
        const auto factor = static_cast<float>(std::sqrt(fromDecibels(-fall_db * std::clamp(way, 0.0, 1.0))));
        spectrum[2 * k] *= factor;
        // Next to bin 0 stands the one of half the rate.
        spectrum[2 * k + 1] *= k > 0 ? factor : static_cast<float>(std::sqrt(fromDecibels(-fall_db)));
    }
    rdft(static_cast<int>(n), -1, spectrum.data(), work.data(), turns.data());
    const float scale = 2.0F / static_cast<float>(n);
    for (std::size_t i = 0; i < sound.size(); ++i) sound[i] = scale * spectrum[i];
}

double dropOut(std::vector<float>& sound, const Dropouts& dropouts, double rate_hz, double time_s,
               const Draw& draw) {
    std::mt19937 generator = draw.generator(Stream::Dropouts);
    const double period_s = 1.0 / dropouts.perSecond;
    const double total_s = static_cast<double>(sound.size()) / rate_hz;
    const auto length = static_cast<std::ptrdiff_t>(std::lround(dropouts.length_s * rate_hz));
    std::vector<double> starts_s;
    for (double from_s = 0.0; from_s + period_s <= total_s; from_s += period_s)
        starts_s.push_back(uniform(generator, from_s, from_s + period_s - dropouts.length_s));

    double lost_s = 0.0;
    // From the last on, so that the places of those before stay.
    for (auto start = starts_s.rbegin(); start != starts_s.rend(); ++start) {
        const auto first = sound.begin() + static_cast<std::ptrdiff_t>(*start * rate_hz);
        const auto last = first + std::min(length, sound.end() - first);
        if (dropouts.kind == Dropouts::Kind::Silent) {
            std::fill(first, last, 0.0F);
        } else {
            if (*start < time_s) lost_s += dropouts.length_s;
            sound.erase(first, last);
        }
    }
    return lost_s;
}

void stepGain(std::span<float> sound, double step_db, double rate_hz, const Draw& draw) {
    std::mt19937 generator = draw.generator(Stream::Gain);
    const double offset_s = uniform(generator, 0.0, 1.0);
    const auto factor = static_cast<float>(std::sqrt(fromDecibels(step_db)));
    for (std::size_t i = 0; i < sound.size(); ++i)
        if (std::fmod(static_cast<double>(i) / rate_hz + offset_s, 1.0) < 0.5) sound[i] *= factor;
}

void digitise(std::span<float> sound, double peak_dbfs) {
    float peak = 0.0F;
    for (const float x : sound) peak = std::max(peak, std::abs(x));
    if (peak == 0.0F) return;
    const float scale = 32768.0F * static_cast<float>(std::sqrt(fromDecibels(peak_dbfs))) / peak;
    for (float& x : sound) x = std::clamp(std::nearbyint(x * scale), -32768.0F, 32767.0F) / 32768.0F;
}

} // namespace sorvel::hearing
