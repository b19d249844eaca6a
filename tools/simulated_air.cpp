#include "tools/simulated_air.hpp"

#include "modem/fft.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>

namespace sorvel::air {

namespace {

double fromDecibels(double power_db) { return std::pow(10.0, power_db / 10.0); }

/// The real transform of one length, with its tables.
class Transform {
public:
    explicit Transform(std::size_t n)
        : m_n(n), m_turns(n / 2),
          m_work(static_cast<std::size_t>(std::sqrt(static_cast<double>(n) / 2.0)) + 4) {}
    std::size_t size() const { return m_n; }
    void forward(std::span<float> a) {
        rdft(static_cast<int>(m_n), 1, a.data(), m_work.data(), m_turns.data());
    }
    void inverse(std::span<float> a) {
        rdft(static_cast<int>(m_n), -1, a.data(), m_work.data(), m_turns.data());
    }

private:
    std::size_t m_n;
    std::vector<float> m_turns;
    std::vector<int> m_work;
};

/// Bin by bin, in the layout of rdft: the two purely real bins come first.
void multiply(std::span<float> a, std::span<const float> b) {
    a[0] *= b[0];
    a[1] *= b[1];
    for (std::size_t k = 2; k < a.size(); k += 2) {
        const float re = a[k] * b[k] - a[k + 1] * b[k + 1];
        a[k + 1] = a[k] * b[k + 1] + a[k + 1] * b[k];
        a[k] = re;
    }
}

} // namespace

double tonePower(std::span<const float> sound) {
    const auto isSound = [](float x) { return x != 0.0F; };
    const auto first = std::find_if(sound.begin(), sound.end(), isSound);
    const auto last = std::find_if(sound.rbegin(), sound.rend(), isSound).base();
    if (first == sound.end()) return 0.0;
    double sum = 0.0;
    for (auto x = first; x != last; ++x) sum += static_cast<double>(*x) * static_cast<double>(*x);
    return sum / static_cast<double>(last - first);
}

void amplify(std::span<float> sound, double gain_db) {
    const auto factor = static_cast<float>(std::sqrt(fromDecibels(gain_db)));
    for (float& x : sound) x *= factor;
}

void clip(std::span<float> sound, float limit) {
    for (float& x : sound) x = std::clamp(x, -limit, limit);
}

void addWhiteNoise(std::span<float> sound, double inBandSnr_db, double tonePower, double sampleRate_hz,
                   std::uint32_t seed) {
    const double inBand = tonePower / fromDecibels(inBandSnr_db);
    const double variance = inBand * (sampleRate_hz / 2.0) / (kHighestTone_hz - kLowestTone_hz);
    std::mt19937 generator(seed);
    std::normal_distribution<float> noise(0.0F, static_cast<float>(std::sqrt(variance)));
    for (float& x : sound) x += noise(generator);
}

std::vector<float> roomResponse(double rt60_s, double directToRoom_db, double sampleRate_hz,
                                std::uint32_t seed) {
    std::vector<float> response(1 + static_cast<std::size_t>(std::lround(rt60_s * sampleRate_hz)));
    const double decay = 3.0 * std::numbers::ln10 / (rt60_s * sampleRate_hz); // per sample
    std::mt19937 generator(seed);
    std::normal_distribution<double> noise;
    double energy = 0.0;
    for (std::size_t i = 1; i < response.size(); ++i) {
        const double x = noise(generator) * std::exp(-decay * static_cast<double>(i));
        response[i] = static_cast<float>(x);
        energy += x * x;
    }
    if (energy > 0.0) amplify(response, -10.0 * std::log10(energy) - directToRoom_db);
    response[0] = 1.0F;
    return response;
}

std::vector<float> convolved(std::span<const float> signal, std::span<const float> response) {
    if (signal.empty() || response.empty()) return {};
    // Overlap-add: each piece of the signal with the response fits one transform.
    Transform transform(std::bit_ceil(std::max<std::size_t>(1024, 2 * response.size())));
    const std::size_t step = transform.size() - response.size() + 1;
    std::vector<float> spectrum(transform.size()), piece(transform.size());
    std::copy(response.begin(), response.end(), spectrum.begin());
    transform.forward(spectrum);

    std::vector<float> result(signal.size() + response.size() - 1);
    const float scale = 2.0F / static_cast<float>(transform.size());
    for (std::size_t at = 0; at < signal.size(); at += step) {
        const auto part = signal.subspan(at, std::min(step, signal.size() - at));
        std::fill(std::copy(part.begin(), part.end(), piece.begin()), piece.end(), 0.0F);
        transform.forward(piece);
        multiply(piece, spectrum);
        transform.inverse(piece);
        const std::size_t n = part.size() + response.size() - 1;
        for (std::size_t i = 0; i < n; ++i) result[at + i] += scale * piece[i];
    }
    return result;
}

std::vector<float> reclocked(std::span<const float> sound, double clockError_ppm, double delay_samples) {
    constexpr std::ptrdiff_t kReach = 32; // samples to each side
    const double step = 1.0 / (1.0 + clockError_ppm * 1e-6);
    const double end = static_cast<double>(sound.size()) / step + delay_samples;
    std::vector<float> result(static_cast<std::size_t>(std::max(0.0, std::ceil(end))));
    for (std::size_t k = 0; k < result.size(); ++k) {
        const double time = (static_cast<double>(k) - delay_samples) * step;
        const auto before = static_cast<std::ptrdiff_t>(std::floor(time));
        const double fraction = time - static_cast<double>(before);
        // sin(pi (fraction - j)) differs from that of j = 0 in its sign alone.
        const double sine = std::sin(std::numbers::pi * fraction);
        double sum = 0.0;
        for (std::ptrdiff_t j = 1 - kReach; j <= kReach; ++j) {
            const std::ptrdiff_t i = before + j;
            if (i < 0 || i >= std::ssize(sound)) continue;
            const double x = fraction - static_cast<double>(j);
            const double sinc = x == 0.0 ? 1.0 : (j % 2 == 0 ? sine : -sine) / (std::numbers::pi * x);
            const double hann = 0.5 + 0.5 * std::cos(std::numbers::pi * x / kReach);
            sum += static_cast<double>(sound[static_cast<std::size_t>(i)]) * sinc * hann;
        }
        result[k] = static_cast<float>(sum);
    }
    return result;
}

} // namespace sorvel::air
