#include "tools/file_listening.hpp"

#include "platform/files/audio_file.hpp"
#include "tools/heard_line.hpp"
#include "tools/hearing_ahead.hpp"
#include "tools/interruption.hpp"

#include <algorithm>
#include <filesystem>
#include <thread>
#include <utility>

namespace sorvel {

namespace {

/// What has an end and can be searched. All else, as pipes, waits for its turn: nobody reads ahead of
/// its sender, nor two at a time.
bool isRegular(const std::string& file) {
    std::error_code error;
    return file != "-" && std::filesystem::is_regular_file(file, error);
}

std::size_t workers(const ListenOptions& options, std::size_t files) {
    const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
    return std::min(options.jobs ? static_cast<std::size_t>(*options.jobs) : cores, files);
}

} // namespace

FileListening::FileListening(const ListenOptions& options, const Platform& platform) : m_options(options) {
    if (options.messages) return;
    m_replay.emplace(options.prefix, options.all ? Repeats::Report : Repeats::Drop, platform,
                     [this](const Heard& heard) { print(heard); });
}

ExitCode FileListening::run() {
    const Interruption interruption;
    try {
        hearAll();
    } catch (const OutputClosed&) {
        m_status.clear();
    }
    return m_hasFailed ? kFailed : m_wasHeard ? kDone : kNothingHeard;
}

void FileListening::hearAll() {
    std::vector<std::string> regular;
    std::copy_if(m_options.files.begin(), m_options.files.end(), std::back_inserter(regular), isRegular);
    std::optional<HearingAhead> ahead;
    // One alone is heard on this thread.
    if (const std::size_t count = workers(m_options, regular.size()); count > 1)
        ahead.emplace(m_options, regular, count);
    std::optional<Hearing> here;
    std::size_t number = 0;
    for (const std::string& file : m_options.files) {
        if (isOver()) return;
        begin(file);
        if (ahead && number < regular.size() && file == regular[number]) {
            ahead->tell(number++, *this);
        } else {
            if (!here) here.emplace(m_options);
            here->hear(file, *this);
        }
        m_status.clear();
    }
}

void FileListening::begin(const std::string& file) { m_file = file; }

void FileListening::take(Finding finding) {
    std::visit([this](const auto& found) { take(found); }, finding);
}

void FileListening::take(const RecordingBegan&) {
    if (m_replay) m_replay->begin();
}

void FileListening::take(const Heard& heard) {
    if (m_replay && !isEnough()) m_replay->take(heard);
}

void FileListening::take(const HeardMessage& heard) {
    if (isEnough()) return;
    if (!heard.bytes) {
        warn(m_file + ": a message that ended at " + std::to_string(static_cast<long>(heard.time_s)) +
             " s could not be read");
        return;
    }
    const bool asText = !m_options.hex && isOneLine(*heard.bytes);
    say(m_options.json ? jsonLine(heard, m_file) : asText ? *heard.bytes : inHex(*heard.bytes));
}

void FileListening::take(const RecordingEnded& end) {
    if (m_replay) m_replay->end(end.length_s);
}

void FileListening::take(const HearingWarning& warning) { warn(warning.line); }

void FileListening::take(const HearingFailure& failure) {
    if (Interruption::hasCome()) return; // which then is why
    warn(failure.line);
    m_hasFailed = true;
}

void FileListening::take(const std::exception_ptr& exception) { std::rethrow_exception(exception); }

bool FileListening::isOver() const { return isEnough() || Interruption::hasCome(); }

void FileListening::print(const Heard& heard) { say(m_options.json ? jsonLine(heard, m_file) : heard.text); }

void FileListening::say(const std::string& line) {
    m_wasHeard = true;
    m_status.clear();
    printLine(line);
}

void FileListening::warn(const std::string& text) {
    m_status.clear();
    printError(text);
}

void FileListening::show(const HearingProgress& progress) {
    m_status.show([&] {
        const auto seconds = static_cast<double>(progress.frames) / progress.sampleRate_hz;
        std::string text = m_file + ": " + std::to_string(static_cast<long>(seconds)) + " s";
        if (progress.allFrames && *progress.allFrames > 0)
            text += ", " + std::to_string(100 * progress.frames / *progress.allFrames) + " %";
        return text;
    });
}

} // namespace sorvel
