/// How loud a part of a recording is by time and frequency, around the transmissions' band.
#pragma once

#include "deep/transform.hpp"
#include "platform/audio/rate_converter.hpp"
#include "tools/check_analysis.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace sorvel {

/// What else than transmissions is in the part. A sine of full scale has 0 dBFS.
struct BandFacts {
    double noise_dbfs = 0.0;               ///< from 18 to 19.5 kHz, without what stands out of it
    std::vector<check::Whistle> whistles;  ///< there all the time, loudest first
    std::optional<double> nothingAbove_hz; ///< a coder or a converter has cut off what was above
};

/// Mean powers under Hann's window of 43 ms, in rows of 23.4 Hz and at most 300 columns, four windows to a
/// column at most, so that hours take no longer than minutes.
///
/// Thread: one at a time. Memory does not grow with the recording.
class Spectrogram {
public:
    static constexpr double kLowest_hz = 17000.0, kHighest_hz = 20500.0;
    static constexpr std::size_t kRows = 149;
    static constexpr std::size_t kMostColumns = 300;

    /// @param rate_hz   of the recording, 8000 to 384000
    /// @param length_s  of the part, above 0
    Spectrogram(double rate_hz, double length_s);

    /// Samples of the part, full scale 1.0, from its first one on; what is missing at its end is silence.
    void take(std::span<const float> samples);
    void finish();

    std::size_t columns() const noexcept { return m_columns; }
    /// Row 0 is the lowest. @return power, 1.0 for a sine of full scale
    float power(std::size_t column, std::size_t row) const noexcept { return m_cells[column * kRows + row]; }
    static double frequency_hz(std::size_t row) noexcept;

    BandFacts facts() const;

private:
    void takeConverted(std::span<const float> samples);
    void look();
    std::vector<float> overTime(std::size_t row) const;
    std::optional<double> edge_hz() const;

    double m_rate_hz;
    RateConverter m_converter;
    std::vector<float> m_converted;
    std::size_t m_columns, m_perColumn;
    double m_hop;              // from one window to the next, samples
    std::vector<float> m_held; // converted samples from number m_first on
    std::int64_t m_first;      // below 0: half a window of silence goes before
    std::size_t m_windows = 0; // looked at
    deep::Transform m_transform;
    std::vector<float> m_window, m_re, m_im;
    std::vector<float> m_cells;    // by column, then row
    std::vector<double> m_average; // of all windows, by bin from 0 Hz on
};

} // namespace sorvel
