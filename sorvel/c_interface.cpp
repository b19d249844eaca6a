#include "payload/encoding.hpp"
#include "sorvel/listener.hpp"
#include "sorvel/sender.hpp"
#include "sorvel/sorvel.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

using sorvel::stream::ChannelChoice;
using sorvel::stream::Listener;
using sorvel::stream::Receiver;
using sorvel::stream::SampleFormat;
using sorvel::stream::Sender;

// Definitions behind the names that callers only point to.

struct sorvel_listener : Listener {
    using Listener::Listener;
};

struct sorvel_sender : Sender {
    using Sender::Sender;
};

namespace {

#define SORVEL_TEXT_OF(number) #number
#define SORVEL_TEXT(macro) SORVEL_TEXT_OF(macro)
constexpr const char* kVersion = SORVEL_TEXT(SORVEL_VERSION_MAJOR) "." SORVEL_TEXT(
    SORVEL_VERSION_MINOR) "." SORVEL_TEXT(SORVEL_VERSION_PATCH);
static_assert(std::string_view(kVersion) == SORVEL_PROJECT_VERSION, "sorvel.h and CMakeLists.txt disagree");
static_assert(encoding::kAlphabet == SORVEL_ALPHABET);
static_assert(SORVEL_MOST_TEXT_CHARACTERS == encoding::kMaxTextLength);
static_assert(SORVEL_PAYLOAD_BYTES == encoding::kPayloadBytes);
static_assert(SORVEL_MOST_MESSAGE_BYTES == GGWave::kMaxLengthVariable);
static_assert(SORVEL_MOST_MESSAGE_BYTES < sizeof sorvel_heard::text);

// Sizes that the first version of each struct had; what follows was added since.
constexpr std::size_t kFirstHeard = offsetof(sorvel_heard, text) + sizeof sorvel_heard::text;
constexpr std::size_t kFirstSender = offsetof(sorvel_sender_config, volume_percent) + sizeof(std::int32_t);
constexpr std::size_t kFirstListener = offsetof(sorvel_listener_config, user) + sizeof(void*);
constexpr std::size_t kLargest = 4096; // no struct will ever be; a size beyond is a mistake

/// A caller's struct as this library knows it: what an older caller does not have is 0.
///
/// @return false if the size is none, or a newer caller set a field that is not known here
template <typename Struct>
bool read(const Struct* given, std::size_t first, Struct& known) noexcept {
    std::uint32_t size = 0;
    std::memcpy(&size, given, sizeof size);
    if (size < first || size > kLargest) return false;
    known = {};
    std::memcpy(&known, given, std::min<std::size_t>(size, sizeof known));
    const auto* const bytes = reinterpret_cast<const unsigned char*>(given);
    return std::all_of(bytes + std::min<std::size_t>(size, sizeof known), bytes + size,
                       [](unsigned char byte) { return byte == 0; });
}

bool isIn(double rate_hz, double lowest_hz) noexcept { // also of what is not a number
    return rate_hz >= lowest_hz && rate_hz <= double{SORVEL_HIGHEST_RATE_HZ};
}

bool isFormat(std::int32_t format) noexcept {
    return format == SORVEL_FORMAT_F32 || format == SORVEL_FORMAT_I16;
}

SampleFormat formatOf(std::int32_t format) noexcept {
    return format == SORVEL_FORMAT_I16 ? SampleFormat::I16 : SampleFormat::F32;
}

/// Sets `prefix` to a view of `copy`, as its receiver takes it.
int readPrefix(const sorvel_listener_config& config, std::array<char, SORVEL_MOST_MESSAGE_BYTES>& copy,
               std::string_view& prefix) noexcept {
    if (config.prefix == nullptr) return SORVEL_ERROR_NULL;
    std::size_t length = 0;
    while (length <= copy.size() && config.prefix[length] != '\0') ++length;
    if (length > copy.size()) return SORVEL_ERROR_PREFIX;
    std::copy_n(config.prefix, length, copy.begin());
    prefix = std::string_view(copy.data(), length);
    if (config.receiver == SORVEL_RECEIVER_MESSAGES) return SORVEL_OK;
    for (char& c : copy)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return prefix.empty() || sorvel::stream::obstacleToText(prefix) == SORVEL_OK ? SORVEL_OK
                                                                                 : SORVEL_ERROR_PREFIX;
}

int check(const sorvel_listener_config& config) noexcept {
    const bool isDeep = config.receiver == SORVEL_RECEIVER_DEEP;
    if (!isDeep && config.receiver != SORVEL_RECEIVER_CLASSIC && config.receiver != SORVEL_RECEIVER_MESSAGES)
        return SORVEL_ERROR_RECEIVER;
    if (!isIn(config.sample_rate_hz, isDeep ? SORVEL_LOWEST_DEEP_RATE_HZ : SORVEL_LOWEST_RATE_HZ))
        return SORVEL_ERROR_RATE;
    if (config.channels > SORVEL_MOST_CHANNELS) return SORVEL_ERROR_CHANNELS;
    return isFormat(config.format) ? SORVEL_OK : SORVEL_ERROR_FORMAT;
}

std::unique_ptr<Receiver> makeReceiver(const sorvel_listener_config& config, std::string_view prefix) {
    switch (config.receiver) {
    case SORVEL_RECEIVER_DEEP:
        return sorvel::stream::makeDeepReceiver(config.sample_rate_hz, prefix);
    case SORVEL_RECEIVER_MESSAGES:
        return sorvel::stream::makeMessageReceiver(config.sample_rate_hz, prefix);
    default:
        return sorvel::stream::makeTextReceiver(config.sample_rate_hz, prefix);
    }
}

/// Runs a call that may end in callbacks, and with them the listener.
template <typename Call>
int during(sorvel_listener* listener, Call call) noexcept {
    if (listener == nullptr) return SORVEL_ERROR_NULL;
    if (listener->isBusy()) return SORVEL_ERROR_BUSY;
    call();
    if (listener->isDoomed()) delete listener;
    return SORVEL_OK;
}

int checkContent(const sorvel_sender* sender, const void* content, std::size_t bytes) noexcept {
    if (sender == nullptr || (content == nullptr && bytes > 0)) return SORVEL_ERROR_NULL;
    return sender->obstacle({static_cast<const char*>(content), bytes});
}

} // namespace

