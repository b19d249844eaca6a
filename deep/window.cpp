#include "deep/window.hpp"

#include "deep/target_clones.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace sorvel::deep {

namespace {

constexpr std::size_t kParts = 8;
constexpr float kExcess = 5.0F;

SORVEL_DEEP_CLONES
float power(const float* re, const float* im, std::size_t count) {
    float total = 0.0F;
    for (std::size_t i = 0; i < count; ++i) total += re[i] * re[i] + im[i] * im[i];
    return total;
}

SORVEL_DEEP_CLONES
void limited(const float* re, const float* im, std::size_t count, float most, float* outRe, float* outIm) {
    for (std::size_t i = 0; i < count; ++i) {
        const float p = re[i] * re[i] + im[i] * im[i];
        const float scale = p > kExcess * most ? kExcess * most / p : 1.0F;
        outRe[i] = re[i] * scale;
        outIm[i] = im[i] * scale;
    }
}

SORVEL_DEEP_CLONES
void weigh(const float* weights, std::size_t count, float* re, float* im) {
    for (std::size_t i = 0; i < count; ++i) {
        re[i] *= weights[i];
        im[i] *= weights[i];
    }
}

} // namespace

std::vector<float> trapezoid(std::size_t length, double edge) {
    const auto shape = [&](std::size_t i) {
        const double from = (static_cast<double>(i) + 0.5) / static_cast<double>(length);
        return std::min({1.0, from / edge, (1.0 - from) / edge});
    };
    double energy = 0.0;
    for (std::size_t i = 0; i < length; ++i) energy += shape(i) * shape(i);
    std::vector<float> weights;
    weights.reserve(length);
    for (std::size_t i = 0; i < length; ++i)
        weights.push_back(static_cast<float>(shape(i) / std::sqrt(energy)));
    return weights;
}

void limitBursts(const float* re, const float* im, std::size_t count, float* outRe, float* outIm) {
    const std::size_t part = count / kParts;
    std::array<float, kParts> parts{};
    for (std::size_t i = 0; i < kParts; ++i) parts[i] = power(re + i * part, im + i * part, part);
    std::nth_element(parts.begin(), parts.begin() + 4, parts.end());
    limited(re, im, count, parts[4] / static_cast<float>(part), outRe, outIm);
}

void applyWindow(std::span<const float> weights, float* re, float* im) {
    weigh(weights.data(), weights.size(), re, im);
}

SORVEL_DEEP_CLONES
void powers(const float* re, const float* im, std::size_t count, float* out) {
    for (std::size_t i = 0; i < count; ++i) out[i] = re[i] * re[i] + im[i] * im[i];
}

} // namespace sorvel::deep
