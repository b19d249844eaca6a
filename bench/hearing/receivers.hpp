#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sorvel::hearing {

/// A receiver as a device drives it, and as it is compared here.
class TestedReceiver {
public:
    virtual ~TestedReceiver() = default;

    /// Forgets all sound.
    virtual void begin() = 0;
    /// Takes 100 ms, or the rest of the sound, and adds the texts that came out to `heard`.
    virtual void push(std::span<const float> block, std::vector<std::string>& heard) = 0;
    /// The sound has ended: what is under way may still come out.
    virtual void end(std::vector<std::string>& heard) = 0;
};

/// The modem's receiver on its real way: conversion to 96 kHz and 16 bits, blocks of 100 ms, the
/// modem. Every text comes out, whatever its prefix, and some more than once.
std::unique_ptr<TestedReceiver> makeClassicReceiver(double rate_hz);

/// The deep receiver at the device's own rate; null where this program is built without it.
std::unique_ptr<TestedReceiver> makeDeepReceiver(double rate_hz, std::string_view prefix);

/// The same for small machines.
std::unique_ptr<TestedReceiver> makeSmallReceiver(double rate_hz, std::string_view prefix);

/// Which receivers are compared.
enum class Kind { Classic, DeepWithPrefix, DeepWithout, SmallWithPrefix, SmallWithout };
/// In this order, "deep/4" and "small/4" being those that know the prefix.
const char* shortName(Kind kind);
/// Null for a deep one where there is none.
std::unique_ptr<TestedReceiver> makeReceiver(Kind kind, double rate_hz);

} // namespace sorvel::hearing
