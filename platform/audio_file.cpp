#include "platform/audio_file.hpp"

#include "platform/rate_converter.hpp"
#include "platform/signals.hpp"
#include "platform/sound_file_functions.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace sorvel {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPiece_frames = 1024;
constexpr std::uint64_t kLargestWav_bytes =
    std::numeric_limits<std::uint32_t>::max() - 1024; // with its header

class Descriptor {
public:
    enum class Ownership : std::uint8_t { Owned, Borrowed };
    explicit Descriptor(int number, Ownership ownership = Ownership::Owned)
        : m_number(number), m_isOwned(ownership == Ownership::Owned) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (m_isOwned && m_number >= 0) ::close(m_number);
    }
    int number() const { return m_number; }

private:
    int m_number;
    bool m_isOwned;
};

struct CloseSound {
    void operator()(SNDFILE* sound) const { soundFileFunctions().close(sound); }
};
using Sound = std::unique_ptr<SNDFILE, CloseSound>;

bool isStandardStream(const std::string& path) { return path == "-"; }
std::string inputName(const std::string& path) { return isStandardStream(path) ? "standard input" : path; }
std::string outputName(const std::string& path) { return isStandardStream(path) ? "standard output" : path; }

[[noreturn]] void cannotRead(const std::string& path, const std::string& reason) {
    throw AudioFileError("cannot read " + inputName(path) + ": " + reason);
}
[[noreturn]] void cannotWrite(const std::string& path, const std::string& reason) {
    throw AudioFileError("cannot write " + outputName(path) + ": " + reason);
}
std::string systemReason(int error) { return std::generic_category().message(error); }

int soundFormat(StoredFormat format) {
    switch (format) {
    case StoredFormat::U8:
        return SF_FORMAT_PCM_U8;
    case StoredFormat::I16:
        return SF_FORMAT_PCM_16;
    case StoredFormat::I32:
        return SF_FORMAT_PCM_32;
    case StoredFormat::F32:
        break;
    }
    return SF_FORMAT_FLOAT;
}

unsigned bytesPerSample(StoredFormat format) {
    switch (format) {
    case StoredFormat::U8:
        return 1;
    case StoredFormat::I16:
        return 2;
    case StoredFormat::I32:
    case StoredFormat::F32:
        break;
    }
    return 4;
}

} // namespace

// Reading

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

// Writing

namespace {

void append(std::vector<std::byte>& bytes, std::uint32_t value, unsigned count) {
    for (unsigned i = 0; i < count; ++i) bytes.push_back(static_cast<std::byte>(value >> (8 * i) & 0xFFU));
}
void append(std::vector<std::byte>& bytes, const char (&name)[5]) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::byte>(name[i]));
}

/// Everything before the samples. Formats other than whole numbers have a longer description and a
/// count of frames of their own.
std::vector<std::byte> wavHeader(std::uint32_t rate_hz, StoredFormat format, std::uint32_t frames) {
    const bool isFloat = format == StoredFormat::F32;
    const unsigned size = bytesPerSample(format);
    const std::uint32_t data_bytes = frames * size;
    const std::uint32_t description_bytes = isFloat ? 18 : 16;

    std::vector<std::byte> header;
    append(header, "RIFF");
    append(header, 4 + 8 + description_bytes + (isFloat ? 12 : 0) + 8 + data_bytes + data_bytes % 2, 4);
    append(header, "WAVE");
    append(header, "fmt ");
    append(header, description_bytes, 4);
    append(header, isFloat ? 3 : 1, 2);
    append(header, 1, 2); // channel
    append(header, rate_hz, 4);
    append(header, rate_hz * size, 4);
    append(header, size, 2);
    append(header, 8 * size, 2);
    if (isFloat) {
        append(header, 0, 2);
        append(header, "fact");
        append(header, 4, 4);
        append(header, frames, 4);
    }
    append(header, "data");
    append(header, data_bytes, 4);
    return header;
}

/// The nearest whole level of a sample of full scale 1.0; beyond it the highest or lowest, 0 for NaN.
std::uint32_t level(float sample, int bits) {
    if (std::isnan(sample)) return 0;
    const double full = std::ldexp(1.0, bits - 1);
    return static_cast<std::uint32_t>(
        std::llrint(std::clamp(static_cast<double>(sample) * full, -full, full - 1.0)));
}

