#include "payload/encoding.hpp"

#include <cstdint>
#include <cstdlib>
#include <vector>

// The input is taken as a payload, when it is long enough, and as a text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(data, data + size);
    std::vector<char> payload(encoding::kPayloadBytes);
    if (size >= payload.size()) {
        payload.assign(data, data + payload.size());
        const std::string heard = encoding::extractStrings(payload.data());
        compressString(heard, payload.data());
        if (heard != encoding::kError && encoding::extractStrings(payload.data()) != heard) std::abort();
    }
    bool fits = size <= encoding::kMaxTextLength;
    for (const char c : text)
        fits = fits && (c == '\0' || encoding::kAlphabet.find(c) != std::string_view::npos);
    payload.assign(encoding::kPayloadBytes, 0x55);
    compressString(text, payload.data());
    if (fits && encoding::extractStrings(payload.data()) != text) std::abort();
    if (!fits && payload != std::vector<char>{payload[0], 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55,
                                              0x55, 0x55, 0x55, 0x55})
        std::abort();
    return 0;
}
