// Parameters, calls and captured bytes of any kind: an instance may refuse, never overrun, hang or
// end the process.
#include "modem/ggwave.h"

#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ggwave_Parameters parameters = ggwave_getDefaultParameters();
    if (size < sizeof parameters + 2) return 0;
    ggwave_setLogFile(nullptr);
    std::memcpy(&parameters, data, sizeof parameters);
    const int blockBytes = data[sizeof parameters] * 97 + 1;
    const int volume = data[sizeof parameters + 1];
    std::vector<std::uint8_t> sound(data + sizeof parameters, data + size);

    const int id = ggwave_init(parameters);
    std::vector<char> payload(256);
    for (std::size_t at = 0; at < sound.size();) {
        const int n = std::min(blockBytes, static_cast<int>(sound.size() - at));
        ggwave_ndecode(id, sound.data() + at, n, payload.data(), 256);
        at += static_cast<std::size_t>(n);
    }
    const int bytes = ggwave_encode(id, sound.data(), static_cast<int>(sound.size()), 12, volume, nullptr, 1);
    if (bytes > 0) {
        std::vector<std::uint8_t> waveform(static_cast<std::size_t>(bytes));
        if (ggwave_encode(id, sound.data(), static_cast<int>(sound.size()), 12, volume, waveform.data(), 0) >
            bytes)
            __builtin_trap();
        ggwave_decode(id, waveform.data(), bytes, payload.data(), "");
    }
    ggwave_free(id);
    return 0;
}
