/// Captured bytes -> floats -> operating rate -> whole frames.
#pragma once

#include "modem/resampler.hpp"
#include "modem/settings.hpp"

namespace sorvel::modem {

/// Collects the frame that is being filled.
///
///     while (capture.fill(bytes, isInMessage)) {     // takes bytes from the front
///         hear(capture.frame());
///         capture.next();
///     }
class Capture {
public:
    Capture(const Settings& settings, GGWave::Resampler& resampler)
        : m_settings(settings), m_resampler(resampler), m_samplesNeeded(settings.samplesPerFrame) {}

    void place(Layout& layout);

    /// Why these settings cannot be received with, as a line for the log stream; null if they can.
    const char* obstacle() const;
    /// Whether a frame's captured samples fit the converter.
    bool canConvert() const;

    /// Takes bytes from the front of `captured` until the frame is complete (true) or none are left
    /// (false). A chunk that is no whole number of samples, or too short to convert, costs the
    /// frame being filled and what remains of `captured`.
    ///
    /// @param keepsStream  the converter's stream must not start over now
    bool fill(std::span<const std::uint8_t>& captured, bool keepsStream);

    std::span<const float> frame() const {
        return m_amplitude.span().first(static_cast<std::size_t>(m_settings.samplesPerFrame));
    }
    /// Makes room for the next frame, which begins with what was left over of this one.
    void next();

    int samplesNeeded() const { return m_samplesNeeded; }
    ggvector<float> amplitude() const { return m_amplitude; }
    bool takeNews(); ///< whether a frame was completed since the last call
    void forget() { m_amplitude.zero(); }

private:
    int mostCaptured() const;
    std::size_t wantedSamples() const;

    const Settings& m_settings;
    GGWave::Resampler& m_resampler;
    int m_samplesNeeded; // until the frame is complete
    int m_recorded = 0;  // samples in m_amplitude once it is
    bool m_isNews = false;
    ggvector<float> m_amplitude; // the frame being filled, and what overflows it
};

} // namespace sorvel::modem
