#include "tools/transmission_search.hpp"

#include "deep/baseband.hpp"
#include "deep/candidates.hpp"
#include "deep/front_end.hpp"
#include "deep/motion_gate.hpp"
#include "deep/motion_search.hpp"
#include "deep/sub_blocks.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace sorvel {

namespace {

using namespace deep;

// Of noise: before, so that half a transmission is measured against something, and behind, to complete what
// has begun.
constexpr double kBefore_s = 3.5, kBehind_s = 0.7;
constexpr float kNoise = 1e-5F; // whose level does not matter, as every chunk is measured against its own
// Beside silence everything would be loud, what tones leak into others too: with a wrong tuning or end it
// stands out as far as they do. So the sound is covered by noise of its own that keeps to `kCover_db` below
// tones: evenly spread over this part of the baseband's latest peak, which falls by e in 50 ms.
constexpr float kCover = 0.0115F, kFall = 0.9925F;
constexpr float kRings_db = 10.0F; // ratio from which on short looks are worth their time
constexpr double kSame_s = 0.15;   // less than a chunk: two sightings of one transmission
constexpr double kSame_m_s = 0.4;  // less than half a tone's distance
// Of the evidence along a track, which can follow noise, and fits tones at rest a little better too.
constexpr float kTrackWorth = 0.8F, kTrackPenalty = 10.0F;
constexpr int kSlipped_bins = 18; // a path that followed the neighbouring tones
constexpr int kMostPlaces = 3;    // of the end, of a source that moves

std::size_t samplesIn(double time_s, double rate_hz) {
    return static_cast<std::size_t>(std::lround(time_s * rate_hz));
}

double speedOf(double shift) { return (ratioOfShift(shift) - 1.0) * static_cast<double>(kSpeedOfSound_m_s); }

} // namespace

class TransmissionSearch::Parts {
public:
    explicit Parts(double rate_hz) : m_frontEnd(rate_hz) { m_sightings.reserve(kMostSightings); }

    void take(std::span<const float> samples) {
        while (!samples.empty()) {
            m_baseband.makeRoom();
            std::size_t left = m_frontEnd.take(samples, m_baseband.nextRe(), m_baseband.nextIm());
            while (left > 0) {
                const std::size_t taken = std::min(left, kBlock - m_inBlock);
                cover(std::span(m_baseband.nextRe(), taken), std::span(m_baseband.nextIm(), taken));
                m_baseband.append(taken);
                m_inBlock += taken;
                left -= taken;
                if (m_inBlock < kBlock) continue;
                m_inBlock = 0;
                takeBlock();
            }
        }
    }
    void takeNoise(std::size_t count) {
        std::array<float, 512> noise{};
        for (; count > 0; count -= std::min(count, noise.size())) {
            for (float& sample : noise) sample = 0.5F * kNoise * anyNumber();
            take(std::span(noise).first(std::min(count, noise.size())));
        }
    }
    const std::vector<Sighting>& sightings() const noexcept { return m_sightings; }

private:
    /// From -1 to 1.
    float anyNumber() {
        return 2.0F * static_cast<float>(m_random()) / static_cast<float>(std::minstd_rand::max()) - 1.0F;
    }
    void cover(std::span<float> re, std::span<float> im) {
        for (std::size_t i = 0; i < re.size(); ++i) {
            m_peak = std::max(m_peak * kFall, re[i] * re[i] + im[i] * im[i]);
            const float most = kCover * std::sqrt(m_peak);
            re[i] += most * anyNumber();
            im[i] += most * anyNumber();
        }
    }

    void takeBlock() {
        const std::int64_t end = m_baseband.end();
        const auto before = [end](std::size_t samples) { return end - static_cast<std::int64_t>(samples); };
        const auto candidate =
            m_candidates.take(m_rows.take(m_baseband.re(before(kChunk)), m_baseband.im(before(kChunk))));
        if (candidate) look(*candidate);
        constexpr std::size_t kWindow = MotionGate::kWindow_samples;
        m_gate.push(m_baseband.re(before(kWindow)), m_baseband.im(before(kWindow)),
                    static_cast<std::uint64_t>(m_row));
        std::uint64_t endRow = 0;
        if (m_gate.takeCandidate(endRow)) lookForMotion(static_cast<std::int64_t>(endRow));
        ++m_row;
    }

    static std::int64_t endOfRow(std::int64_t row) { return (row + 1) * static_cast<std::int64_t>(kBlock); }

