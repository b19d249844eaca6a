#include "tools/spectrogram.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel {

namespace {

constexpr double kRate_hz = 48000.0; // all is brought to it
constexpr std::size_t kPoints = 2048;
constexpr double kBin_hz = kRate_hz / static_cast<double>(kPoints);
constexpr auto kFirstBin = static_cast<std::size_t>(Spectrogram::kLowest_hz / kBin_hz) + 1;
constexpr double kLeastHop = 512.0;
constexpr std::size_t kMostPerColumn = 4;
constexpr float kFloor = 1e-14F; // -140 dBFS

constexpr double kBandFrom_hz = 18000.0, kBandTo_hz = 19500.0;
constexpr double kBinsOfWindow = 1.5;      // of noise that Hann's window takes in
constexpr double kMeanOverMedian = 1.3;    // of a cell's power in noise, measured
constexpr std::size_t kBeside = 12;        // rows to either side whose median is the noise
constexpr float kWhistleOverNoise = 10.0F; // of what is there three quarters of the time

constexpr double kLowestCarrying_hz = 40000.0; // rate from which on an edge below the band is no rate's
constexpr std::size_t kStripe = 10;            // bins, 234 Hz
constexpr double kEdge_db = 20.0;              // fall within two stripes that no room or microphone makes

double decibels(double power) { return 10.0 * std::log10(power + static_cast<double>(kFloor)); }

float quantile(std::vector<float> values, double part) {
    const auto at =
        values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

} // namespace

double Spectrogram::frequency_hz(std::size_t row) noexcept {
    return static_cast<double>(kFirstBin + row) * kBin_hz;
}

Spectrogram::Spectrogram(double rate_hz, double length_s)
    : m_rate_hz(rate_hz), m_converter(rate_hz, kRate_hz), m_converted(4096),
      m_columns(std::clamp<std::size_t>(static_cast<std::size_t>(length_s * kRate_hz / kLeastHop), 1,
                                        kMostColumns)),
      m_perColumn(std::clamp<std::size_t>(
          static_cast<std::size_t>(length_s * kRate_hz / kLeastHop) / m_columns, 1, kMostPerColumn)),
      m_hop(length_s * kRate_hz / static_cast<double>(m_columns * m_perColumn)),
      m_first(-static_cast<std::int64_t>(kPoints / 2)), m_transform(kPoints), m_window(kPoints),
      m_re(kPoints), m_im(kPoints), m_cells(m_columns * kRows), m_average(kPoints / 2) {
    double sum = 0.0;
    for (std::size_t i = 0; i < kPoints; ++i) {
        const double weight =
            0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * (static_cast<double>(i) + 0.5) / kPoints);
        m_window[i] = static_cast<float>(weight);
        sum += weight;
    }
    for (float& weight : m_window) weight *= static_cast<float>(2.0 / sum);
    m_held.assign(kPoints / 2, 0.0F);
}

void Spectrogram::take(std::span<const float> samples) {
    while (!samples.empty()) {
        const Converted step = m_converter.convert(samples, m_converted);
        samples = samples.subspan(step.consumed);
        takeConverted(std::span(m_converted).first(step.produced));
    }
}

void Spectrogram::finish() {
    while (const std::size_t produced = m_converter.flush(m_converted))
        takeConverted(std::span(m_converted).first(produced));
    const std::vector<float> silence(4096);
    while (m_windows < m_columns * m_perColumn) takeConverted(silence);
}

void Spectrogram::takeConverted(std::span<const float> samples) {
    m_held.insert(m_held.end(), samples.begin(), samples.end());
    while (m_windows < m_columns * m_perColumn) {
        const auto middle = static_cast<std::int64_t>((static_cast<double>(m_windows) + 0.5) * m_hop);
        const std::int64_t from = middle - static_cast<std::int64_t>(kPoints / 2);
        const auto gone = std::min(static_cast<std::size_t>(from - m_first), m_held.size());
        m_held.erase(m_held.begin(), m_held.begin() + static_cast<std::ptrdiff_t>(gone));
        m_first += static_cast<std::int64_t>(gone);
        if (m_first < from || m_held.size() < kPoints) return;
        look();
        ++m_windows;
    }
    m_held.clear();
}

