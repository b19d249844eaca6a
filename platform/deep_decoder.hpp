#pragma once

#include "sdk/platform.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace sorvel {

namespace deep {
class Receiver;
struct Reception;
} // namespace deep

/// The deep receiver (deep/receiver.hpp) as the listener's decoder: it hears the same texts as the
/// modem, and hears them in 9 dB more noise, from sources that move, through whistles and echo.
///
///     sorvel::Platform platform = sorvel::defaultPlatform();
///     platform.makeDecoder = sorvel::makeDeepDecoder;
///     SorvelUBM listener("acme", platform);
///
/// From 32 kHz on it takes the source's own rate, floats of any number of interleaved channels, of
/// which it hears the mean, and so saves both conversions; everything else comes through the
/// converter at 96 kHz. A text mostly comes within 0.5 s after its transmission has ended.
///
/// Takes as much memory as deep::Receiver. Allocates in `prepare`, and in the first
/// `Decode` where nothing was prepared.
class DeepDecoder final : public Decoder {
public:
    enum class Texts : std::uint8_t { WithPrefix, All };
    using Observer = std::function<void(const deep::Reception&)>;

    /// @param texts     All: whatever prefix it is given
    /// @param observer  may be empty; on the capture thread, before a text is returned. May take a lock for
    ///                  a moment, and copy
    explicit DeepDecoder(Texts texts = Texts::WithPrefix, Observer observer = {});
    ~DeepDecoder() override;

    void InitSorvelWave() override {}
    bool prepare(const AudioFormat& captured, const std::string& prefix) override;
    std::int32_t Decode(const void* waveform, std::int32_t waveformSize, void* payloadBuffer,
                        const std::string& prefix) override;
    std::int32_t DecodeCaptured(const AudioBuffer& block, void* payloadBuffer) override;

private:
    void make(double sampleRate_hz, const std::string& prefix);
    std::int32_t takeText(void* payloadBuffer);

    Texts m_texts;
    Observer m_observer;
    std::unique_ptr<deep::Receiver> m_receiver;
    AudioFormat m_format; // that it takes
    std::string m_prefix; // it was made with
};

/// For `Platform::makeDecoder`.
std::unique_ptr<Decoder> makeDeepDecoder();

} // namespace sorvel
