#pragma once

#include "deep/word_space.hpp"
#include "modem/rs.hpp"
#include "payload/encoding.hpp"

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

/// A text's 17 coded bytes, by way of the sender's own packing and code.
inline sorvel::deep::WordBytes codeWord(const std::string& text) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString(text, payload.data());
    sorvel::deep::WordBytes word{};
    RS::ReedSolomon code(encoding::kPayloadBytes, 4);
    code.Encode(payload.data(), word.data());
    return word;
}

inline std::string randomText(std::mt19937& generator, std::size_t length) {
    std::string text(length, ' ');
    for (char& c : text) c = encoding::kAlphabet[generator() % encoding::kAlphabet.size()];
    return text;
}

/// ln I0(x): asymptotic series above 15, power series below, to 1e-6.
inline double logBessel0(double x) {
    if (x > 15.0) {
        double sum = 1.0;
        double term = 1.0;
        for (int k = 1; k < 8; ++k) sum += term *= (2 * k - 1) * (2 * k - 1) / (8.0 * k * x);
        return x - 0.5 * std::log(2.0 * 3.14159265358979 * x) + std::log(sum);
    }
    double sum = 1.0;
    double term = 1.0;
    for (int k = 1; k < 60; ++k) sum += term *= x * x / (4.0 * k * k);
    return std::log(sum);
}

/// What a receiver that knows the ratio of tone to noise makes of a word in white noise: energies of the
/// tone sent are noncentral chi-square with two degrees of freedom, of the others exponential. Three
/// nibbles in a hundred may be anything.
///
/// @param snr_db  in the band; a tone's energy in its chunk is 21.6 dB more over the noise's density
inline sorvel::deep::Scores noisyScores(const sorvel::deep::WordBytes& word, double snr_db,
                                        std::mt19937& generator) {
    const double ratio = std::pow(10.0, (snr_db + 21.6) / 10.0);
    std::normal_distribution<double> noise(0.0, std::sqrt(0.5));
    sorvel::deep::Scores scores{};
    for (std::size_t nibble = 0; nibble < scores.size(); ++nibble) {
        const unsigned sent = word[nibble / 2] >> 4 * (nibble % 2) & 0xFU;
        std::array<double, 16> likelihoods{};
        double sum = 0.0;
        for (unsigned value = 0; value < 16; ++value) {
            const double re = noise(generator) + (value == sent ? std::sqrt(ratio) : 0.0);
            const double im = noise(generator);
            likelihoods[value] = std::exp(logBessel0(2.0 * std::sqrt(ratio * (re * re + im * im))) - ratio);
            sum += likelihoods[value];
        }
        for (unsigned value = 0; value < 16; ++value)
            scores[nibble][value] =
                static_cast<float>(std::log(16.0 * (0.97 * likelihoods[value] / sum + 0.03 / 16.0)));
    }
    return scores;
}