    void look(const Candidate& candidate) {
        const std::int64_t first = m_baseband.end() - Baseband::kKept;
        const SampleView samples{m_baseband.re(first), m_baseband.im(first), first,
                                 static_cast<std::size_t>(Baseband::kKept)};
        for (std::size_t i = 0; i < candidate.shiftCount; ++i) {
            Sighting sighting = seen(samples, endOfRow(candidate.row), candidate.shifts[i]);
            sighting.end_s = static_cast<double>(m_refinement.place().end) / kBasebandRate_hz;
            sighting.speed_m_s = speedOf(static_cast<double>(m_refinement.place().shift));
            keep(sighting);
        }
    }

    void lookForMotion(std::int64_t endRow) {
        const std::int64_t first = m_baseband.end() - Baseband::kKept, end = endOfRow(endRow);
        constexpr auto kCount = static_cast<std::size_t>(Baseband::kKept);
        m_motion.begin({m_baseband.re(first), kCount}, {m_baseband.im(first), kCount},
                       static_cast<std::size_t>(end - first));
        for (int place = 0; place < kMostPlaces; ++place) {
            while (!m_motion.step()) {
            }
            if (!m_motion.hasPath()) return;
            const SampleView turned{m_motion.re().data(), m_motion.im().data(), 0, m_motion.re().size()};
            const auto turnedEnd = static_cast<std::int64_t>(turned.count - MotionSearch::kMargin_samples);
            for (const int slipped : {0, kSlipped_bins, -kSlipped_bins}) {
                Sighting sighting = seen(turned, turnedEnd, m_motion.shift() + slipped);
                sighting.isMoving = true;
                sighting.air.evidence = kTrackWorth * sighting.air.evidence - kTrackPenalty;
                sighting.end_s = static_cast<double>(end + m_motion.endOffset_samples()) / kBasebandRate_hz;
                sighting.speed_m_s = static_cast<double>(m_motion.speed_m_s());
                keep(sighting);
            }
            if (!m_motion.nextOffset()) return;
        }
    }

    Sighting seen(SampleView samples, std::int64_t end, int shift) {
        m_refinement.begin(end, shift);
        for (int which = 0; which < Refinement::kEnds; ++which) m_refinement.tryEnd(samples, which);
        Sighting sighting;
        m_refinement.finish(samples, sighting.energies);
        sighting.air = score(sighting.energies, sighting.scores);
        if (sighting.air.ratio >= kRings_db)
            m_subBlocks.score(samples, m_refinement.place(), sighting.second.emplace());
        return sighting;
    }

    void keep(Sighting sighting) {
        sighting.end_s -= kBefore_s;
        if (!(sighting.air.evidence >= kLeastEvidence)) return;
        const auto same = std::find_if(m_sightings.begin(), m_sightings.end(), [&](const Sighting& other) {
            return std::abs(other.end_s - sighting.end_s) < kSame_s &&
                   std::abs(other.speed_m_s - sighting.speed_m_s) < kSame_m_s;
        });
        const auto isWeaker = [](const Sighting& a, const Sighting& b) {
            return a.air.evidence < b.air.evidence;
        };
        if (same == m_sightings.end() && m_sightings.size() < kMostSightings)
            return m_sightings.push_back(sighting);
        Sighting& replaced = same != m_sightings.end()
                                 ? *same
                                 : *std::min_element(m_sightings.begin(), m_sightings.end(), isWeaker);
        if (isWeaker(replaced, sighting)) replaced = sighting;
    }

    std::minstd_rand m_random; // the same noise each time
    float m_peak = 0.0F;       // power
    FrontEnd m_frontEnd;
    Baseband m_baseband;
    std::size_t m_inBlock = 0;
    std::int64_t m_row = 0;
    Transform m_transform{1024};
    Rows m_rows{m_transform};
    Candidates m_candidates;
    MotionGate m_gate;
    Workspace m_workspace; // of these three, of which only one is ever at work
    MotionSearch m_motion{m_transform, m_workspace};
    Refinement m_refinement{m_transform, m_workspace};
    SubBlocks m_subBlocks{m_workspace};
    std::vector<Sighting> m_sightings;
};

TransmissionSearch::TransmissionSearch(double rate_hz)
    : m_parts(std::make_unique<Parts>(rate_hz)), m_rate_hz(rate_hz) {
    m_parts->takeNoise(samplesIn(kBefore_s, rate_hz));
}
TransmissionSearch::~TransmissionSearch() = default;

void TransmissionSearch::take(std::span<const float> samples) { m_parts->take(samples); }

void TransmissionSearch::finish() { m_parts->takeNoise(samplesIn(kBehind_s, m_rate_hz)); }

const std::vector<Sighting>& TransmissionSearch::sightings() const noexcept { return m_parts->sightings(); }

} // namespace sorvel
