#pragma once

#include "tools/command.hpp"
#include "tools/hearing.hpp"
#include "tools/listen_options.hpp"
#include "tools/text_replay.hpp"

#include <optional>
#include <string>

namespace sorvel {

/// Prints what recordings hold, in the order of the files, whoever hears them.
class FileListening final : public Findings {
public:
    /// @param options   outlive it
    /// @param platform  sends the events of texts; not used for messages
    FileListening(const ListenOptions& options, const Platform& platform);

    /// Goes through all files, until a signal, --once or the end of standard output's reader ends it.
    ExitCode run();

private:
    void hearAll();
    void begin(const std::string& file);

    void take(Finding finding) override;
    void show(const HearingProgress& progress) override;
    bool isOver() const override;

    void take(const RecordingBegan&);
    void take(const Heard& heard);
    void take(const HeardMessage& heard);
    void take(const RecordingEnded& end);
    void take(const HearingWarning& warning);
    void take(const HearingFailure& failure);
    [[noreturn]] void take(const std::exception_ptr& exception);

    bool isEnough() const { return m_options.once && m_wasHeard; }
    void print(const Heard& heard);
    void say(const std::string& line);
    void warn(const std::string& text);

    const ListenOptions& m_options;
    std::optional<TextReplay> m_replay; // none: of messages
    StatusLine m_status;
    std::string m_file; // that is being told
    bool m_wasHeard = false;
    bool m_hasFailed = false;
};

} // namespace sorvel