void append(std::vector<std::byte>& bytes, float sample, StoredFormat format) {
    switch (format) {
    case StoredFormat::U8:
        return append(bytes, level(sample, 8) + 128, 1);
    case StoredFormat::I16:
        return append(bytes, level(sample, 16), 2);
    case StoredFormat::I32:
        return append(bytes, level(sample, 32), 4);
    case StoredFormat::F32:
        return append(bytes, std::bit_cast<std::uint32_t>(sample), 4);
    }
}

void writeAll(const std::string& path, int descriptor, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t put = ::write(descriptor, bytes.data(), bytes.size());
        if (put < 0 && errno == EINTR) continue;
        if (put < 0 && errno == EPIPE) throw OutputClosed();
        if (put < 0) cannotWrite(path, systemReason(errno));
        bytes = bytes.subspan(static_cast<std::size_t>(put));
    }
}

/// Where the bytes really go: through links, also one whose target is yet to be made.
fs::path destination(const std::string& path) {
    constexpr int kMostLinks = 40;
    fs::path real = path;
    std::error_code error;
    for (int links = 0; fs::is_symlink(fs::symlink_status(real, error)); ++links) {
        if (links == kMostLinks) cannotWrite(path, systemReason(ELOOP));
        real = real.parent_path() / fs::read_symlink(real, error); // which may be absolute
    }
    return real;
}

class Sink {
public:
    virtual ~Sink() = default;
    virtual void write(std::span<const std::byte> bytes) = 0;
    virtual void finish() = 0;
};

class Stream final : public Sink {
public:
    Stream(std::string path, int descriptor, Descriptor::Ownership ownership,
           const std::vector<std::byte>& header)
        : m_path(std::move(path)), m_descriptor(descriptor, ownership) {
        write(header);
    }
    void write(std::span<const std::byte> bytes) override {
        writeAll(m_path, m_descriptor.number(), bytes);
        m_isOdd = m_isOdd != (bytes.size() % 2 != 0);
    }
    void finish() override {
        static constexpr std::array<std::byte, 1> kPadding{};
        if (m_isOdd) write(kPadding);
    }

private:
    std::string m_path;
    Descriptor m_descriptor;
    bool m_isOdd = false;
};

/// Name of the temporary file that has one; a signal handler reads it.
std::atomic<const char*> theTemporary = nullptr;

