#include "modem/rs.hpp"

#include <cstdlib>
#include <vector>

// Bytes: message length, parity length, number of erasures, the erasures, the received word. The
// work area is exactly as large as promised, so that the address sanitizer sees any step beside it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3 || data[0] + data[1] > 255) return 0;
    const size_t message = data[0], parity = data[1], erasures = std::min<size_t>(data[2], size - 3);
    const std::vector<uint8_t> erased(data + 3, data + 3 + erasures);
    std::vector<uint8_t> word(data + 3 + erasures, data + size),
        area(RS::ReedSolomon::workSize(message, parity));
    word.resize(message + parity);
    for (const uint8_t p : erased)
        if (p < word.size()) word[p] = 0; // as the caller of a decoder with erasures does

    RS::ReedSolomon codec(data[0], data[1], area.data());
    std::vector<uint8_t> decoded(message, 0xA5), again(message + parity);
    const int result =
        codec.DecodeBlock(word.data(), word.data() + message, decoded.data(), erased.data(), erasures);
    if (result != 0 && decoded != std::vector<uint8_t>(message, 0xA5)) std::abort();
    if (result != 0) return 0;
    codec.Encode(decoded.data(), again.data());
    for (const uint8_t p : erased) again[p] = 0;
    size_t errors = 0;
    for (size_t i = 0; i < word.size(); ++i) errors += word[i] != again[i];
    if (2 * errors + erasures > parity) std::abort();
    return 0;
}
