#pragma once

#include "deep/baseband.hpp"
#include "deep/short_float.hpp"
#include "deep/transform.hpp"
#include "deep/workspace.hpp"

#include <array>
#include <span>
#include <vector>

namespace sorvel::deep {

/// Of every chunk and tone: the energy in the matched filter over the noise's own.
using ToneEnergies = std::array<std::array<float, kTones>, kChunks>;

/// Where in the baseband a transmission lies.
struct Place {
    std::int64_t end = 0; ///< number of the sample behind its last one
    float shift = 0.0F;   ///< of the middle of the tones, bins of 2.604 Hz
    float fit = 0.0F;     ///< sum over the chunks of the strongest tones
};

/// Samples to look at: the baseband's own, or such with their motion taken out.
struct SampleView {
    const float* re = nullptr;
    const float* im = nullptr; ///< both point at sample `first`
    std::int64_t first = 0;
    std::size_t count = 0;

    /// Index of sample `from`, or of the nearest from which `length` samples are there.
    std::size_t index(std::int64_t from, std::size_t length) const {
        const std::int64_t last = static_cast<std::int64_t>(count) - static_cast<std::int64_t>(length);
        return static_cast<std::size_t>(std::clamp<std::int64_t>(from - first, 0, last));
    }
};

/// From a candidate's rough place to the energies of its tones: half-bin spectra of the 17 chunks, for
/// ends half a row earlier, right there and half a row later, and shifts half a bin to both sides.
///
/// Noise is measured where it lies: chunk by chunk as the median over the band, bin by bin as the fifth
/// quietest of the 17 chunks. That is smooth over the band (a median of neighbours); a bin four times above
/// its neighbours is a whistle and counts with its own.
///
/// Thread: one at a time. Allocates in the constructor only.
class Refinement {
public:
    /// @param transform  of 1024 points, lent for good; may serve others too
    /// @param workspace  lent for good; for nobody else from `begin` to `finish`
    Refinement(Transform& transform, Workspace& workspace);

    static constexpr int kEnds = 3; ///< steps of `tryEnd` per candidate
    void begin(std::int64_t end, int shift) noexcept;
    /// Looks at one of the three ends.
    ///
    /// @param samples  the same at every step, wherever they lie by then; at least a chunk of them
    void tryEnd(SampleView samples, int which) noexcept;
    /// Goes on with the best of what was tried.
    void finish(SampleView samples, ToneEnergies& energies) noexcept;
    const Place& place() const noexcept { return m_best; }

private:
    static constexpr int kFirstBin = -2 * 312; // half bins
    static constexpr std::size_t kBins = 2 * 672;
    static constexpr std::size_t kPoints = 1024;

    /// Of the candidate at hand, in the workspace.
    struct Work {
        std::array<float, 2 * kChunk> windowed; ///< a chunk: real parts, then imaginary ones
        std::array<float, kPoints> re, im;
        std::array<float, kBins> power;
        std::array<ShortFloat, kChunks * kBins> spectra; ///< a row for each chunk
        std::array<float, kBins> noise, smooth;
    };

    /// The spectra of the 17 chunks before this end, and their noise.
    const Work& spectra(SampleView samples, std::int64_t end) noexcept;
    void spectrum(Work& work, bool isBetween) noexcept;
    static void measureNoise(Work& work) noexcept;
    static float fit(const Work& work, float shift) noexcept;
    static std::size_t placeOf(std::size_t tone, float shift) noexcept;
    std::int64_t chunkEnd(std::int64_t end, std::size_t chunk) const noexcept;

    Transform& m_transform;
    Workspace& m_workspace;
    std::vector<float> m_window, m_halfBin; // cosines, then sines, of half a bin
    std::int64_t m_end = 0;
    int m_shift = 0;
    Place m_best;
};

} // namespace sorvel::deep
