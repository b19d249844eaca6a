/// Texts as sound, for the subcommands that send.
#pragma once

#include <string>
#include <vector>

namespace sorvel {

inline constexpr int kTransmissionRate_hz = 48000;

/// Why `text` cannot be sent, as one line for the user; empty if it can.
std::string obstacleToSending(const std::string& text);

/// The waveform of one transmission at 48 kHz, 3.264 s long.
///
/// @param text            one without an obstacle
/// @param volume_percent  of full scale, 1 to 100: no sample is higher
/// @throws std::runtime_error if the modem refuses or has no instance left
std::vector<float> transmission(const std::string& text, int volume_percent);

} // namespace sorvel
