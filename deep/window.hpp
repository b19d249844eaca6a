#pragma once

#include "deep/band.hpp"

#include <span>
#include <vector>

namespace sorvel::deep {

/// The envelope with which tones are sent, rising and falling over 15 % of a chunk, as a window of unit
/// energy: the filter matched to a chunk.
std::vector<float> trapezoid(std::size_t length, double edge = 0.15);

/// Copies samples and takes the excess off bursts: where the power of a sample is over five times that of
/// the fifth quietest of eight parts, it is scaled down to a fifth of what it then has.
///
/// A burst of 30 dB so weighs less than the tones, which are steady over a chunk and stay as they are.
void limitBursts(const float* re, const float* im, std::size_t count, float* outRe, float* outIm);

/// re, im times the weights, in place.
void applyWindow(std::span<const float> weights, float* re, float* im);

/// Sum of squares of both parts, bin by bin.
void powers(const float* re, const float* im, std::size_t count, float* out);

} // namespace sorvel::deep
