/// The machine's loudspeaker.
///
///     sorvel::CubebPlayback loudspeaker("USB");
///     while (!samples.empty()) {
///         samples = samples.subspan(loudspeaker.write(samples));
///         std::this_thread::sleep_for(20ms);
///     }
///     loudspeaker.finish();
///     while (loudspeaker.end() == CubebPlayback::End::None) std::this_thread::sleep_for(20ms);
///
/// An output is opened at its own rate, as an input is: another one would cost the band. The sound
/// server says which that is, and a device without server is opened at 48, 96 or 44.1 kHz, the
/// first that it has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace sorvel {

/// Samples go through a ring of half a second to the library's thread, which neither waits nor
/// allocates: where none are there in time it plays silence, and counts that.
///
/// Thread: one. Nothing waits but the constructor, some 20 ms, with a sound server that hangs up to
/// 8 s, and the destructor.
class CubebPlayback {
public:
    /// Drained: all has been played after `finish`. Gone: the output was unplugged, or the server ended.
    enum class End : std::uint8_t { None, Drained, Gone };

    /// Opens an output and starts it.
    /// @param device  its name, or a part of its name or description that fits no other, without
    ///                regard to ASCII case; empty: the default one
    /// @throws AudioDeviceError  when there is none, or it cannot be opened
    explicit CubebPlayback(const std::string& device);
    /// Ends the sound at once; what hangs is left to itself after half a second.
    ~CubebPlayback();
    CubebPlayback(const CubebPlayback&) = delete;
    CubebPlayback& operator=(const CubebPlayback&) = delete;

    const std::string& name() const noexcept;
    double rate_hz() const noexcept;

    /// Takes what there is room for, all channels alike, full scale 1.0. @return how many samples
    std::size_t write(std::span<const float> mono) noexcept;
    /// What has been written is all.
    void finish() noexcept;
    End end() const noexcept;
    /// Samples that the library has taken so far.
    std::uint64_t taken() const noexcept;
    /// Times that samples came too late.
    std::uint64_t gaps() const noexcept;

private:
    struct Stream;
    std::shared_ptr<Stream> m_stream;
};

} // namespace sorvel
