#pragma once

#include "platform/files/audio_file.hpp"
#include "sdk/platform.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sorvel {

enum class ReceiverKind : std::uint8_t { Classic, Deep };

struct ListenOptions {
    std::vector<std::string> files; ///< none: the microphone
    std::string prefix;
    ReceiverKind receiver = ReceiverKind::Deep;
    bool isReceiverGiven = false;
    bool json = false;
    bool all = false;
    bool isRaw = false;
    RawAudio raw;
    bool messages = false;
    bool hex = false;
    std::string protocolFile;
    std::optional<int> jobs;              ///< none: cores
    std::optional<std::uint32_t> channel; ///< from 1 on; none: the best

    std::string device;
    std::optional<double> timeout_s;
    bool once = false;
    bool orDemo = false;
    bool noTelemetry = false;
};

/// Listens on a microphone until a signal, --timeout or --once ends it. @return an ExitCode
int listenLive(const ListenOptions& options, const Platform& platform);

} // namespace sorvel
