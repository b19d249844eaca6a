/// Sorvel as a stream, for C and for every language that can call C: listeners that take sound in
/// blocks of any length and give texts, senders that turn texts into sound.
///
///     sorvel_listener_config config = {sizeof config};
///     config.sample_rate_hz = 48000;
///     config.prefix = "acme";
///     sorvel_listener* listener = NULL;
///     int code = sorvel_listener_create(&config, &listener);  // not 0: sorvel_error_text(code)
///     sorvel_listener_push(listener, samples, frames);        // for each block, of any length
///     sorvel_heard heard = {sizeof heard};
///     while (sorvel_listener_poll(listener, &heard) == 1) puts(heard.text);
///     sorvel_listener_destroy(listener);
///
/// Whatever the blocks are, the same sound gives the same texts at the same times. What is damaged
/// is not told, and of texts that come within one second of the one before, by the sound's own
/// time, none is, as with every listener of Sorvel.
///
/// A frame is one sample of each channel, interleaved: channels * frames samples in a block.
///
/// Memory: `create` allocates, nothing else does. Nothing locks, waits, prints, throws, reads a
/// clock or keeps process-wide state. Threads: one at a time per object; objects are independent.
///
/// Interface between binaries: structs begin with their size, which the caller sets. They only ever
/// grow at their end, and 0 in a new field is what was before, so programs built with an older or
/// newer header work: of a struct longer than the library knows, the rest has to be 0. All functions
/// have the symbol version SORVEL_1; what is added later gets another. Values of enumerations stay.
#ifndef SORVEL_SORVEL_H
#define SORVEL_SORVEL_H

#include <stddef.h>
#include <stdint.h>

#ifdef SORVEL_BUILDS_LIBRARY
#ifdef _WIN32
#define SORVEL_API __declspec(dllexport)
#else
#define SORVEL_API __attribute__((visibility("default")))
#endif
#else
#define SORVEL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The header's version; sorvel_version_number() tells the library's. */
#define SORVEL_VERSION_MAJOR 0
#define SORVEL_VERSION_MINOR 1
#define SORVEL_VERSION_PATCH 0

/// What a text may consist of: 1 to 15 of these. Received texts are as sent, and so in lower case.
#define SORVEL_ALPHABET "0123456789abcdefghijklmnopqrstuvwxyz_ "

enum {
    SORVEL_MOST_TEXT_CHARACTERS = 15,
    SORVEL_MOST_MESSAGE_BYTES = 140,
    SORVEL_PAYLOAD_BYTES = 13, ///< of a packed text
    SORVEL_MOST_CHANNELS = 64,
    SORVEL_MOST_WAITING = 64,     ///< texts that wait to be polled
    SORVEL_LOWEST_RATE_HZ = 8000, ///< of a listener
    SORVEL_LOWEST_DEEP_RATE_HZ = 32000,
    SORVEL_LOWEST_BAND_RATE_HZ = 44100, ///< from here on a rate holds the band; lowest of a sender
    SORVEL_HIGHEST_RATE_HZ = 384000
};

/// What functions answer, beside 0 and the counts that they promise.
enum {
    SORVEL_OK = 0,
    SORVEL_ERROR_NULL = -1,       ///< a pointer that must not be null is
    SORVEL_ERROR_SIZE = -2,       ///< a struct's `size` is none
    SORVEL_ERROR_RATE = -3,       ///< sample rate out of range, or none
    SORVEL_ERROR_CHANNELS = -4,   ///< more than SORVEL_MOST_CHANNELS
    SORVEL_ERROR_FORMAT = -5,     ///< not one of the sample formats
    SORVEL_ERROR_RECEIVER = -6,   ///< not one of the receivers
    SORVEL_ERROR_CONTENT = -7,    ///< neither texts nor messages
    SORVEL_ERROR_PREFIX = -8,     ///< a prefix with which no text can begin
    SORVEL_ERROR_LENGTH = -9,     ///< empty, or longer than a text or message may be
    SORVEL_ERROR_CHARACTER = -10, ///< a text with a character that is not in SORVEL_ALPHABET
    SORVEL_ERROR_VOLUME = -11,    ///< above 100 percent, or negative
    SORVEL_ERROR_ROOM = -12,      ///< the buffer is too small; nothing was written
    SORVEL_ERROR_MEMORY = -13,    ///< not enough memory
    SORVEL_ERROR_BUSY = -14,      ///< called from the callback of the same listener
    SORVEL_ERROR_DAMAGED = -15    ///< a payload that is no text
};

