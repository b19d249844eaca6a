/// Messages of 1 to 140 bytes between markers: their sound, and the path from a
/// recording back to them.
#pragma once

#include "modem/ggwave.h"
#include "tools/recording.hpp"

#include <array>
#include <functional>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace sorvel {

/// One message as sound at kTransmissionRate_hz, full scale 1.0.
/// @throws UsageError for an empty or too long message, a protocol that is not enabled, or one that makes the
///         transmission too long
std::vector<float> messageTransmission(const std::string& bytes, ggwave_ProtocolId protocolId,
                                       int volume_percent);

/// Whether `bytes` can stand on a terminal as they are: UTF-8 without control characters, tabs and
/// line ends aside.
bool isPrintable(const std::string& bytes);
/// Whether `bytes` can moreover stand among lines of others without being taken for several.
bool isOneLine(const std::string& bytes);
/// Two lower-case digits a byte.
std::string inHex(const std::string& bytes);

struct HeardMessage {
    std::optional<std::string> bytes; ///< nothing: a message began, but could not be read
    double time_s = 0.0;              ///< from the recording's start to the frame in which it ended
};

/// Converts sound to 48 kHz and hands it to the modem in whole frames.
///
/// File audio gets a triangular dither of one 16-bit step: in digital silence the switching of
/// tones looks like an end marker.
class MessageReceiver final : public RecordingReceiver {
public:
    explicit MessageReceiver(std::function<void(const HeardMessage&)> deliver);

private:
    static constexpr std::size_t kFrame_samples = 1024;

    double start(double sampleRate_hz) override;
    void push(std::span<const float> samples) override;
    void complete() override;
    void decodeFrame();

    std::function<void(const HeardMessage&)> m_deliver;
    GGWave m_modem;
    std::array<float, kFrame_samples> m_frame{};
    std::size_t m_gathered = 0; // samples in m_frame
    std::uint64_t m_frames = 0; // since `begin`
    std::minstd_rand m_dither{1};
};

} // namespace sorvel
