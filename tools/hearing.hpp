/// What listening to recordings finds, and who goes through one.
#pragma once

#include "tools/channel_texts.hpp"
#include "tools/heard.hpp"
#include "tools/listen_options.hpp"
#include "tools/message.hpp"
#include "tools/recording.hpp"

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace sorvel {

struct RecordingBegan {};
struct RecordingEnded {
    double length_s = 0.0; ///< as far as it was read
};
/// One line for the user; the recording goes on.
struct HearingWarning {
    std::string line;
};
/// One line for the user; the recording was heard as far as it could be read.
struct HearingFailure {
    std::string line;
};

/// Of one recording in this order: began, what was heard, ended, unless it could not be opened; a failure
/// comes last, warnings anywhere. An exception is of nobody's making, and ends all.
using Finding = std::variant<RecordingBegan, Heard, HeardMessage, RecordingEnded, HearingWarning,
                             HearingFailure, std::exception_ptr>;

struct HearingProgress {
    std::uint64_t frames = 0;
    int sampleRate_hz = 0; ///< 0: not opened yet
    std::optional<std::uint64_t> allFrames;
};

/// Who is told. Thread: that of the Hearing.
class Findings {
public:
    virtual ~Findings() = default;
    virtual void take(Finding finding) = 0;
    virtual void show(const HearingProgress& progress) = 0;
    /// Whether no more is wanted; asked ten times in a second of sound.
    virtual bool isOver() const = 0;
};

/// Goes through recordings, one after another, with a receiver of its own.
///
/// Of several channels it hears one, see ChannelReader. The deep receiver hears both of two in a file, so
/// that nothing depends on telling them apart in its noise.
///
/// Any number may be at work, each on a thread of its own, of which only one may hear what is no
/// regular file.
class Hearing {
public:
    /// @param options  outlive it
    explicit Hearing(const ListenOptions& options);

    /// What `findings` throw passes through.
    void hear(const std::string& file, Findings& findings);

private:
    std::unique_ptr<RecordingReceiver> makeReceiver();
    void checkChannel(const std::string& file, int channels) const;
    void take(const Heard& heard);
    void release(double heard_s);
    void go(const std::string& file, RecordingEnded& end, bool& hasBegun);

    const ListenOptions& m_options;
    Findings* m_findings = nullptr;                          // of the present recording
    std::unique_ptr<RecordingReceiver> m_receiver, m_second; // the second where both channels are heard
    bool m_hearsBoth = false;
    ChannelTexts m_texts; // of both
};

} // namespace sorvel