/// One line in English that says what is wrong and what to do; of any code, never null. Static.
SORVEL_API const char* sorvel_error_text(int code);

/// major * 65536 + minor * 256 + patch, and "major.minor.patch", of the library.
SORVEL_API uint32_t sorvel_version_number(void);
SORVEL_API const char* sorvel_version_string(void);

/// How a sample is stored, in the machine's own byte order; a block need not be aligned.
enum {
    SORVEL_FORMAT_F32 = 0, ///< float, full scale -1.0 to 1.0; what is not finite or beyond 1e6 counts as 0
    SORVEL_FORMAT_I16 = 1  ///< 16 bits
};

/// Which way sound is heard.
enum {
    SORVEL_RECEIVER_CLASSIC = 0, ///< texts, down to -4 dB in-band
    SORVEL_RECEIVER_DEEP = 1,    ///< texts, 9 dB further down and from sources that move; tells how it heard
    SORVEL_RECEIVER_MESSAGES = 2 ///< messages of 1 to 140 bytes instead of texts
};

/// What was heard.
typedef struct sorvel_heard {
    uint32_t size;        ///< sizeof(sorvel_heard); the caller's
    uint32_t length;      ///< bytes in `text`
    double end_s;         ///< end of the transmission, in seconds from the first frame pushed. The deep
                          ///< receiver tells it to 25 ms; the others say when they knew enough, 0.05 to
                          ///< 0.1 s before the end of a text, and 0.25 s before that of a message
    uint32_t lost;        ///< texts that were dropped since the one before, as too many waited
    uint32_t has_quality; ///< 1: the next four are known; 0, and they are 0: of the deep receiver only
    float snr_db;         ///< power of the tones over that of the noise from 18.0 to 19.5 kHz
    float speed_m_s;      ///< at which the source came closer
    float echo;           ///< part of a tone's energy that rang on for 192 ms, 0 to 1
    float margin;         ///< nats above what a text must have to be believed
    char text[144];       ///< `length` bytes and a zero; a message may hold zeros of its own
} sorvel_heard;

/// @param heard  valid during the call
typedef void (*sorvel_heard_callback)(void* user, const sorvel_heard* heard);

/// Fields that are 0 take the value in brackets.
typedef struct sorvel_listener_config {
    uint32_t size;         ///< sizeof(sorvel_listener_config)
    uint32_t channels;     ///< [1] 1 to 64
    double sample_rate_hz; ///< 8000 to 384000, of the deep receiver from 32000. Below 39000 nothing of
                           ///< the band is left to be heard or too little, below 44100 not all of it
    const char* prefix;    ///< only what begins so is told; empty: everything. Of texts at most 15 characters
                           ///< of the alphabet, upper case taken for lower; of messages at most 140 bytes
    int32_t format;        ///< [SORVEL_FORMAT_F32]
    int32_t receiver;      ///< [SORVEL_RECEIVER_CLASSIC]
    sorvel_heard_callback on_heard; ///< [none: texts wait to be polled] called for each text,
                                    ///< within `push` or `finish`. Must not throw. May destroy the
                                    ///< listener; all other calls with it answer SORVEL_ERROR_BUSY
    void* user;                     ///< handed to on_heard
} sorvel_listener_config;

/// Hears texts, or messages, in a stream of sound.
///
/// Of several channels it hears one: that with the most energy from 18.0 to 19.5 kHz, as a sum
/// would cancel where microphones stand half a wavelength apart (9 mm). It is chosen anew every
/// 0.1 s, and another one has to have twice the energy. Below 39000 Hz it is the first.
///
/// Costs 0.25 MiB, the deep receiver 0.5 MiB, messages 8.2 MiB. Every receiver runs some 400 times
/// as fast as the sound or more, the classic one at 48 kHz some 4000 times.
typedef struct sorvel_listener sorvel_listener;

