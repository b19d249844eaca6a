#pragma once

#include "deep/dewarp.hpp"
#include "deep/line_filter.hpp"
#include "deep/motion_path.hpp"
#include "deep/workspace.hpp"

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace sorvel::deep {

/// Finds how the frequencies of a transmission moved that ended about where a MotionGate says, and turns
/// the sound back to what a source of constant speed would have sent.
///
///     search.begin(re, im, end);
///     while (!search.step()) ...             // some 1 ms of work each; later blocks may come in between
///     while (search.hasPath()) {
///         decode(search.re(), search.im(), search.shift()) // on success: done
///         if (!search.nextOffset()) break;
///         while (!search.step()) ...
///     }
///
/// Steps: steady lines and bursts are taken out; a path of linear chirps at 12 places of the end, and at
/// the best one's neighbours, gives the timing and says whether anything is there; a path of cubic phases
/// at this place gives the track; what is left is measured on the sound turned back, twice, at ends closer
/// to one another.
///
/// Thread: one at a time per object. Allocates in the constructor only.
class MotionSearch {
public:
    static constexpr std::size_t kMargin_samples = 64;
    static constexpr std::size_t kTransmission_samples = kChunkCount * kChunk;
    /// What `begin` uses of the sound before and after the end; what is not there counts as silence.
    static constexpr std::size_t kBefore_samples = 9664;
    static constexpr std::size_t kAfter_samples = 1088;

    /// @param transform  of 1024 points, lent for good; may serve others too
    /// @param workspace  lent for good; for nobody else from `begin` or `nextOffset` to the last step
    MotionSearch(Transform& transform, Workspace& workspace);

    /// Copies what it needs. @param end  index of the first sample behind the supposed transmission
    void begin(std::span<const float> re, std::span<const float> im, std::size_t end) noexcept;

    /// About 1 ms of work. @return whether it is finished
    bool step() noexcept;

    /// Whether, when finished, there is something to decode.
    bool hasPath() const noexcept { return m_hasPath; }

    /// The transmission turned back, with a margin of 64 samples at both ends: as from a source of constant
    /// speed, so that chunk c of 17 ends 64 + (16 - c) 512 / r samples before the end, where r is
    /// 1 + shift() kBin_hz / kMiddle_hz. Lines and bursts are out of it.
    std::span<const float> re() const noexcept;
    std::span<const float> im() const noexcept;

    /// Of the turned sound, in units of kBin_hz, exactly.
    int shift() const noexcept { return m_shift; }
    float speed_m_s() const noexcept;

    /// Where the transmission ended, in samples from `end` as given to `begin`.
    int endOffset_samples() const noexcept { return m_end - static_cast<int>(kBefore_samples); }

    /// Worth of the coarse path, of all that was found.
    float worth() const noexcept { return m_best; }

    /// Turns to the next place of the end if there is one nearly as good: step() again until finished.
    bool nextOffset() noexcept;

private:
    enum class Stage {
        kLines,
        kLinesOut,
        kBursts,
        kCoarse,
        kNeighbours,
        kFine,
        kWide,
        kTiming,
        kResidual,
        kDone
    };
    static constexpr int kFirstOffset = -10, kOffsets = 23; // in rows of 64 samples
    static constexpr int kTogether = 3;                     // offsets a chunk apart share their rows

    /// In the workspace, until there is a path.
    struct Work {                   // NOLINT(cppcoreguidelines-pro-type-member-init): the parts fill it
        ChirpScores::Memory chirps; ///< lines, before there are any chirps, are filtered in its factors
        Trellis::Memory paths;
        std::array<Trellis, kTogether> trellises;
    };

    void beginWork() noexcept;
    std::array<Trellis, kTogether>& trellises() const noexcept { return m_workspace.of<Work>().trellises; }
    void unit() noexcept;
    void lines() noexcept;
    void linesOut() noexcept;
    void takeBurstsOut() noexcept;
    void measureLeastNoise() noexcept;
    void coarse() noexcept;
    void neighbours() noexcept;
    void chooseOffset() noexcept;
    void beginFine(int offset) noexcept;
    void fine() noexcept;
    void endFine() noexcept;
    void beginTiming(int ends) noexcept;
    void timing() noexcept;
    void residual() noexcept;
    void follow(const Trellis& trellis, double spacing_samples) noexcept;
    void turn() noexcept;
    double spacing_samples() const noexcept;
    void setWindow(int end) noexcept;
    void setChunk(int chunk, int end) noexcept;
    void enter(Stage stage) noexcept;

    Transform& m_transform;
    Workspace& m_workspace;
    std::vector<float> m_re, m_im;
    LineFilter m_lines;
    ChirpScores m_chirps;
    std::array<float, kOffsets> m_worths{}; // coarse, by offset
    float m_leastNoise = 0.0F;              // power of a sample
    Stage m_stage = Stage::kDone;
    int m_unit = 0;  // of the stage
    int m_spent = 0; // transforms in this step
    float m_best = 0.0F;
    int m_offset = 0; // in rows
    float m_fineWorth = 0.0F;
    Trellis::Steps m_steps{};
    std::array<FrequencyTrack, 3> m_tracks; // taken out so far, and what each left
    std::array<double, 3> m_kept_hz{};
    std::array<int, 3> m_from{}; // and from which sample on
    std::size_t m_turns = 0;
    int m_end = 0;  // in m_re
    int m_ends = 0; // places of the end on either side that timing compares
    std::array<float, 5> m_timing{};
    int m_shift = 0;
    bool m_hasPath = false;
};

} // namespace sorvel::deep
