#include "modem/recording.hpp"

#include "modem/coding.hpp"
#include "modem/target_clones.hpp"

#include <cmath>
#include <numbers>

// The sum of a sliding number of sixteenths is kept without ever subtracting one that leaves it,
// since the remains of a huge sample would stay in such a sum for good. The sixteenths of one chunk
// are stored side by side; when the last has come, each is replaced by the sum from itself to the
// last. From then on a chunk's sum is that of the older ones from its first on, and of the newer
// ones that have come since, which take the places of those no longer needed. (The two-stack queue
// of sliding-window aggregation: van Herk 1992.)

namespace sorvel::modem {

namespace {

constexpr int kTonesPerNibble = 16;
constexpr std::size_t kTonesPerByte = 2 * kTonesPerNibble;
constexpr std::size_t kTones = 2 * kTonesPerByte; // floats for a byte's tones: cosine sums, then sine sums

/// Coded bytes of the longest message.
constexpr int kLongestCoded =
    GGWave::kDefaultEncodedDataOffset + GGWave::kMaxLengthVariable + eccBytes(GGWave::kMaxLengthVariable);

/// The sums of a byte's tones over `samples`, of which each row of `turns` belongs to one.
SORVEL_TARGET_CLONES void sumTurns(std::span<const float> samples, const float* turns, float* out) {
    std::array<float, kTones> sums{};
    for (const float x : samples) {
        for (std::size_t i = 0; i < kTones; ++i) sums[i] += x * turns[i];
        turns += kTones;
    }
    std::copy(sums.begin(), sums.end(), out);
}

SORVEL_TARGET_CLONES void addTo(std::span<float> sums, const float* more) {
    for (std::size_t i = 0; i < sums.size(); ++i) sums[i] += more[i];
}

/// Index of the largest of 16 powers above 0; of equal ones the first.
int loudestTone(const float* power) {
    float most = 0.0F;
    for (int tone = 0; tone < kTonesPerNibble; ++tone) most = power[tone] > most ? power[tone] : most;
    int tone = 0;
    while (tone < kTonesPerNibble && power[tone] != most) ++tone;
    return tone % kTonesPerNibble; // none of them: all are no numbers, or below 0
}

std::uint8_t loudestByte(const float* power) {
    return static_cast<std::uint8_t>(loudestTone(power) | loudestTone(power + kTonesPerNibble) << 4);
}

/// The byte whose tones have these sums.
SORVEL_TARGET_CLONES std::uint8_t byteOf(const float* older, const float* newer) {
    std::array<float, kTonesPerByte> power{};
    for (std::size_t tone = 0; tone < kTonesPerByte; ++tone) {
        const float re = older[tone] + newer[tone];
        const float im = older[tone + kTonesPerByte] + newer[tone + kTonesPerByte];
        power[tone] = re * re + im * im;
    }
    return loudestByte(power.data());
}

} // namespace

void Recording::place(Layout& layout, int samplesPerFrame) {
    m_samplesPerFrame = samplesPerFrame;
    layout.place(m_memory, std::int64_t{GGWave::kMaxRecordedFrames} * samplesPerFrame);
}

void Recording::begin(int freqStart, const GGWave::Protocols& protocols) {
    m_freqStart = freqStart;
    m_frames = 0;
    m_kept = {};
    for (std::size_t id = 0; id < m_rows.size(); ++id) {
        const GGWave::Protocol& protocol = protocols[id];
        m_rows[id] = {};
        if (!protocol.enabled || protocol.extra != 1 || protocol.framesPerTx < 1 || protocol.bytesPerTx < 1 ||
            protocol.freqStart != freqStart)
            continue;
        m_rows[id].frames = protocol.framesPerTx;
        m_rows[id].bytes = protocol.bytesPerTx;
        const int bins = std::max(0, m_samplesPerFrame / 2 - freqStart);
        const int audible = (bins + static_cast<int>(kTonesPerByte) - 1) / static_cast<int>(kTonesPerByte);
        m_rows[id].audible = std::min<int>(protocol.bytesPerTx, audible);
    }
    m_keepsSamples = m_samplesPerFrame % (2 * kPositions) != 0 || !layOut();
    if (m_keepsSamples) {
        m_mostFrames = GGWave::kMaxRecordedFrames;
    } else {
        makeTurns();
    }
}

/// Divides the memory up for reading chunks as they arrive. False: it does not suffice.
bool Recording::layOut() {
    std::size_t used = 0;
    const auto take = [&](std::size_t floats) {
        const auto fits = used + floats <= m_memory.span().size();
        const std::span<float> taken = fits ? m_memory.span().subspan(used, floats) : std::span<float>{};
        used += floats;
        std::fill(taken.begin(), taken.end(), 0.0F);
        return taken;
    };
    int most = 0;
    m_mostFrames = 0;
    for (Row& row : m_rows) {
        if (row.bytes == 0) continue;
        const int chunks = (kLongestCoded + row.bytes - 1) / row.bytes;
        const int frames = chunks * row.frames + 2 * GGWave::kDefaultMarkerFrames;
        const std::size_t tones = kTones * static_cast<std::size_t>(row.audible);
        const auto bytes = static_cast<std::size_t>(kPositions * frames * row.audible);
        row.sums = take(static_cast<std::size_t>(kPositions * row.frames) * tones);
        row.newest = take(tones);
        const std::span<float> read = take((bytes + sizeof(float) - 1) / sizeof(float));
        row.read = {reinterpret_cast<std::uint8_t*>(read.data()), bytes};
        most = std::max(most, row.audible);
        m_mostFrames = std::max(m_mostFrames, frames);
    }
    m_tones = take(kTones * static_cast<std::size_t>(most));
    m_turns = take(m_tones.size() * static_cast<std::size_t>(m_samplesPerFrame / kPositions));
    return used <= m_memory.span().size();
}

/// Cosines and sines of every tone over the first sixteenth of a frame. Bin 0 of a spectrum is the
/// power of the constant and of the alternating share together, and from half of the bins on there
/// is silence.
void Recording::makeTurns() {
    const int samples = m_samplesPerFrame / kPositions;
    float* turns = m_turns.data();
    for (int byte = 0; byte < static_cast<int>(m_tones.size() / kTones); ++byte) {
        for (int sample = 0; sample < samples; ++sample, turns += kTones) {
            for (std::size_t tone = 0; tone < kTonesPerByte; ++tone) {
                const int bin = m_freqStart + static_cast<int>(kTonesPerByte) * byte + static_cast<int>(tone);
                if (bin >= m_samplesPerFrame / 2) continue;
                const double angle = 2.0 * std::numbers::pi * (bin * sample % m_samplesPerFrame) /
                                     static_cast<double>(m_samplesPerFrame);
                turns[tone] = static_cast<float>(std::cos(angle));
                turns[tone + kTonesPerByte] =
                    bin > 0 ? static_cast<float>(std::sin(angle)) : (sample % 2 == 0 ? 1.0F : -1.0F);
            }
        }
    }
}

void Recording::add(std::span<const float> frame) {
    if (m_frames >= m_mostFrames) return;
    if (m_keepsSamples) {
        std::copy(frame.begin(), frame.end(), m_memory.data() + std::ptrdiff_t{m_frames} * m_samplesPerFrame);
    } else {
        const std::size_t samples = frame.size() / kPositions;
        for (int block = 0; block < kPositions; ++block) {
            sumTones(frame.subspan(static_cast<std::size_t>(block) * samples, samples), block);
            for (Row& row : m_rows) {
                if (row.bytes > 0) row.push(m_tones);
            }
        }
    }
    ++m_frames;
}

/// Leaves the tones of a frame's sixteenth number `block` in m_tones. They turn by whole cycles in
/// a frame, so that in a sixteenth they turn by whole sixteenths of a cycle.
void Recording::sumTones(std::span<const float> sixteenth, int block) {
    static constexpr std::array<float, kPositions> kSines{0.0F,  0.382683432F,  0.707106781F,  0.923879533F,
                                                          1.0F,  0.923879533F,  0.707106781F,  0.382683432F,
                                                          0.0F,  -0.382683432F, -0.707106781F, -0.923879533F,
                                                          -1.0F, -0.923879533F, -0.707106781F, -0.382683432F};
    for (std::size_t byte = 0; byte < m_tones.size() / kTones; ++byte) {
        float* const re = m_tones.data() + byte * kTones;
        float* const im = re + kTonesPerByte;
        sumTurns(sixteenth, m_turns.data() + byte * sixteenth.size() * kTones, re);
        for (std::size_t tone = 0; tone < kTonesPerByte; ++tone) {
            const std::size_t bin = static_cast<std::size_t>(m_freqStart) + kTonesPerByte * byte + tone;
            const std::size_t turn = bin * static_cast<std::size_t>(block) % kPositions;
            const float sine = kSines[turn], cosine = kSines[(turn + kPositions / 4) % kPositions];
            const float turned = re[tone] * cosine - im[tone] * sine;
            im[tone] = re[tone] * sine + im[tone] * cosine;
            re[tone] = turned;
        }
    }
}

void Recording::Row::push(std::span<const float> tones) {
    const std::size_t size = newest.size();
    const int places = kPositions * frames, place = pushed % places, position = pushed - places + 1;
    const auto at = [&](int i) { return sums.subspan(static_cast<std::size_t>(i) * size, size); };
    addTo(newest, tones.data());
    std::copy_n(tones.begin(), size, at(place).begin());
    if (place == places - 1) {
        for (int i = place; i > 0; --i) addTo(at(i - 1), at(i).data());
        std::fill(newest.begin(), newest.end(), 0.0F);
    }
    if (position >= 0) store(position, at((place + 1) % places).data(), newest.data());
    ++pushed;
}

void Recording::Row::store(int position, const float* older, const float* newer) {
    const auto first = static_cast<std::size_t>(position * audible);
    if (first + static_cast<std::size_t>(audible) > read.size()) return;
    for (std::size_t byte = 0; byte < static_cast<std::size_t>(audible); ++byte)
        read[first + byte] = byteOf(older + byte * kTones, newer + byte * kTones);
}

void Recording::end() {
    if (m_keepsSamples) return;
    std::fill(m_tones.begin(), m_tones.end(), 0.0F);
    for (Row& row : m_rows) {
        // Until the chunk that begins with the last sixteenth is complete.
        while (row.bytes > 0 && row.pushed < kPositions * (m_frames + row.frames) - 1) row.push(m_tones);
    }
}

bool Recording::has(ggwave_ProtocolId id, const GGWave::Protocol& protocol) const {
    const Row& row = m_rows[static_cast<std::size_t>(id)];
    return row.bytes > 0 && protocol.enabled && protocol.extra == 1 && protocol.freqStart == m_freqStart &&
           protocol.framesPerTx == row.frames && protocol.bytesPerTx == row.bytes;
}

void Recording::read(ggwave_ProtocolId id, int position, std::span<std::uint8_t> chunk) {
    const Row& row = m_rows[static_cast<std::size_t>(id)];
    if (m_keepsSamples) {
        readSamples(row, position, chunk);
        return;
    }
    const auto audible = static_cast<std::size_t>(row.audible);
    const std::size_t first = static_cast<std::size_t>(position) * audible;
    const bool isRead = position < kPositions * m_frames && first + audible <= row.read.size();
    for (std::size_t byte = 0; byte < chunk.size(); ++byte)
        chunk[byte] = isRead && byte < audible ? row.read[first + byte] : std::uint8_t{0};
}

/// Sums samples from `at` on and in the same place of the frames after it; behind
/// the recording is silence.
void Recording::layOver(std::span<float> sums, int at, int frames) {
    std::fill(sums.begin(), sums.end(), 0.0F);
    const int recorded = m_frames * m_samplesPerFrame;
    for (int frame = 0; frame < frames && at < recorded; ++frame, at += m_samplesPerFrame) {
        const auto rest = static_cast<std::size_t>(recorded - at);
        addTo(sums.first(std::min(sums.size(), rest)), m_memory.data() + at);
    }
}

/// Lays the frames of a chunk over each other for the transform. Which sample of a frame the sum begins with
/// turns the phases alone, so each sample keeps its place; and since a message is searched backwards, all but
/// a sixteenth of a sum was made for the position behind.
void Recording::sumFrames(const Row& row, int position) {
    if (m_samplesPerFrame % kPositions != 0) {
        layOver(m_spectrum.samples(), position * m_samplesPerFrame / kPositions, row.frames);
        return;
    }
    const auto n = static_cast<std::size_t>(m_samplesPerFrame), size = n / kPositions;
    const auto number = static_cast<std::size_t>(position / (kPositions * row.frames));
    const std::span<float> unused = m_memory.span().subspan(static_cast<std::size_t>(m_frames) * n);
    const bool isKept = number < m_kept.size() && (number + 1) * n <= unused.size();
    const std::span<float> sums = isKept ? unused.subspan(number * n, n) : m_spectrum.samples();
    Kept fresh{row.frames, position + kPositions};
    Kept& kept = isKept ? m_kept[number] : fresh;
    if (kept.frames != row.frames || kept.position <= position || kept.position > position + kPositions)
        kept = fresh;
    for (; kept.position > position; --kept.position) {
        const int sixteenth = kept.position - 1;
        layOver(sums.subspan(static_cast<std::size_t>(sixteenth % kPositions) * size, size),
                sixteenth * static_cast<int>(size), row.frames);
    }
    if (isKept) std::copy(sums.begin(), sums.end(), m_spectrum.samples().begin());
}

void Recording::readSamples(const Row& row, int position, std::span<std::uint8_t> chunk) {
    sumFrames(row, position);
    const std::span<const float> spectrum = m_spectrum.analyseSamples();
    for (std::size_t byte = 0; byte < chunk.size(); ++byte) {
        const std::size_t base = static_cast<std::size_t>(m_freqStart) + kTonesPerByte * byte;
        std::array<float, kTonesPerByte> power{};
        for (std::size_t tone = 0; tone < kTonesPerByte && base + tone < spectrum.size(); ++tone)
            power[tone] = spectrum[base + tone];
        chunk[byte] = loudestByte(power.data());
    }
}

} // namespace sorvel::modem
