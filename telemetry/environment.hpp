#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What telemetry needs from the machine it runs on, as small interfaces.
///
/// `sdk/platform.hpp` adds the audio side and re-exports these; `platform/` implements them. Every
/// call may come from several threads at once, the capture thread among them: implementations keep
/// facts ready in memory, hold a lock for no longer than a copy takes, and touch no file or socket
/// while answering.
namespace sorvel {

class Clock {
public:
    virtual ~Clock() = default;
    /// Seconds since 1970-01-01T00:00:00Z, with fractions; never throws, never waits.
    virtual double now() const noexcept = 0;
};

/// Texts that outlive the process.
class KeyValueStore {
public:
    virtual ~KeyValueStore() = default;
    /// The stored text, or nothing. Answers from memory.
    virtual std::optional<std::string> string(const std::string& key) = 0;
    /// Stores `value` for this process at once, and for later ones where the machine allows it. May
    /// write a file; a storage fault is no failure: the value then lasts as long as the process.
    virtual void setString(const std::string& key, const std::string& value) = 0;
};

class DeviceFacts {
public:
    virtual ~DeviceFacts() = default;
    /// IANA name of the current time zone, such as "Europe/London"; "UTC" when unknown.
    virtual std::string timeZoneName() = 0;
    /// Seconds east of UTC that local clocks show at `time_s` (seconds since 1970).
    virtual int utcOffset_s(double time_s) = 0;
    /// Version text of the operating system, such as "12".
    virtual std::string osVersion() = 0;
    /// The machine's raw hardware identifier, ASCII, such as "x86_64".
    virtual std::string modelName() = 0;
};

class UuidGenerator {
public:
    virtual ~UuidGenerator() = default;
    /// A new random UUID: 36 characters, upper-case hexadecimal in the 8-4-4-4-12 form.
    virtual std::string make() = 0;
};

struct HttpRequest {
    std::string method; ///< "GET" or "POST"
    std::string url;    ///< https only
    /// Sent in this order and no others beside what HTTP itself demands; an empty value is sent as
    /// an empty header.
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;        ///< POST only
    double timeout_s = 60.0; ///< for the whole exchange
};

struct HttpResponse {
    int status = 0; ///< any HTTP status; 4xx and 5xx are responses too
    std::string body;
};

/// Requests that nothing waits for.
class HttpSession {
public:
    /// Called at most once, on a thread of the session: with the response, or with nothing when
    /// there was none (no network, no trust, timeout, too long a body). Not called for a request
    /// that was dropped from a full queue or at the end of the session.
    using Completion = std::function<void(const std::optional<HttpResponse>&)>;

    virtual ~HttpSession() = default;
    /// Hands a request over and returns at once; callable from any thread, the capture thread and
    /// completions included. Never waits for another thread. Requests beyond the session's bounds
    /// are dropped and counted.
    virtual void submit(HttpRequest request, Completion completion) = 0;
    /// Waits until nothing is queued or in flight, or `seconds` have passed.
    /// @return whether all is done
    virtual bool drain(double seconds) = 0;
};

/// @return whether `value` may stand in a header line as it is: no control characters, so that no
///         text from outside can end the line and begin another
bool isHeaderSafe(std::string_view value) noexcept;

/// @return whether `text` is well-formed UTF-8 (RFC 3629: no surrogates, no overlong forms, up to U+10FFFF)
bool isUtf8(std::string_view text) noexcept;

// What standard C++ alone can say; the defaults below.
std::shared_ptr<Clock> portableClock();         ///< the system clock
std::shared_ptr<KeyValueStore> memoryStore();   ///< forgets at exit
std::shared_ptr<DeviceFacts> unknownDevice();   ///< "UTC", offset 0, "unknown"
std::shared_ptr<UuidGenerator> portableUuids(); ///< version 4, from std::random_device

/// The facts and services of one machine (or of a test). A value: copies share the parts. No part
/// but `http` may be null; without `http` nothing is sent.
struct Environment {
    std::shared_ptr<Clock> clock = portableClock();
    std::shared_ptr<KeyValueStore> store = memoryStore();
    std::shared_ptr<DeviceFacts> facts = unknownDevice();
    std::shared_ptr<UuidGenerator> uuids = portableUuids();
    std::shared_ptr<HttpSession> http;
};

/// The environment of calls that name none. `defaultPlatform()` sets it to the machine's at its
/// first call. Thread: any; takes a lock, so the capture thread passes its environment instead.
Environment sharedEnvironment();
void setSharedEnvironment(Environment environment);

} // namespace sorvel