// Listeners

int sorvel_listener_create(const sorvel_listener_config* config, sorvel_listener** listener) {
    if (listener == nullptr) return SORVEL_ERROR_NULL;
    *listener = nullptr;
    if (config == nullptr) return SORVEL_ERROR_NULL;
    sorvel_listener_config known;
    if (!read(config, kFirstListener, known)) return SORVEL_ERROR_SIZE;
    if (const int wrong = check(known); wrong != SORVEL_OK) return wrong;
    std::array<char, SORVEL_MOST_MESSAGE_BYTES> copy{};
    std::string_view prefix;
    if (const int wrong = readPrefix(known, copy, prefix); wrong != SORVEL_OK) return wrong;
    try {
        auto receiver = makeReceiver(known, prefix);
        if (receiver == nullptr) return SORVEL_ERROR_MEMORY;
        const std::size_t channels = std::max<std::size_t>(known.channels, 1);
        *listener = new sorvel_listener(ChannelChoice(formatOf(known.format), channels, known.sample_rate_hz),
                                        std::move(receiver), Listener::Callback{known.on_heard, known.user});
    } catch (...) {
        return SORVEL_ERROR_MEMORY; // the one failure that is left
    }
    return SORVEL_OK;
}

int sorvel_listener_push(sorvel_listener* listener, const void* samples, size_t frames) {
    if (samples == nullptr && frames > 0) return SORVEL_ERROR_NULL;
    return during(listener, [&] { listener->push(static_cast<const std::byte*>(samples), frames); });
}

int sorvel_listener_finish(sorvel_listener* listener) {
    return during(listener, [&] { listener->finish(); });
}

int sorvel_listener_reset(sorvel_listener* listener) {
    return during(listener, [&] { listener->reset(); });
}

int sorvel_listener_poll(sorvel_listener* listener, sorvel_heard* heard) {
    if (listener == nullptr || heard == nullptr) return SORVEL_ERROR_NULL;
    if (listener->isBusy()) return SORVEL_ERROR_BUSY;
    const std::uint32_t size = heard->size;
    if (size < kFirstHeard || size > kLargest) return SORVEL_ERROR_SIZE;
    sorvel_heard known{};
    if (!listener->poll(known)) return 0;
    known.size = size;
    std::memset(heard, 0, size);
    std::memcpy(heard, &known, std::min<std::size_t>(size, sizeof known));
    return 1;
}

void sorvel_listener_destroy(sorvel_listener* listener) {
    if (listener != nullptr && listener->isBusy()) return listener->doom();
    delete listener;
}

// Senders

int sorvel_sender_create(const sorvel_sender_config* config, sorvel_sender** sender) {
    if (sender == nullptr) return SORVEL_ERROR_NULL;
    *sender = nullptr;
    if (config == nullptr) return SORVEL_ERROR_NULL;
    sorvel_sender_config known;
    if (!read(config, kFirstSender, known)) return SORVEL_ERROR_SIZE;
    if (!isIn(known.sample_rate_hz, SORVEL_LOWEST_BAND_RATE_HZ)) return SORVEL_ERROR_RATE;
    if (!isFormat(known.format)) return SORVEL_ERROR_FORMAT;
    if (known.content != SORVEL_CONTENT_TEXTS && known.content != SORVEL_CONTENT_MESSAGES)
        return SORVEL_ERROR_CONTENT;
    if (known.volume_percent < 0 || known.volume_percent > 100) return SORVEL_ERROR_VOLUME;
    try {
        auto made = std::make_unique<sorvel_sender>(
            known.content == SORVEL_CONTENT_TEXTS ? Sender::Content::Texts : Sender::Content::Messages,
            formatOf(known.format), known.sample_rate_hz,
            known.volume_percent == 0 ? 50 : known.volume_percent);
        if (!made->isReady()) return SORVEL_ERROR_MEMORY;
        *sender = made.release();
    } catch (...) {
        return SORVEL_ERROR_MEMORY;
    }
    return SORVEL_OK;
}

