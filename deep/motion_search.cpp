#include "deep/motion_search.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel::deep {

namespace {

constexpr int kRow_samples = 64;
constexpr int kChunkRows = 8;
constexpr int kReach = 50;        // shifts of paths
constexpr int kResidualReach = 7; // and of what is left
constexpr int kTransformsPerStep = 72;
constexpr float kLeastWorth = 232.0F;
constexpr float kNearlyAsGood = 0.93F;
constexpr int kOtherOffset_rows = 6;
constexpr float kLeastNoise = 1e-3F;               // of the mean power
constexpr float kLoud = 40.0F;                     // worth of a chunk
constexpr std::size_t kTurnedMargin_samples = 256; // at either end: ends may still move by 96
constexpr std::size_t kTurned_samples = MotionSearch::kTransmission_samples + 2 * kTurnedMargin_samples;

constexpr Trellis::JumpCost kCoarseJump{.linear = 0.5F, .quadratic = 0.0F, .widest = 6};
constexpr Trellis::JumpCost kResidualJump{.linear = 1.0F, .quadratic = 0.0F, .widest = 3};

/// Loud paths are worth much more than any jump would cost, and so stay smooth by a cost that
/// grows with them.
Trellis::JumpCost fineJump(float worth, bool isWide) {
    const float growth = isWide ? 0.01F : 0.005F;
    return {.linear = 0.0F, .quadratic = std::max(0.1F, growth * worth / kChunkCount), .widest = 8};
}

} // namespace

MotionSearch::MotionSearch(Transform& transform, Workspace& workspace)
    : m_transform(transform), m_workspace(workspace), m_re(kBefore_samples + kAfter_samples),
      m_im(kBefore_samples + kAfter_samples), m_chirps(transform) {}

void MotionSearch::beginWork() noexcept { m_chirps.begin(m_workspace.begin<Work>().chirps); }

void MotionSearch::enter(Stage stage) noexcept {
    m_stage = stage;
    m_unit = 0;
}

void MotionSearch::begin(std::span<const float> re, std::span<const float> im, std::size_t end) noexcept {
    const auto copy = [end](std::span<const float> from, std::vector<float>& to) {
        for (std::size_t i = 0; i < to.size(); ++i) {
            const std::size_t at = end + i - kBefore_samples; // wraps where there is nothing yet
            to[i] = at < from.size() && std::isfinite(from[at]) ? from[at] : 0.0F;
        }
    };
    copy(re, m_re);
    copy(im, m_im);
    m_worths.fill(0.0F);
    m_best = 0.0F;
    m_hasPath = false;
    m_turns = 0;
    m_end = static_cast<int>(kBefore_samples);
    m_shift = 0;
    beginWork();
    m_lines.begin(m_transform, m_workspace.of<Work>().chirps.factors);
    enter(Stage::kLines);
}

bool MotionSearch::step() noexcept {
    m_spent = 0;
    while (m_stage != Stage::kDone && m_spent < kTransformsPerStep) unit();
    return m_stage == Stage::kDone;
}

void MotionSearch::unit() noexcept {
    switch (m_stage) {
    case Stage::kLines:
        return lines();
    case Stage::kLinesOut:
        return linesOut();
    case Stage::kBursts:
        return takeBurstsOut();
    case Stage::kCoarse:
        return coarse();
    case Stage::kNeighbours:
        return neighbours();
    case Stage::kFine:
    case Stage::kWide:
        return fine();
    case Stage::kTiming:
        return timing();
    case Stage::kResidual:
        return residual();
    case Stage::kDone:
        return;
    }
}

void MotionSearch::lines() noexcept {
    const std::size_t from = static_cast<std::size_t>(m_unit++) * LineFilter::kHop_samples;
    m_lines.study(m_re.data() + from, m_im.data() + from);
    m_spent += 2;
    if (static_cast<std::size_t>(m_unit) < LineFilter::blocks(m_re.size())) return;
    enter(m_lines.findLines() ? Stage::kLinesOut : Stage::kBursts);
}

void MotionSearch::linesOut() noexcept {
    const std::size_t from = static_cast<std::size_t>(m_unit++) * LineFilter::kHop_samples;
    m_lines.subtract(m_re.data() + from, m_im.data() + from);
    m_spent += 3;
    if (static_cast<std::size_t>(m_unit) == LineFilter::blocks(m_re.size())) enter(Stage::kBursts);
}

