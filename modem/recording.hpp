/// A recording between markers -> the bytes of a chunk at any position.
#pragma once

#include "modem/layout.hpp"
#include "modem/spectrum.hpp"

namespace sorvel::modem {

/// Keeps what is heard from a start marker on, and tells which bytes a chunk carries that begins at
/// a given sixteenth of a frame; nobody knows beforehand at which it does.
///
/// Chunks are read while they arrive: the 32 tones of each byte are summed over every sixteenth,
/// the sums of the sixteenths of one chunk are added up, and the loudest tones are kept as a byte
/// for every position. Where a protocol's chunks are too large for that (see `begin`), the samples
/// are kept, and each chunk is summed up and transformed when it is asked for.
///
/// A sample that is not a number, or as large as none ever is, spoils the chunks that it lies in
/// and no other.
class Recording {
public:
    static constexpr int kPositions = 16; ///< in a frame

    explicit Recording(Spectrum& spectrum) : m_spectrum(spectrum) {}

    void place(Layout& layout, int samplesPerFrame);

    /// Forgets everything and begins anew, for those enabled rows of `protocols` whose tones start
    /// at bin `freqStart` and sound together. Rows changed later are not followed.
    ///
    /// Chunks are read as they arrive if for all these rows together 1024 * frames * bytes of a
    /// chunk, the silent bytes from half of the bins on not counted, come to less
    /// than some two million.
    void begin(int freqStart, const GGWave::Protocols& protocols);
    void add(std::span<const float> frame); ///< frames beyond the longest message are dropped
    void end();                             ///< silence follows

    /// Whether row `id` is recorded, and still is as it was then.
    bool has(ggwave_ProtocolId id, const GGWave::Protocol& protocol) const;

    /// Reads one chunk of row `id`, `chunk.size()` bytes, that begins at
    /// `position`. After `end` only.
    void read(ggwave_ProtocolId id, int position, std::span<std::uint8_t> chunk);

private:
    /// Sliding sums of one protocol's chunks, and the bytes read from them.
    struct Row {
        int frames = 0, bytes = 0;    // of a chunk; no bytes: the row is not recorded
        int audible = 0;              // bytes of a chunk whose tones are not all silent
        std::span<float> sums;        // by sixteenth of a chunk: tones, see `push`
        std::span<float> newest;      // tones since `sums` was last turned round
        std::span<std::uint8_t> read; // by position: the audible bytes
        int pushed = 0;               // sixteenths

        /// Takes the tones of the next sixteenth, and reads the chunk that ends with it.
        void push(std::span<const float> tones);
        void store(int position, const float* older, const float* newer);
    };

    bool layOut();
    void makeTurns();
    void sumTones(std::span<const float> sixteenth, int block);
    void readSamples(const Row& row, int position, std::span<std::uint8_t> chunk);
    void sumFrames(const Row& row, int position);
    void layOver(std::span<float> sums, int at, int frames);

    Spectrum& m_spectrum;
    int m_samplesPerFrame = 0;
    ggvector<float> m_memory; // one of the two: samples, or what the spans below and the rows divide up
    std::array<Row, GGWAVE_PROTOCOL_COUNT> m_rows{};
    int m_freqStart = 0;
    bool m_keepsSamples = false;
    int m_mostFrames = 0, m_frames = 0; // that fit, and that were added

    // For chunks read as they arrive
    std::span<float> m_turns; // by sample of a sixteenth: cosines and sines of the tones
    std::span<float> m_tones; // sums over the newest sixteenth

    // For chunks read from samples: sums behind the recording, by number of the chunk, each of the frames
    // from `position` on
    struct Kept {
        int frames = 0, position = 0;
    };
    std::array<Kept, 32> m_kept{};
};

} // namespace sorvel::modem
