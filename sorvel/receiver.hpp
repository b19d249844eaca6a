#pragma once

#include "sorvel/sorvel.h"

#include <memory>
#include <span>
#include <string_view>

namespace sorvel::stream {

/// From one channel of sound to what is told. Thread: one at a time. Only makers allocate.
class Receiver {
public:
    virtual ~Receiver() = default;
    Receiver() = default;
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    /// Samples that one `hear` may take, so that it completes one text at most.
    static constexpr std::size_t kMost_samples = 256;

    virtual void hear(std::span<const float> samples) noexcept = 0;
    /// Completes with silence what the sound ends with.
    virtual void finish() noexcept = 0;
    /// Takes what `hear` or `finish` completed; sets all but `size` and `lost`.
    virtual bool take(sorvel_heard& heard) noexcept = 0;
    virtual void reset() noexcept = 0;
};

/// @return null without enough memory
/// @param prefix  in lower case, of characters of the alphabet; lent for this call
std::unique_ptr<Receiver> makeTextReceiver(double sampleRate_hz, std::string_view prefix);
std::unique_ptr<Receiver> makeMessageReceiver(double sampleRate_hz, std::string_view prefix);
/// @param sampleRate_hz  from 32000 on
std::unique_ptr<Receiver> makeDeepReceiver(double sampleRate_hz, std::string_view prefix);

} // namespace sorvel::stream