/// Samples that stand out of the quieter blocks around are lowered below where they would have been cut.
void MotionSearch::takeBurstsOut() noexcept {
    constexpr std::size_t kBlocks = (kBefore_samples + kAfter_samples) / kBlock;
    std::array<float, kBlocks> power{};
    for (std::size_t i = 0; i < kBlocks * kBlock; ++i)
        power[i / kBlock] += (m_re[i] * m_re[i] + m_im[i] * m_im[i]) / static_cast<float>(kBlock);
    for (std::size_t block = 0; block < kBlocks; ++block) {
        std::array<float, kChunkRows> around{};
        const std::size_t from = std::min(block - std::min<std::size_t>(block, 4), kBlocks - around.size());
        std::copy_n(power.begin() + static_cast<std::ptrdiff_t>(from), around.size(), around.begin());
        std::nth_element(around.begin(), around.begin() + 4, around.end());
        const float limit = 5.0F * around[4];
        for (std::size_t i = block * kBlock; i < (block + 1) * kBlock; ++i) {
            const float sample = m_re[i] * m_re[i] + m_im[i] * m_im[i];
            if (!(sample > limit)) continue;
            m_re[i] *= limit / sample;
            m_im[i] *= limit / sample;
        }
    }
    measureLeastNoise();
    m_spent += 20;
    m_chirps.setGrid(150.0, 3, 1.0, 0);
    enter(Stage::kCoarse);
}

/// Windows that lie where there is no sound, before a recording or behind what came so far, hold remains of
/// what was taken out. Over their own noise these would stand out further than any tone.
void MotionSearch::measureLeastNoise() noexcept {
    float sum = 0.0F;
    for (std::size_t i = 0; i < m_re.size(); ++i) sum += m_re[i] * m_re[i] + m_im[i] * m_im[i];
    m_leastNoise = kLeastNoise * sum / static_cast<float>(m_re.size()) + 1e-30F;
}

void MotionSearch::setWindow(int end) noexcept {
    const auto from = static_cast<std::size_t>(end) - kChunk;
    m_chirps.setWindow(m_re.data() + from, m_im.data() + from, m_leastNoise);
    ++m_spent;
}

/// Rows of four groups of offsets; in a group they are a chunk apart, so that one row serves them all as
/// different chunks.
void MotionSearch::coarse() noexcept {
    constexpr int kGroups = 4;
    constexpr int kGroupRows = kChunkCount + kTogether - 1;
    const int group = m_unit / kGroupRows;
    const int row = m_unit % kGroupRows;
    const int first = kFirstOffset + 2 * group;
    if (row == 0)
        for (Trellis& trellis : trellises()) trellis.begin(m_workspace.of<Work>().paths);
    setWindow(static_cast<int>(kBefore_samples) + first * kRow_samples -
              (kChunkCount - 1 - row) * static_cast<int>(kChunk));
    const auto isIn = [row](int member) { return row >= member && row < member + kChunkCount; };
    for (int member = 0; member < kTogether; ++member)
        if (isIn(member)) trellises()[static_cast<std::size_t>(member)].beginChunk(kCoarseJump);
    const std::span<const Chirp> chirps = m_chirps.chirps();
    for (std::size_t i = 0; i < chirps.size(); ++i) {
        const std::span<const float> scores = m_chirps.scores(static_cast<int>(i), -kReach, kReach);
        for (int member = 0; member < kTogether; ++member)
            if (isIn(member))
                trellises()[static_cast<std::size_t>(member)].add(chirps[i], static_cast<int>(i), -kReach,
                                                                  scores);
        ++m_spent;
    }
    const int done = row - (kChunkCount - 1);
    if (done >= 0)
        m_worths[static_cast<std::size_t>(2 * group + kChunkRows * done)] =
            trellises()[static_cast<std::size_t>(done)].best();
    if (++m_unit < kGroups * kGroupRows) return;
    chooseOffset();
    enter(m_best < 0.9F * kLeastWorth ? Stage::kDone : Stage::kNeighbours);
}

void MotionSearch::chooseOffset() noexcept {
    const auto best = std::max_element(m_worths.begin(), m_worths.end());
    m_best = *best;
    m_offset = static_cast<int>(best - m_worths.begin()) + kFirstOffset;
}

