/// The inputs and outputs of this machine, and what they are good for.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace sorvel {

/// One line for the user: what failed, on which device, and what to try.
class AudioDeviceError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct InputDevice {
    std::string name;        ///< for CaptureOptions::device
    std::string description; ///< for people; may be empty
    bool isDefault = false;
    bool isMonitor = false;             ///< hears what the machine plays
    double nativeRate_hz = 0.0;         ///< of the input itself; 0: unknown
    std::vector<int> supportedRates_hz; ///< of 44100, 48000 and 96000 those that it can be opened with
    double captureRate_hz = 0.0;        ///< what a listener opens it with; 0: it cannot be opened
};

struct OutputDevice {
    std::string name;        ///< for CubebPlayback
    std::string description; ///< for people; may be empty
    bool isDefault = false;
    double nativeRate_hz = 0.0;         ///< of the output itself; 0: unknown
    std::vector<int> supportedRates_hz; ///< of 44100, 48000 and 96000 those that it can be opened with
    double playbackRate_hz = 0.0;       ///< what a player opens it with; 0: it cannot be opened
};

/// All inputs, the default one first, then microphones before monitors. With a sound server these
/// are its sources, without one the machine's own devices, each of which is opened for a moment.
/// Takes some 10 ms, with a server that hangs 4 s.
/// @throws AudioDeviceError  when they cannot be listed
std::vector<InputDevice> inputDevices();
/// All outputs, the default one first; the rest as for inputs.
std::vector<OutputDevice> outputDevices();

/// Whether sound at this rate can hold the band from 18 to 19.5 kHz, with room for the filter that
/// every converter needs below half the rate.
bool carriesBand(double rate_hz) noexcept;
/// One line about what is wrong with the rate of an "input" or "output"; empty when nothing is.
std::string rateWarning(double rate_hz, const std::string& word = "input");

} // namespace sorvel
