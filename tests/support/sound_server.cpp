#include "tests/support/sound_server.hpp"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

/// Starts a program that ends with this thread, its output in `log`.
pid_t spawn(const std::vector<std::string>& command, const std::string& log) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t process = ::fork();
    if (process < 0) throw std::runtime_error("no process for " + command.front());
    if (process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        ::dup2(output, STDOUT_FILENO);
        ::dup2(output, STDERR_FILENO);
        ::execvp(arguments.front(), arguments.data());
        ::_exit(127);
    }
    return process;
}

int await(pid_t process) {
    int status = -1;
    ::waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void set(const char* variable, const std::string& value) { ::setenv(variable, value.c_str(), 1); }

} // namespace

/// Read by the leak sanitizer: what these libraries keep until the process ends is no leak of ours.
/// Nor are the 88 bytes for each change of the default input: libcubeb then asks the server for its
/// sink and never gives back libpulse's operation, in a program with nothing of ours as well.
constexpr const char* kKeptUntilTheEnd = "leak:libasound.so\nleak:libpulse.so\n";
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return kKeptUntilTheEnd; }

SoundServer::SoundServer(Kind kind) : m_kind(kind) {
    const std::string folder = m_folder.path();
    // What the machine has in devices and settings stays out.
    m_folder.write("asound.conf", "pcm.broken { type hw card 31 }\n");
    set("ALSA_CONFIG_PATH", folder + "/asound.conf");
    // The session manager's bluetooth monitor asks for a login service, and ends it where there is none.
    m_folder.write("config/wireplumber/bluetooth.lua.d/51-off.lua", "bluez_monitor.enabled = false\n");
    set("PULSE_SERVER", "unix:" + folder + "/pulse/native");
    set("PULSE_RUNTIME_PATH", folder + "/pulse");
    set("XDG_RUNTIME_DIR", folder);
    set("XDG_CONFIG_HOME", folder + "/config");
    set("XDG_STATE_HOME", folder + "/state");
    set("HOME", folder);
    set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder + "/bus");
    set("JACK_DEFAULT_SERVER", "sorvel-test-none");
    m_folder.write("leaks.supp", kKeptUntilTheEnd); // for the programs that a test starts
    set("LSAN_OPTIONS", "suppressions=" + folder + "/leaks.supp");
    for (const char* const variable : {"PULSE_SOURCE", "PULSE_SINK", "PULSE_COOKIE", "PULSE_LATENCY_MSEC",
                                       "PIPEWIRE_REMOTE", "PIPEWIRE_RUNTIME_DIR", "DISPLAY"})
        ::unsetenv(variable);
}

SoundServer::~SoundServer() { kill(); }

void SoundServer::start(int rate_hz) {
    kill();
    const std::string folder = m_folder.path();
    for (const char* const left : {"/pulse", "/state", "/bus", "/pipewire-0", "/pipewire-0.lock"})
        std::filesystem::remove_all(folder + left);
    std::filesystem::create_directory(folder + "/pulse");
    std::filesystem::permissions(folder + "/pulse", std::filesystem::perms::owner_all);
    if (m_kind == Kind::PulseAudio) {
        run({"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no", "-L",
             "module-native-protocol-unix auth-anonymous=1 socket=" + folder + "/pulse/native"});
    } else {
        run({"dbus-daemon", "--session", "--nofork", "--nopidfile",
             "--address=unix:path=" + folder + "/bus"});
        await({"test", "-S", folder + "/bus"});
        run({"pipewire"});
        await({"pw-cli", "info", "0"});
        run({"wireplumber"});
        run({"pipewire-pulse"});
    }
    await({"pactl", "info"});
    addSink("air", rate_hz);
    await({"sh", "-c", "test \"$(pactl get-default-source)\" = air.monitor"});
}

void SoundServer::run(std::vector<std::string> command) {
    m_processes.push_back(spawn(command, m_folder.path().string() + "/log"));
}

void SoundServer::await(std::initializer_list<std::string> command) const {
    for (int attempt = 0; attempt < 400; ++attempt) {
        if (::await(spawn(command, "/dev/null")) == 0) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    throw std::runtime_error("the sound server does not start:\n" + m_folder.read("log"));
}

std::string SoundServer::ask(std::initializer_list<std::string> command) const {
    const std::string answer = m_folder.path().string() + "/answer";
    std::filesystem::remove(answer);
    if (::await(spawn(command, answer)) != 0)
        throw std::runtime_error("the sound server refuses:\n" + m_folder.read("answer"));
    const std::string text = m_folder.read("answer");
    return text.substr(0, text.find('\n'));
}

std::string SoundServer::addSink(const std::string& name, int rate_hz, int channels) const {
    return ask({"pactl", "load-module", "module-null-sink", "sink_name=" + name,
                "channels=" + std::to_string(channels), "format=float32le",
                "rate=" + std::to_string(rate_hz)});
}

void SoundServer::removeSink(const std::string& sink) const { ask({"pactl", "unload-module", sink}); }

void SoundServer::makeDefault(const std::string& source) const {
    ask({"pactl", "set-default-source", source});
}

void SoundServer::signal(int number) const {
    for (const pid_t process : m_processes) ::kill(process, number);
}

void SoundServer::kill() {
    signal(SIGKILL);
    for (const pid_t process : std::exchange(m_processes, {})) ::await(process);
}

void SoundServer::freeze() { signal(SIGSTOP); }
void SoundServer::thaw() { signal(SIGCONT); }

SoundServer::Player::Player(const SoundServer&, std::span<const float> samples, int rate_hz,
                            const std::string& sink, int channels) {
    m_folder.write("sound", std::string(reinterpret_cast<const char*>(samples.data()), samples.size_bytes()));
    const std::string folder = m_folder.path();
    m_process = spawn({"pacat", "--raw", "--format=float32le", "--channels=" + std::to_string(channels),
                       "--latency-msec=100", "--device=" + sink, "--rate=" + std::to_string(rate_hz),
                       folder + "/sound"},
                      folder + "/log");
}

SoundServer::Player::~Player() {
    if (m_process < 0) return;
    ::kill(m_process, SIGKILL);
    ::await(m_process);
}

void SoundServer::Player::wait() { ::await(std::exchange(m_process, -1)); }