/// A temporary file that takes the destination's name at the end. Until then it has none, where the
/// file system allows that, and goes away with the process; else it lies beside the destination.
class NewFile final : public Sink {
public:
    NewFile(std::string path, int sampleRate_hz, StoredFormat format)
        : m_path(std::move(path)), m_destination(destination(m_path)), m_file(create()) {
        if (m_file.number() < 0) cannotWrite(m_path, systemReason(errno));
        SF_INFO info{};
        info.samplerate = sampleRate_hz;
        info.channels = 1;
        info.format = SF_FORMAT_WAV | soundFormat(format);
        m_sound.reset(soundFileFunctions().open_fd(m_file.number(), SFM_WRITE, &info, SF_FALSE));
        if (!m_sound) fail(soundFileFunctions().strerror(nullptr));
    }
    ~NewFile() override {
        m_sound.reset();
        removeTemporary();
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void write(std::span<const std::byte> bytes) override {
        const auto size = static_cast<sf_count_t>(bytes.size());
        if (soundFileFunctions().write_raw(m_sound.get(), bytes.data(), size) != size)
            fail(soundFileFunctions().strerror(m_sound.get()));
    }
    void finish() override {
        if (const int error = soundFileFunctions().close(m_sound.release()); error != SF_ERR_NO_ERROR)
            fail(soundFileFunctions().error_number(error));
        keepMode();
        const AllSignalsBlocked blocked; // until the name below is gone again
        if (m_temporary.empty() && !giveName()) fail(systemReason(errno));
        if (::rename(m_temporary.c_str(), m_destination.c_str()) != 0) fail(systemReason(errno));
        theTemporary = nullptr;
        m_temporary.clear();
    }

private:
    fs::path folder() const {
        const fs::path parent = m_destination.parent_path();
        return parent.empty() ? fs::path(".") : parent;
    }
    /// Drawn by lot: a number that comes again, such as the process's, meets what another left.
    fs::path anyName() const {
        std::random_device random;
        char name[32];
        std::snprintf(name, sizeof name, ".sorvel-%08x%08x.tmp", static_cast<unsigned>(random()),
                      static_cast<unsigned>(random()));
        return folder() / name;
    }
    /// Not with the C library's temporary files: those stay private, while this one obeys the umask.
    int create() {
        constexpr mode_t kMode = 0666;
        if (::access(kOwnDescriptors, X_OK) == 0) { // without these a file cannot get a name later
            const int nameless = ::open(folder().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kMode);
            if (nameless >= 0) return nameless;
        }
        const fs::path name = anyName();
        const int descriptor = ::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
        if (descriptor >= 0) {
            m_temporary = name;
            theTemporary = m_temporary.c_str();
        }
        return descriptor;
    }
    bool giveName() {
        const fs::path name = anyName();
        const std::string own = std::string(kOwnDescriptors) + "/" + std::to_string(m_file.number());
        if (::linkat(AT_FDCWD, own.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) return false;
        m_temporary = name;
        return true;
    }
    /// What is replaced hands on who may use it; its owner only where files may be given away.
    void keepMode() const {
        struct stat facts = {};
        if (::stat(m_destination.c_str(), &facts) != 0) return;
        [[maybe_unused]] const int given = ::fchown(m_file.number(), facts.st_uid, facts.st_gid);
        ::fchmod(m_file.number(), facts.st_mode & 07777U);
    }
    void removeTemporary() {
        if (m_temporary.empty()) return;
        ::unlink(m_temporary.c_str());
        theTemporary = nullptr;
        m_temporary.clear();
    }
    /// Also from the constructor, whose destructor does not run.
    [[noreturn]] void fail(const std::string& reason) {
        m_sound.reset();
        removeTemporary();
        cannotWrite(m_path, reason);
    }

    static constexpr const char* kOwnDescriptors = "/proc/self/fd";

    std::string m_path;
    fs::path m_destination;
    fs::path m_temporary; // empty: the file has no name
    Descriptor m_file;    // outlives m_sound
    Sound m_sound;
};

/// Replacing needs no right to write a file, but whoever took that right away did not mean it.
void checkWritable(const std::string& path) {
    constexpr auto kWriters = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    std::error_code error;
    const bool isForAnyone = (fs::status(path, error).permissions() & kWriters) != fs::perms::none;
    if (!isForAnyone || ::access(path.c_str(), W_OK) != 0)
        cannotWrite(path, "it is read-only; name another file, or make it writable");
}

std::unique_ptr<Sink> openedSink(const std::string& path, int sampleRate_hz, StoredFormat format,
                                 std::uint64_t frames) {
    if (frames > kLargestWav_bytes / bytesPerSample(format))
        cannotWrite(path, "WAV ends at 4 GiB; make it shorter");
    const std::vector<std::byte> header =
        wavHeader(static_cast<std::uint32_t>(sampleRate_hz), format, static_cast<std::uint32_t>(frames));
    if (isStandardStream(path)) {
        if (::isatty(STDOUT_FILENO) == 1)
            cannotWrite(path, "it is a terminal; pipe it into a player or name a file");
        return std::make_unique<Stream>(path, STDOUT_FILENO, Descriptor::Ownership::Borrowed, header);
    }
    std::error_code error; // where nothing is known about the path, opening the file will tell
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status)) cannotWrite(path, "it is a folder; name a file in it");
    if (fs::is_regular_file(status)) checkWritable(path);
    if (!fs::exists(status) || fs::is_regular_file(status))
        return std::make_unique<NewFile>(path, sampleRate_hz, format);
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0) cannotWrite(path, systemReason(errno));
    return std::make_unique<Stream>(path, descriptor, Descriptor::Ownership::Owned, header);
}

} // namespace

struct WavWriter::Target {
    std::unique_ptr<Sink> sink;
    StoredFormat format;
    std::vector<std::byte> encoded; // of one piece
};

WavWriter::WavWriter(const std::string& path, int sampleRate_hz, StoredFormat format, std::uint64_t frames)
    : m_target(new Target{openedSink(path, sampleRate_hz, format, frames), format, {}}) {}

WavWriter::~WavWriter() = default;
WavWriter::WavWriter(WavWriter&&) noexcept = default;
WavWriter& WavWriter::operator=(WavWriter&&) noexcept = default;

void WavWriter::write(std::span<const float> samples) {
    while (!samples.empty()) {
        const std::span<const float> piece = samples.first(std::min(samples.size(), kPiece_frames));
        samples = samples.subspan(piece.size());
        m_target->encoded.clear();
        for (const float sample : piece) append(m_target->encoded, sample, m_target->format);
        m_target->sink->write(m_target->encoded);
    }
}

void WavWriter::finish() { m_target->sink->finish(); }

void removeTemporaryFile() noexcept {
    if (const char* const name = theTemporary) ::unlink(name);
}

} // namespace sorvel