/// @param listener  receives the listener; null after a failure
/// @return SORVEL_OK, or what is wrong
SORVEL_API int sorvel_listener_create(const sorvel_listener_config* config, sorvel_listener** listener);

/// Hears a block. After `finish`, a new sound begins with it, at 0 s.
///
/// @param samples  `frames` frames in the listener's format; may be null if there are none
/// @return SORVEL_OK; SORVEL_ERROR_NULL, SORVEL_ERROR_BUSY: nothing was heard
SORVEL_API int sorvel_listener_push(sorvel_listener* listener, const void* samples, size_t frames);

/// Takes the oldest text that waits. There is at most one per second of sound and 64 are kept, so
/// poll once a minute of sound at least; then the oldest are dropped, and `lost` tells how many.
///
/// @return 1: there was one; 0: none, and `heard` is as before; SORVEL_ERROR_...
SORVEL_API int sorvel_listener_poll(sorvel_listener* listener, sorvel_heard* heard);

/// The sound has ended: tells what it ends with, as a second of silence would. Texts go on waiting.
///
/// @return as `push`
SORVEL_API int sorvel_listener_finish(sorvel_listener* listener);

/// As newly made: forgets what it heard and what waits.
///
/// @return as `push`
SORVEL_API int sorvel_listener_reset(sorvel_listener* listener);

/// Null is taken, and nothing happens.
SORVEL_API void sorvel_listener_destroy(sorvel_listener* listener);

/// What a sender sends.
enum {
    SORVEL_CONTENT_TEXTS = 0,   ///< 3.264 s each
    SORVEL_CONTENT_MESSAGES = 1 ///< 1.8 to 38.9 s each
};

/// Fields that are 0 take the value in brackets.
typedef struct sorvel_sender_config {
    uint32_t size;          ///< sizeof(sorvel_sender_config)
    int32_t format;         ///< [SORVEL_FORMAT_F32]
    double sample_rate_hz;  ///< 44100 to 384000
    int32_t content;        ///< [SORVEL_CONTENT_TEXTS]
    int32_t volume_percent; ///< [50] of full scale, 1 to 100; no sample is higher
} sorvel_sender_config;

/// Turns texts, or messages, into sound of one channel. Costs 12.4 MiB of address space, of which
/// it uses as much as the longest transmission takes.
typedef struct sorvel_sender sorvel_sender;

/// @param sender  receives the sender; null after a failure
/// @return SORVEL_OK, or what is wrong
SORVEL_API int sorvel_sender_create(const sorvel_sender_config* config, sorvel_sender** sender);

/// How long a transmission will be; this also checks the text.
///
/// @param content  `bytes` bytes: the characters of a text, without a zero, or a message
/// @param frames   receives the samples that `send` will write
/// @return SORVEL_OK; SORVEL_ERROR_LENGTH, SORVEL_ERROR_CHARACTER, SORVEL_ERROR_NULL
SORVEL_API int sorvel_sender_count(sorvel_sender* sender, const void* content, size_t bytes, size_t* frames);

/// Makes a transmission.
///
/// @param room     samples that fit
/// @param frames   receives the samples written, 0 after a failure; may be null
/// @return as `count`, and SORVEL_ERROR_ROOM
SORVEL_API int sorvel_sender_send(sorvel_sender* sender, const void* content, size_t bytes, void* samples,
                                  size_t room, size_t* frames);

/// Null is taken, and nothing happens.
SORVEL_API void sorvel_sender_destroy(sorvel_sender* sender);

/// A text as the 13 bytes that are sent, and back.
///
/// @return SORVEL_OK; SORVEL_ERROR_LENGTH, SORVEL_ERROR_CHARACTER, SORVEL_ERROR_NULL
SORVEL_API int sorvel_pack(const char* text, size_t bytes, uint8_t payload[SORVEL_PAYLOAD_BYTES]);
/// @param text  receives at most 15 characters and a zero
/// @return SORVEL_OK, SORVEL_ERROR_NULL; SORVEL_ERROR_DAMAGED: check byte or a character is wrong
SORVEL_API int sorvel_unpack(const uint8_t payload[SORVEL_PAYLOAD_BYTES],
                             char text[SORVEL_MOST_TEXT_CHARACTERS + 1]);

#ifdef __cplusplus
}
#endif

#endif
