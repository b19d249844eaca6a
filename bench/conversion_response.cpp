// How PolyphaseFilter passes tones of every frequency: level of the tone, and of all that is not the tone.
// Prints the worst figures and writes the picture: conversion_response FILE.svg

#include "platform/audio/polyphase_filter.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kFrom_hz = 44100, kTo_hz = 96000;
constexpr double kLowest_db = -140.0, kHighest_db = 10.0, kWidth = 640.0, kHeight = 300.0, kLeft = 50.0;

struct Response {
    double tone_db, rest_db;
};

/// Least squares against a sine and a cosine, behind the latency.
Response response(double frequency_hz) {
    auto filter = sorvel::PolyphaseFilter::make(kFrom_hz, kTo_hz);
    if (!filter) return {};
    std::vector<float> in(kFrom_hz / 4), out(kTo_hz / 4);
    const auto angle = [&](std::size_t i, double rate_hz) {
        return 2.0 * std::numbers::pi * frequency_hz * static_cast<double>(i) / rate_hz;
    };
    for (std::size_t i = 0; i < in.size(); ++i) in[i] = static_cast<float>(std::sin(angle(i, kFrom_hz)));
    out.resize(filter->process(in, out).produced);
    double ss = 0, sc = 0, cc = 0, xs = 0, xc = 0, rest = 0;
    const std::size_t begin = 1000;
    for (std::size_t i = begin; i < out.size(); ++i) {
        const double s = std::sin(angle(i, kTo_hz)), c = std::cos(angle(i, kTo_hz));
        const auto x = static_cast<double>(out[i]);
        ss += s * s, sc += s * c, cc += c * c, xs += x * s, xc += x * c;
    }
    const double det = ss * cc - sc * sc, a = (xs * cc - xc * sc) / det, b = (xc * ss - xs * sc) / det;
    for (std::size_t i = begin; i < out.size(); ++i)
        rest += std::pow(
            static_cast<double>(out[i]) - a * std::sin(angle(i, kTo_hz)) - b * std::cos(angle(i, kTo_hz)), 2);
    return {20.0 * std::log10(std::hypot(a, b)),
            10.0 * std::log10(2.0 * rest / static_cast<double>(out.size() - begin) + 1e-30)};
}

double x(double frequency_hz) { return kLeft + kWidth * frequency_hz / 22050.0; }
double y(double level_db) {
    return 20.0 + kHeight * (kHighest_db - std::max(level_db, kLowest_db)) / (kHighest_db - kLowest_db);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: conversion_response FILE.svg\n"), 2;
    std::string tones, rests;
    double flatness_db = 0.0, worst_db = -300.0;
    char point[48];
    for (int whole_hz = 50; whole_hz < 22050; whole_hz += 100) {
        const double frequency_hz = whole_hz;
        const auto [tone_db, rest_db] = response(frequency_hz);
        if (frequency_hz <= 19500.0) {
            flatness_db = std::max(flatness_db, std::fabs(tone_db));
            worst_db = std::max(worst_db, rest_db);
        }
        std::snprintf(point, sizeof point, "%.1f,%.1f ", x(frequency_hz), y(tone_db));
        tones += point;
        std::snprintf(point, sizeof point, "%.1f,%.1f ", x(frequency_hz), y(rest_db));
        rests += point;
    }
    const auto [edge_db, edgeRest_db] = response(19500.0);
    std::printf(
        "44.1 to 96 kHz, up to 19.5 kHz: flat within %.4f dB, all that is not the tone below %.1f dB; "
        "at 19500 Hz %.4f and %.1f dB\n",
        flatness_db, worst_db, edge_db, edgeRest_db);

    std::ofstream svg(argv[1]);
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 720 370\" font-family=\"sans-serif\" "
           "font-size=\"12\">\n<rect width=\"720\" height=\"370\" fill=\"white\"/>\n";
    for (int level_db = 0; level_db >= -140; level_db -= 20)
        svg << "<path d=\"M" << kLeft << ' ' << y(level_db) << 'h' << kWidth
            << "\" stroke=\"#ddd\"/><text x=\"44\" text-anchor=\"end\" y=\"" << y(level_db) + 4 << "\">"
            << level_db << "</text>\n";
    for (int kHz = 0; kHz <= 20; kHz += 5)
        svg << "<text text-anchor=\"middle\" x=\"" << x(1000.0 * kHz) << "\" y=\"336\">" << kHz
            << "</text>\n";
    svg << "<rect x=\"" << x(18000) << "\" y=\"20\" width=\"" << x(19500) - x(18000) << "\" height=\""
        << kHeight
        << "\" fill=\"#1b6ca8\" fill-opacity=\"0.15\"/>\n<polyline fill=\"none\" stroke=\"#1b6ca8\" points=\""
        << tones << "\"/>\n<polyline fill=\"none\" stroke=\"#d98e04\" points=\"" << rests
        << "\"/>\n<text x=\"60\" y=\"70\" fill=\"#1b6ca8\">the tone, dB</text><text x=\"60\" y=\"232\" "
           "fill=\"#d98e04\">all that is not the tone, dB</text>\n<text x=\"370\" y=\"358\" "
           "text-anchor=\"middle\">tone at 44.1 kHz, kHz; converted to 96 kHz (the band is "
           "shaded)</text></svg>\n";
    return svg ? 0 : 1;
}