void Spectrogram::look() {
    std::transform(m_window.begin(), m_window.end(), m_held.begin(), m_re.begin(), std::multiplies<>());
    std::fill(m_im.begin(), m_im.end(), 0.0F);
    m_transform.forward(m_re.data(), m_im.data());
    const std::size_t column = m_windows / m_perColumn;
    for (std::size_t bin = 0; bin < m_average.size(); ++bin) {
        const float power = m_re[bin] * m_re[bin] + m_im[bin] * m_im[bin];
        m_average[bin] += static_cast<double>(power);
        if (bin >= kFirstBin && bin < kFirstBin + kRows)
            m_cells[column * kRows + bin - kFirstBin] += power / static_cast<float>(m_perColumn);
    }
}

std::vector<float> Spectrogram::overTime(std::size_t row) const {
    std::vector<float> values(m_columns);
    for (std::size_t column = 0; column < m_columns; ++column) values[column] = power(column, row);
    return values;
}

BandFacts Spectrogram::facts() const {
    BandFacts facts;
    std::vector<float> usual, quiet; // by row: half and three quarters of the time it is louder
    for (std::size_t row = 0; row < kRows; ++row) {
        quiet.push_back(quantile(overTime(row), 0.25));
        const double hz = frequency_hz(row);
        if (hz >= kBandFrom_hz && hz < kBandTo_hz) usual.push_back(quantile(overTime(row), 0.5));
    }
    const double ofRow = static_cast<double>(quantile(usual, 0.5)) * kMeanOverMedian;
    facts.noise_dbfs = decibels(ofRow * static_cast<double>(usual.size()) / kBinsOfWindow);

    for (std::size_t row = 1; row + 1 < kRows; ++row) {
        if (quiet[row] < quiet[row - 1] || quiet[row] <= quiet[row + 1]) continue;
        const auto from = quiet.begin() + static_cast<std::ptrdiff_t>(row - std::min(row, kBeside));
        const auto to = quiet.begin() + static_cast<std::ptrdiff_t>(std::min(row + kBeside + 1, kRows));
        const float beside = quantile({from, to}, 0.5);
        if (quiet[row] < kWhistleOverNoise * (beside + kFloor)) continue;
        // The vertex of a parabola through three logarithms.
        const double here = decibels(static_cast<double>(quiet[row]));
        const double left = decibels(static_cast<double>(quiet[row - 1])) - here;
        const double right = decibels(static_cast<double>(quiet[row + 1])) - here;
        const double shift = left + right < 0.0 ? 0.5 * (left - right) / (left + right) : 0.0;
        facts.whistles.push_back(
            {frequency_hz(row) + shift * kBin_hz, here, here - decibels(static_cast<double>(beside))});
    }
    std::sort(facts.whistles.begin(), facts.whistles.end(),
              [](const auto& a, const auto& b) { return a.level_dbfs > b.level_dbfs; });
    facts.nothingAbove_hz = edge_hz();
    return facts;
}

/// Where the mean spectrum falls most within two stripes, and stays down.
std::optional<double> Spectrogram::edge_hz() const {
    if (m_rate_hz < kLowestCarrying_hz || m_windows == 0) return std::nullopt;
    const auto stripeAt = [](double hz) { return static_cast<std::size_t>(hz / kBin_hz) / kStripe; };
    std::vector<double> levels;
    for (std::size_t stripe = 0; stripe < stripeAt(20000.0); ++stripe) {
        double sum = 0.0;
        for (std::size_t i = 0; i < kStripe; ++i) sum += m_average[stripe * kStripe + i];
        levels.push_back(decibels(sum / static_cast<double>(m_windows)));
    }
    double deepest_db = kEdge_db;
    std::optional<double> edge;
    for (std::size_t stripe = stripeAt(3000.0); stripe <= stripeAt(19000.0); ++stripe) {
        const auto above = levels.begin() + static_cast<std::ptrdiff_t>(stripe + 1);
        const double fall_db =
            std::min(levels[stripe - 1], levels[stripe - 2]) - *std::max_element(above, levels.end());
        if (fall_db <= deepest_db) continue;
        deepest_db = fall_db;
        edge = static_cast<double>(stripe * kStripe) * kBin_hz;
    }
    return edge;
}

} // namespace sorvel
