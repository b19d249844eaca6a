#include "tools/hearing.hpp"

#include "platform/files/audio_file_reader.hpp"
#include "tools/channel_reader.hpp"
#include "tools/deep_recording_decoder.hpp"
#include "tools/interruption.hpp"
#include "tools/recording_decoder.hpp"

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

namespace sorvel {

namespace {

constexpr int kHighestTone_hz = 19500;

std::uint64_t framesToHear(const std::optional<double>& timeout_s, int rate_hz) {
    if (!timeout_s) return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(*timeout_s * rate_hz);
}

std::string inputName(const std::string& file) { return file == "-" ? "standard input" : file; }

std::string count(int channels) {
    return std::to_string(channels) + (channels == 1 ? " channel" : " channels");
}

} // namespace

Hearing::Hearing(const ListenOptions& options) : m_options(options), m_receiver(makeReceiver()) {}

std::unique_ptr<RecordingReceiver> Hearing::makeReceiver() {
    const auto tell = [this](const Heard& heard) { take(heard); };
    if (m_options.messages)
        return std::make_unique<MessageReceiver>(
            [this](const HeardMessage& heard) { m_findings->take(heard); });
    if (m_options.receiver == ReceiverKind::Deep)
        return std::make_unique<DeepRecordingDecoder>(m_options.prefix, tell);
    return std::make_unique<RecordingDecoder>(m_options.prefix, tell);
}

void Hearing::take(const Heard& heard) {
    if (m_hearsBoth)
        m_texts.put(heard);
    else
        m_findings->take(heard);
}

void Hearing::release(double heard_s) {
    m_texts.release(heard_s, [this](const Heard& heard) { m_findings->take(heard); });
}

void Hearing::hear(const std::string& file, Findings& findings) {
    m_findings = &findings;
    RecordingEnded end;
    bool hasBegun = false;
    std::optional<HearingFailure> failure;
    try {
        go(file, end, hasBegun);
    } catch (const AudioFileError& error) {
        failure.emplace(error.what());
    }
    release(std::numeric_limits<double>::infinity());
    if (hasBegun) findings.take(end);
    if (failure) findings.take(*std::move(failure));
}

void Hearing::checkChannel(const std::string& file, int channels) const {
    if (m_options.channel && *m_options.channel > static_cast<std::uint32_t>(channels))
        throw AudioFileError(inputName(file) + " has " + count(channels) + ", no channel " +
                             std::to_string(*m_options.channel) +
                             "; give --channel another number, or leave it out for the best one");
}

/// @throws AudioFileError; what was heard before it has been told
void Hearing::go(const std::string& file, RecordingEnded& end, bool& hasBegun) {
    AudioFileReader reader(file, m_options.isRaw ? std::optional(m_options.raw) : std::nullopt);
    const int rate_hz = reader.sampleRate_hz();
    if (rate_hz < 2 * kHighestTone_hz)
        m_findings->take(HearingWarning{file + " has " + std::to_string(rate_hz) +
                                        " Hz: too few for tones up to 19.5 kHz; record at 44100 Hz or more"});
    checkChannel(file, reader.channels());
    m_hearsBoth = m_options.receiver == ReceiverKind::Deep && !m_options.messages && !m_options.channel &&
                  reader.channels() == 2 && reader.frames();
    if (m_hearsBoth && !m_second) m_second = makeReceiver();
    ChannelReader channel(reader, m_hearsBoth ? std::optional(std::uint32_t{1}) : m_options.channel);

    // Only what cannot be searched makes wait for more of it.
    std::optional<Interruption::Input> input;
    if (!reader.frames()) input.emplace(reader.descriptor());
    const std::uint64_t most = framesToHear(m_options.timeout_s, rate_hz);
    m_findings->take(RecordingBegan{});
    hasBegun = true;
    Recording recording(*m_receiver, rate_hz);
    std::optional<Recording> second;
    if (m_hearsBoth) second.emplace(*m_second, rate_hz);
    std::uint64_t frames = 0;
    while (!m_findings->isOver() && frames < most) {
        const std::span<const float> mono = channel.next();
        if (mono.empty()) break;
        const std::size_t n = std::min<std::uint64_t>(mono.size(), most - frames);
        recording.take(mono.first(n));
        if (second) second->take(channel.beside(2).first(n));
        frames += n;
        end.length_s = static_cast<double>(frames) / rate_hz;
        release(end.length_s);
        m_findings->show({frames, rate_hz, reader.frames()});
    }
    recording.finish();
    if (second) second->finish();
    if (frames == 0 && most > 0 && !m_findings->isOver())
        m_findings->take(HearingWarning{
            file + " holds no samples; a recorder that was cut short may have left them to be read as raw"});
}

} // namespace sorvel