/// The rows between were left out so far.
void MotionSearch::neighbours() noexcept {
    const int side = m_unit / kChunkCount;
    const int chunk = m_unit % kChunkCount;
    const int offset = m_offset + (side == 0 ? -1 : 1);
    const bool isThere = offset >= kFirstOffset && offset < kFirstOffset + kOffsets;
    Trellis& trellis = trellises()[0];
    if (isThere) {
        if (chunk == 0) trellis.begin(m_workspace.of<Work>().paths);
        setWindow(static_cast<int>(kBefore_samples) + offset * kRow_samples -
                  (kChunkCount - 1 - chunk) * static_cast<int>(kChunk));
        trellis.beginChunk(kCoarseJump);
        const std::span<const Chirp> chirps = m_chirps.chirps();
        for (std::size_t i = 0; i < chirps.size(); ++i)
            trellis.add(chirps[i], static_cast<int>(i), -kReach,
                        m_chirps.scores(static_cast<int>(i), -kReach, kReach));
        m_spent += static_cast<int>(chirps.size());
        if (chunk == kChunkCount - 1)
            m_worths[static_cast<std::size_t>(offset - kFirstOffset)] = trellis.best();
    }
    if (++m_unit < 2 * kChunkCount) return;
    chooseOffset();
    if (m_best < kLeastWorth)
        enter(Stage::kDone);
    else
        beginFine(m_offset);
}

void MotionSearch::beginFine(int offset) noexcept {
    m_offset = offset;
    m_end = static_cast<int>(kBefore_samples) + offset * kRow_samples;
    m_turns = 0;
    m_shift = 0;
    m_chirps.setGrid(80.0, 6, 1500.0, 3);
    trellises()[0].begin(m_workspace.of<Work>().paths);
    m_spent += 20;
    enter(Stage::kFine);
}

void MotionSearch::fine() noexcept {
    Trellis& trellis = trellises()[0];
    setWindow(m_end - (kChunkCount - 1 - m_unit) * static_cast<int>(kChunk));
    trellis.beginChunk(fineJump(m_best, m_stage == Stage::kWide));
    const std::span<const Chirp> chirps = m_chirps.chirps();
    for (std::size_t i = 0; i < chirps.size(); ++i)
        trellis.add(chirps[i], static_cast<int>(i), -kReach,
                    m_chirps.scores(static_cast<int>(i), -kReach, kReach));
    m_spent += static_cast<int>(chirps.size());
    if (++m_unit == kChunkCount) endFine();
}

/// A loud path that keeps to the rim of the chirps at hand has a second try among wider and coarser ones,
/// which only loud tones bear.
void MotionSearch::endFine() noexcept {
    Trellis& trellis = trellises()[0];
    const bool isWide = m_stage == Stage::kWide;
    const float worth = trellis.best();
    if (!isWide || worth > m_fineWorth) {
        follow(trellis, kChunk);
        m_fineWorth = worth;
    }
    const auto isAtRim = [this](const Trellis::Step& step) { return m_chirps.isAtRim(step.chirp); };
    const bool wantsWide = !isWide && m_best > kLoud * kChunkCount &&
                           std::count_if(m_steps.begin(), m_steps.end(), isAtRim) >= 3;
    if (wantsWide) {
        m_chirps.setGrid(160.0, 5, 3000.0, 3);
        trellis.begin(m_workspace.of<Work>().paths);
        m_spent += 20;
        enter(Stage::kWide);
        return;
    }
    m_chirps.setGrid(30.0, 3, 1.0, 0);
    turn();
    beginTiming(2);
}

/// The trellis' path as the next track to be taken out.
void MotionSearch::follow(const Trellis& trellis, double spacing_samples) noexcept {
    trellis.trace(m_chirps.chirps(), m_steps);
    FrequencyTrack& track = m_tracks[m_turns];
    for (std::size_t chunk = 0; chunk < m_steps.size(); ++chunk) {
        const auto [shift, chirp] = m_steps[chunk];
        track.hz[chunk] = shift * kBin_hz;
        track.hz_s[chunk] =
            static_cast<double>(m_chirps.chirps()[static_cast<std::size_t>(chirp)].slope_hz_s);
    }
    track.spacing_samples = spacing_samples;
    track.firstMiddle_samples = m_end - 256.5 - (kChunkCount - 1) * spacing_samples;
}

/// Takes the next track out, but for whole shifts.
void MotionSearch::turn() noexcept {
    const FrequencyTrack& track = m_tracks[m_turns];
    const int mean = static_cast<int>(std::lround(track.mean() / kBin_hz));
    const int shift = std::clamp(m_shift + mean, -kReach, kReach);
    m_kept_hz[m_turns] = (shift - m_shift) * kBin_hz;
    m_shift = shift;
    // From where the place of the end was before it was refined: a stretch that holds all ends looked at.
    const int end = static_cast<int>(kBefore_samples) + m_offset * kRow_samples;
    m_from[m_turns] = end - static_cast<int>(kTransmission_samples + kTurnedMargin_samples);
    const auto from = static_cast<std::size_t>(m_from[m_turns]);
    takeTrackOut(track, m_kept_hz[m_turns], std::span(m_re).subspan(from, kTurned_samples),
                 std::span(m_im).subspan(from, kTurned_samples), m_from[m_turns]);
    ++m_turns;
    m_spent += 40;
}