int sorvel_sender_count(sorvel_sender* sender, const void* content, size_t bytes, size_t* frames) {
    if (frames == nullptr) return SORVEL_ERROR_NULL;
    *frames = 0;
    if (const int wrong = checkContent(sender, content, bytes); wrong != SORVEL_OK) return wrong;
    *frames = sender->size_samples({static_cast<const char*>(content), bytes});
    return SORVEL_OK;
}

int sorvel_sender_send(sorvel_sender* sender, const void* content, size_t bytes, void* samples, size_t room,
                       size_t* frames) {
    std::size_t needed = 0;
    if (frames != nullptr) *frames = 0;
    if (const int wrong = sorvel_sender_count(sender, content, bytes, &needed); wrong != SORVEL_OK)
        return wrong;
    if (samples == nullptr) return SORVEL_ERROR_NULL;
    if (room < needed) return SORVEL_ERROR_ROOM;
    sender->send({static_cast<const char*>(content), bytes}, static_cast<std::byte*>(samples));
    if (frames != nullptr) *frames = needed;
    return SORVEL_OK;
}

void sorvel_sender_destroy(sorvel_sender* sender) { delete sender; }

// Payloads

int sorvel_pack(const char* text, size_t bytes, uint8_t* payload) {
    if ((text == nullptr && bytes > 0) || payload == nullptr) return SORVEL_ERROR_NULL;
    const std::string_view view(text, bytes);
    if (const int wrong = sorvel::stream::obstacleToText(view); wrong != SORVEL_OK) return wrong;
    std::array<char, SORVEL_PAYLOAD_BYTES> packed{};
    compressString(std::string(view), packed.data());
    std::memcpy(payload, packed.data(), packed.size());
    return SORVEL_OK;
}

int sorvel_unpack(const uint8_t* payload, char* text) {
    if (payload == nullptr || text == nullptr) return SORVEL_ERROR_NULL;
    std::array<char, SORVEL_PAYLOAD_BYTES> packed{};
    std::memcpy(packed.data(), payload, packed.size());
    const std::string unpacked = encoding::extractStrings(packed.data());
    if (unpacked == encoding::kError) return SORVEL_ERROR_DAMAGED;
    std::memset(text, 0, SORVEL_MOST_TEXT_CHARACTERS + 1);
    std::copy_n(unpacked.begin(), std::min<std::size_t>(unpacked.size(), SORVEL_MOST_TEXT_CHARACTERS), text);
    return SORVEL_OK;
}

// Version and errors

uint32_t sorvel_version_number(void) {
    return SORVEL_VERSION_MAJOR << 16 | SORVEL_VERSION_MINOR << 8 | SORVEL_VERSION_PATCH;
}

const char* sorvel_version_string(void) { return kVersion; }

const char* sorvel_error_text(int code) {
    switch (code) {
    case SORVEL_OK:
        return "no error";
    case SORVEL_ERROR_NULL:
        return "a pointer that must not be null is null; an empty prefix is \"\"";
    case SORVEL_ERROR_SIZE:
        return "the struct's size is wrong, or has fields that this library does not know; set it to sizeof";
    case SORVEL_ERROR_RATE:
        return "the sample rate is out of range: 8000 to 384000 Hz, deep receiver from 32000, sender from "
               "44100";
    case SORVEL_ERROR_CHANNELS:
        return "too many channels; at most 64 are taken";
    case SORVEL_ERROR_FORMAT:
        return "unknown sample format; use SORVEL_FORMAT_F32 or SORVEL_FORMAT_I16";
    case SORVEL_ERROR_RECEIVER:
        return "unknown receiver; use one of SORVEL_RECEIVER_CLASSIC, _DEEP and _MESSAGES";
    case SORVEL_ERROR_CONTENT:
        return "unknown content; use SORVEL_CONTENT_TEXTS or SORVEL_CONTENT_MESSAGES";
    case SORVEL_ERROR_PREFIX:
        return "nothing can begin with this prefix; use at most 15 of \"" SORVEL_ALPHABET
               "\", for messages 140 bytes";
    case SORVEL_ERROR_LENGTH:
        return "wrong length: texts have 1 to 15 characters, messages 1 to 140 bytes";
    case SORVEL_ERROR_CHARACTER:
        return "a character cannot be sent; these can be: \"" SORVEL_ALPHABET "\"";
    case SORVEL_ERROR_VOLUME:
        return "the volume is out of range; 1 to 100 percent are taken";
    case SORVEL_ERROR_ROOM:
        return "the buffer is too small; ask sorvel_sender_count how many samples there will be";
    case SORVEL_ERROR_MEMORY:
        return "not enough memory";
    case SORVEL_ERROR_BUSY:
        return "the listener is in its callback; there only sorvel_listener_destroy may be called";
    case SORVEL_ERROR_DAMAGED:
        return "the payload is damaged or holds no text";
    default:
        return "unknown error code";
    }
}
