#include "modem/recording.hpp"
#include "tests/support/transmissions.hpp"

#include <gtest/gtest.h>
#include <memory>
#include <numbers>
#include <optional>

namespace {

using sorvel::modem::Layout;
using sorvel::modem::Recording;
using sorvel::modem::Spectrum;

constexpr int kFrame = 256;

/// A recording on its own, of noise.
class Alone {
public:
    Alone(int freqStart, const GGWave::Protocols& protocols, const Samples& sound) {
        Layout sizes(nullptr);
        place(sizes);
        m_block = std::make_unique<std::byte[]>(static_cast<std::size_t>(sizes.bytes()));
        Layout places(m_block.get());
        place(places);
        m_recording.begin(freqStart, protocols);
        for (std::size_t at = 0; at < sound.size(); at += kFrame)
            m_recording.add(std::span(sound).subspan(at, kFrame));
        m_recording.end();
    }
    Recording* operator->() { return &m_recording; }

private:
    void place(Layout& layout) {
        m_spectrum.place(layout, kFrame);
        m_recording.place(layout, kFrame);
    }
    Spectrum m_spectrum;
    Recording m_recording{m_spectrum};
    std::unique_ptr<std::byte[]> m_block;
};

/// The loudest of 16 tones from bin `base` on, over the frames of a chunk, as its sum; nothing where two are
/// so close that rounding decides.
std::optional<int> loudestTone(const Samples& sound, int position, int frames, int base) {
    std::array<double, 16> power{};
    for (int tone = 0; tone < 16; ++tone) {
        const int bin = base + tone;
        if (bin >= kFrame / 2) continue; // silent
        double re = 0, im = 0;
        for (int i = 0; i < frames * kFrame; ++i) {
            const auto at = static_cast<std::size_t>(position * kFrame / 16 + i);
            if (at >= sound.size()) break; // silence follows
            const double turn = 2 * std::numbers::pi * (bin * i % kFrame) / kFrame;
            re += static_cast<double>(sound[at]) * std::cos(turn);
            im += static_cast<double>(sound[at]) * (bin > 0 ? std::sin(turn) : i % 2 == 0 ? 1.0 : -1.0);
        }
        power[static_cast<std::size_t>(tone)] = re * re + im * im;
    }
    const auto most = std::max_element(power.begin(), power.end());
    const auto isClose = [&](double p) { return p > 0.999 * *most; };
    if (*most > 0 && std::count_if(power.begin(), power.end(), isClose) > 1) return std::nullopt;
    return static_cast<int>(most - power.begin());
}

TEST(Recordings, ReadAnyChunkAtAnyPositionInAnyOrder) {
    struct Case {
        int freqStart, frames, bytes, otherFrames; // of two rows that are recorded together
    };
    std::mt19937 generator(61);
    for (const auto& [freqStart, frames, bytes, otherFrames] : {
             Case{40, 3,   1, 5  },
             Case{0,  2,   2, 1  },
             Case{90, 4,   3, 4  },
             Case{5,  127, 8, 127}
    }) { // the last from samples
        GGWave::Protocols protocols{};
        const auto row = [&](int rowFrames) {
            return GGWave::Protocol{"any",
                                    static_cast<std::int16_t>(freqStart),
                                    static_cast<std::int8_t>(rowFrames),
                                    static_cast<std::int8_t>(bytes),
                                    1,
                                    true};
        };
        protocols[3] = row(frames);
        protocols[9] = row(otherFrames);
        const int recorded = frames > 100 ? 300 : 12;
        const Samples sound =
            noise(static_cast<std::size_t>(recorded * kFrame), 0.3F, static_cast<unsigned>(generator()));
        Alone recording(freqStart, protocols, sound);
        EXPECT_TRUE(recording->has(3, protocols[3]));
        EXPECT_FALSE(recording->has(3, protocols[0]) || recording->has(4, protocols[3]));
        int position = 16 * recorded + 20;
        for (int trial = 0; trial < 60; ++trial) {
            // Backwards step by step, as a search does, with leaps in between.
            position = trial % 10 == 9 ? static_cast<int>(generator() % static_cast<unsigned>(16 * recorded))
                                       : std::max(0, position - 1 - trial % 3);
            const ggwave_ProtocolId id = trial % 4 == 3 ? 9 : 3;
            Bytes chunk(static_cast<std::size_t>(bytes));
            recording->read(id, position, chunk);
            for (int nibble = 0; nibble < 2 * bytes; ++nibble) {
                const auto expected =
                    loudestTone(sound, position, id == 3 ? frames : otherFrames, freqStart + 16 * nibble);
                const int read = chunk[static_cast<std::size_t>(nibble / 2)] >> (4 * (nibble % 2)) & 15;
                ASSERT_EQ(read, expected.value_or(read))
                    << freqStart << " at " << position << ", nibble " << nibble;
            }
        }
    }
}

} // namespace
