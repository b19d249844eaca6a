#pragma once

#include "sdk/platform.hpp"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace sorvel {

/// The decoder behind `CPP_wrapper`.
std::unique_ptr<Decoder> makeModemDecoder();

/// From one captured block to the text it completes: conversion to 96 kHz where the decoder wants
/// that, decoding, bytes to characters.
///
/// Made at every start of listening, with all the memory it needs; used on the capture thread.
class BlockDecoding {
public:
    /// @param converter  null: blocks go to the decoder as they are
    BlockDecoding(std::unique_ptr<AudioConverter> converter, std::shared_ptr<Decoder> decoder,
                  std::string prefix, std::shared_ptr<ProgressLines> progress);

    /// @return the text, or an empty view if this block completed none; valid until the next call
    ///
    /// Allocates for a block longer than every one before (100 ms are there from the start),
    /// otherwise never; a fault prints one line when it first shows, not for each
    /// block that has it.
    std::string_view hear(const AudioBuffer& block);

private:
    std::int32_t decode(const AudioBuffer& block);
    bool convert(const AudioBuffer& block);
    std::int32_t waveformBytes() const noexcept;
    void print(std::string_view line);

    std::unique_ptr<AudioConverter> m_converter;
    std::shared_ptr<Decoder> m_decoder;
    std::string m_prefix;
    std::shared_ptr<ProgressLines> m_progress;
    AudioBuffer m_output;
    std::array<unsigned char, 256> m_payload{};
    std::array<char, 256> m_text{};
    bool m_wasUnusable = false; // the block before
    bool m_wasConverted = true; // the block before
};

} // namespace sorvel