double MotionSearch::spacing_samples() const noexcept {
    return static_cast<double>(kChunk) / (1.0 + m_shift * kBin_hz / kMiddle_hz);
}

void MotionSearch::setChunk(int chunk, int end) noexcept {
    setWindow(static_cast<int>(std::lround(end - (kChunkCount - 1 - chunk) * spacing_samples())));
}

void MotionSearch::beginTiming(int ends) noexcept {
    m_ends = ends;
    m_timing.fill(0.0F);
    enter(Stage::kTiming);
}

/// Ends half a row apart, by steady tones alone.
void MotionSearch::timing() noexcept {
    const int place = m_unit / kChunkCount;
    constexpr int kNear = 3;
    const int steady = static_cast<int>(m_chirps.chirps().size()) / 2;
    setChunk(m_unit % kChunkCount, m_end + (place - m_ends) * kRow_samples / 2);
    const std::span<const float> scores = m_chirps.scores(steady, m_shift - kNear, m_shift + kNear);
    m_timing[static_cast<std::size_t>(place)] += *std::max_element(scores.begin(), scores.end());
    ++m_spent;
    if (++m_unit < (2 * m_ends + 1) * kChunkCount) return;
    const auto best =
        std::max_element(m_timing.begin(), m_timing.begin() + 2 * m_ends + 1) - m_timing.begin();
    m_end += (static_cast<int>(best) - m_ends) * kRow_samples / 2;
    trellises()[0].begin(m_workspace.of<Work>().paths);
    enter(Stage::kResidual);
}

void MotionSearch::residual() noexcept {
    Trellis& trellis = trellises()[0];
    setChunk(m_unit, m_end);
    trellis.beginChunk(kResidualJump);
    const std::span<const Chirp> chirps = m_chirps.chirps();
    for (std::size_t i = 0; i < chirps.size(); ++i) {
        const int index = static_cast<int>(i);
        const auto scores = m_chirps.scores(index, m_shift - kResidualReach, m_shift + kResidualReach);
        trellis.add(chirps[i], index, -kResidualReach, scores);
    }
    m_spent += static_cast<int>(chirps.size());
    if (++m_unit < kChunkCount) return;
    follow(trellis, spacing_samples());
    turn();
    if (m_turns < m_tracks.size()) return beginTiming(1);
    m_hasPath = true;
    enter(Stage::kDone);
}

std::span<const float> MotionSearch::re() const noexcept {
    return std::span(m_re).subspan(static_cast<std::size_t>(m_end) - kTransmission_samples - kMargin_samples,
                                   kTransmission_samples + 2 * kMargin_samples);
}

std::span<const float> MotionSearch::im() const noexcept {
    return std::span(m_im).subspan(static_cast<std::size_t>(m_end) - kTransmission_samples - kMargin_samples,
                                   kTransmission_samples + 2 * kMargin_samples);
}

float MotionSearch::speed_m_s() const noexcept {
    return static_cast<float>(m_shift * kBin_hz / kMiddle_hz) * kSpeedOfSound_m_s;
}

bool MotionSearch::nextOffset() noexcept {
    if (m_stage != Stage::kDone || !m_hasPath) return false;
    m_hasPath = false;
    for (int offset = m_offset - kOtherOffset_rows + 1; offset < m_offset + kOtherOffset_rows; ++offset) {
        const int at = offset - kFirstOffset;
        if (at >= 0 && at < kOffsets) m_worths[static_cast<std::size_t>(at)] = 0.0F;
    }
    const float best = m_best;
    chooseOffset();
    const float next = m_best;
    m_best = best;
    if (next < kNearlyAsGood * best || next < kLeastWorth) return false;
    for (; m_turns > 0; --m_turns) {
        const auto from = static_cast<std::size_t>(m_from[m_turns - 1]);
        putTrackBack(m_tracks[m_turns - 1], m_kept_hz[m_turns - 1],
                     std::span(m_re).subspan(from, kTurned_samples),
                     std::span(m_im).subspan(from, kTurned_samples), m_from[m_turns - 1]);
    }
    beginWork();
    beginFine(m_offset);
    return true;
}

} // namespace sorvel::deep
