#include "platform/files/audio_file_reader.hpp"

#include "platform/audio/rate_converter.hpp"
#include "platform/files/open_file.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace sorvel {

namespace {

constexpr std::size_t kPiece_frames = 1024;

[[noreturn]] void cannotRead(const std::string& path, const std::string& reason) {
    throw AudioFileError("cannot read " + (isStandardStream(path) ? "standard input" : path) + ": " + reason);
}

} // namespace

struct AudioFileReader::Source {
    Source(std::string givenPath, int descriptor)
        : path(std::move(givenPath)),
          file(descriptor,
               isStandardStream(path) ? Descriptor::Ownership::Borrowed : Descriptor::Ownership::Owned) {}

    std::string path;
    Descriptor file; // outlives `sound`
    SF_INFO info{};
    bool isSeekable = false;
    bool isWhole = false; // stored as whole numbers, so that all samples are within full scale
    Sound sound;
    std::vector<float> interleaved;
    std::string damage; // the library's words for it, once it was met

    std::size_t take(float* target, std::size_t frames);
    void tellDamage(std::size_t done) const;
};

namespace {

int openedForReading(const std::string& path) {
    if (!isStandardStream(path)) return ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (::isatty(STDIN_FILENO) == 1)
        cannotRead(path, "it is a terminal; pipe a WAV stream into it or name a file");
    return STDIN_FILENO;
}

void checkFormat(const std::string& path, const SF_INFO& info) {
    if (info.channels < 1 || info.channels > AudioFileReader::kMaxChannels)
        cannotRead(path, std::to_string(info.channels) + " channels, 1 to " +
                             std::to_string(AudioFileReader::kMaxChannels) + " are possible");
    if (info.samplerate < kLowestSampleRate_hz || info.samplerate > kHighestSampleRate_hz)
        cannotRead(path,
                   "a rate of " + std::to_string(info.samplerate) + " Hz, 8000 to 384000 Hz are possible");
}

bool isWhole(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
        return true;
    default:
        return false;
    }
}

} // namespace

AudioFileReader::AudioFileReader(const std::string& path, const std::optional<RawAudio>& raw) {
    const int descriptor = openedForReading(path);
    if (descriptor < 0) cannotRead(path, systemReason(errno));
    m_source = std::make_unique<Source>(path, descriptor);

    struct stat facts = {};
    if (::fstat(descriptor, &facts) != 0) cannotRead(path, systemReason(errno));
    if (S_ISDIR(facts.st_mode)) cannotRead(path, "it is a folder; name the files in it");
    m_source->isSeekable = S_ISREG(facts.st_mode);
    if (m_source->isSeekable && facts.st_size == 0) cannotRead(path, "the file is empty");

    SF_INFO& info = m_source->info;
    if (raw) {
        info.samplerate = raw->sampleRate_hz;
        info.channels = raw->channels;
        info.format = SF_FORMAT_RAW | SF_ENDIAN_LITTLE | soundFormat(raw->format);
        checkFormat(path, info);
    }
    m_source->sound.reset(soundFileFunctions().open_fd(descriptor, SFM_READ, &info, SF_FALSE));
    if (!m_source->sound)
        cannotRead(path, m_source->isSeekable
                             ? "no sound in a known format, or a damaged one; samples without a "
                               "header have to be read as raw"
                             : "no WAV stream; other formats have to come as files, samples "
                               "without a header as raw");
    checkFormat(path, info);
    m_source->isWhole = isWhole(info.format);
    if (info.channels > 1)
        m_source->interleaved.resize(kPiece_frames * static_cast<std::size_t>(info.channels));
}

AudioFileReader::~AudioFileReader() = default;
AudioFileReader::AudioFileReader(AudioFileReader&&) noexcept = default;
AudioFileReader& AudioFileReader::operator=(AudioFileReader&&) noexcept = default;

int AudioFileReader::sampleRate_hz() const noexcept { return m_source->info.samplerate; }
int AudioFileReader::channels() const noexcept { return m_source->info.channels; }
int AudioFileReader::descriptor() const noexcept { return m_source->file.number(); }

std::optional<std::uint64_t> AudioFileReader::frames() const noexcept {
    if (!m_source->isSeekable || m_source->info.frames < 0) return std::nullopt;
    return static_cast<std::uint64_t>(m_source->info.frames);
}

/// At most `frames`; fewer may come before the end.
std::size_t AudioFileReader::Source::take(float* target, std::size_t frames) {
    const sf_count_t got =
        soundFileFunctions().readf_float(sound.get(), target, static_cast<sf_count_t>(frames));
    const std::size_t taken = std::min(frames, static_cast<std::size_t>(std::max<sf_count_t>(got, 0)));
    // Asked at once: the library forgets an error when it is called again.
    if (taken < frames && damage.empty() && soundFileFunctions().error(sound.get()) != SF_ERR_NO_ERROR)
        damage = soundFileFunctions().strerror(sound.get());
    return taken;
}

/// What was read before the damage is handed out first.
void AudioFileReader::Source::tellDamage(std::size_t done) const {
    if (done == 0 && !damage.empty()) cannotRead(path, "damaged or incomplete (" + damage + ")");
}

std::size_t AudioFileReader::readAll(std::span<float> interleaved) {
    const std::size_t frames = interleaved.size() / static_cast<std::size_t>(channels());
    std::size_t done = 0;
    while (done < frames) {
        const std::size_t n =
            m_source->take(interleaved.data() + done * static_cast<std::size_t>(channels()), frames - done);
        if (n == 0) break;
        done += n;
    }
    m_source->tellDamage(done);
    return done;
}

std::size_t AudioFileReader::read(std::span<float> mono) {
    const auto channels = static_cast<std::size_t>(m_source->info.channels);
    std::size_t done = 0;
    while (done < mono.size()) {
        const std::size_t wanted =
            channels == 1 ? mono.size() - done : std::min(mono.size() - done, kPiece_frames);
        // One channel is read to where it is wanted.
        float* const target = channels == 1 ? mono.data() + done : m_source->interleaved.data();
        const std::size_t frames = m_source->take(target, wanted);
        if (frames == 0) break;
        if (channels == 1) {
            if (!m_source->isWhole) tame(mono.subspan(done, frames));
        } else {
            mixToMono(std::span(m_source->interleaved).first(frames * channels), channels,
                      mono.subspan(done, frames));
        }
        done += frames;
    }
    m_source->tellDamage(done);
    return done;
}

} // namespace sorvel
