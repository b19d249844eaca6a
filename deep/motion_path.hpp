#pragma once

#include "deep/band.hpp"
#include "deep/tone_comb.hpp"
#include "deep/transform.hpp"

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace sorvel::deep {

inline constexpr int kChunkCount = static_cast<int>(kChunks);
inline constexpr double kChunk_s = 0.192;

/// How a frequency moves within a chunk: at the time t from its middle by slope t + bend t^2 / 2.
struct Chirp {
    float slope_hz_s = 0.0F;
    float bend_hz_s2 = 0.0F;
    int left = 0; // what it is away at the chunk's beginning, in shifts
    int right = 0;
    float cost = 0.0F; // rather small ones than large ones, where the sound does not tell

    static Chirp of(double slope_hz_s, double bend_hz_s2);
};

/// The best path of frequency over the chunks of a transmission, by dynamic programming: within a chunk
/// one of the chirps at one of the shifts, and from a chunk's end to the next one's beginning a jump that
/// costs. Only the frequency must run on; the slope may turn.
///
/// Thread: one at a time per object. Allocates nothing.
class Trellis {
    static constexpr int kReach = 50;
    static constexpr int kEdge = kReach + 46; // an edge's frequency, in shifts, is at most this
    static constexpr std::size_t kEdges = 2 * kEdge + 1;

public:
    static constexpr int kMostJump = 8;

    /// What a jump of n shifts costs: linear |n| + quadratic n^2, for |n| up to `widest`.
    struct JumpCost {
        float linear, quadratic;
        int widest;
    };

    /// One chunk of a path: its shift in the middle and the number of its chirp.
    struct Step {
        std::int16_t shift;
        std::int16_t chirp;
    };
    using Steps = std::array<Step, kChunkCount>;

    /// What the way back needs. Several may share it, of which the last one to begin can be traced.
    struct Memory {
        std::array<std::array<std::uint8_t, kEdges>, kChunkCount> chirp; // which chirp ended there
        std::array<std::array<std::int8_t, kEdges>, kChunkCount> jump;   // where the one before had ended
    };

    void begin(Memory& memory) noexcept;
    /// The next chunk; before the first, any shift may be where the path starts.
    void beginChunk(const JumpCost& cost) noexcept;
    /// The scores of one chirp, number `index`, at the shifts from `first` on.
    void add(const Chirp& chirp, int index, int first, std::span<const float> scores) noexcept;
    float best() const noexcept;
    /// The path that is worth best(), after 17 chunks of `chirps`.
    void trace(std::span<const Chirp> chirps, Steps& steps) const noexcept;

private:
    static constexpr std::size_t kPadded = kEdges + 2 * kMostJump;

    Memory* m_memory = nullptr;
    int m_chunk = 0;
    std::array<float, kPadded> m_end{};  // of the paths so far, by their frequency now; padded on both sides
    std::array<float, kEdges> m_begin{}; // what may be reached from them
};

/// Scores of a window of 512 samples that was freed of chirps.
///
/// Thread: one at a time per object. Allocates in the constructor only.
class ChirpScores {
public:
    static constexpr int kReach = 57;
    static constexpr int kMostSlopes = 7, kMostBends = 4;
    static constexpr std::size_t kPoints = 1024;

    /// @param transform  of 1024 points, lent for good; may serve others too
    explicit ChirpScores(Transform& transform);

    /// What it works in.
    struct Memory {
        /// Per positive slope, then per positive bend: cosines, then sines.
        std::array<float, (kMostSlopes + kMostBends) * 2 * kChunk> factors;
        std::array<float, 2 * kChunk> windowed; ///< times the trapezoid: real parts, then imaginary ones
        std::array<float, 2 * kChunk> bent;     ///< the same with a bend taken out
        std::array<float, kPoints> re, im;
    };

    /// @param memory  until the last scores
    void begin(Memory& memory) noexcept { m_memory = &memory; }

    /// Chirps of slopes i `slopeStep`, |i| <= `slopes`, and bends k `bendStep`, |k| <= `bends`, within the
    /// ellipse (i / (slopes + 0.25))^2 + (k / (bends + 0.2))^2 <= 1. Takes some 0.1 ms.
    void setGrid(double slopeStep, int slopes, double bendStep, int bends) noexcept;
    std::span<const Chirp> chirps() const noexcept { return {m_chirps.data(), m_count}; }
    /// Chirps at the grid's rim: a path with many of them may want a wider one.
    bool isAtRim(int index) const noexcept { return m_isAtRim[static_cast<std::size_t>(index)]; }

    /// The 512 samples from here on are next.
    /// @param leastNoise  power of a sample that the window's noise counts as at least, so that nearly
    ///                    silent windows are worth little
    void setWindow(const float* re, const float* im, float leastNoise) noexcept;

    /// Scores of chirp `index` at the shifts `first` to `last`, valid until the next call.
    std::span<const float> scores(int index, int first, int last) noexcept;

private:
    static constexpr std::size_t kMostChirps = 64;

    struct Place {
        std::int8_t slope, bend;
    };

    void setFactor(std::size_t row, double slope_hz_s, double bend_hz_s2) noexcept;
    void transform() noexcept;

    Transform& m_transform;
    Memory* m_memory = nullptr;
    ToneComb m_comb;
    std::size_t m_count = 0;
    std::array<Chirp, kMostChirps> m_chirps;
    std::array<Place, kMostChirps> m_places{};
    std::array<bool, kMostChirps> m_isAtRim{};
    std::vector<float> m_trapezoid;
    std::vector<float> m_power, m_scores;
    float m_scale = 1.0F;
};

} // namespace sorvel::deep
