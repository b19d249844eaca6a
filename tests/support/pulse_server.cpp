#include "tests/support/pulse_server.hpp"

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

// Only the way to the server: what the machine has in devices and settings stays out.
constexpr const char* kAlsaConfiguration = R"(
pcm.pulse { @args [ DEVICE ] @args.DEVICE { type string default "" } type pulse device $DEVICE }
pcm.!default { type pulse }
ctl.!default { type pulse }
pcm.broken { type hw card 31 }
)";

} // namespace

PulseServer::PulseServer() {
    const std::string folder = m_folder.path();
    m_folder.write("asound.conf", kAlsaConfiguration);
    set("ALSA_CONFIG_PATH", folder + "/asound.conf");
    set("PULSE_SERVER", "unix:" + folder + "/socket");
    set("PULSE_RUNTIME_PATH", folder + "/pulse");
    set("XDG_RUNTIME_DIR", folder);
    set("XDG_CONFIG_HOME", folder + "/config");
    set("HOME", folder);
    set("JACK_DEFAULT_SERVER", "sorvel-test-none");
    for (const char* const variable : {"PULSE_SOURCE", "PULSE_SINK", "PULSE_COOKIE", "PULSE_LATENCY_MSEC"})
        ::unsetenv(variable);
}

PulseServer::~PulseServer() { kill(); }

void PulseServer::start(int rate_hz) {
    kill();
    const std::string folder = m_folder.path();
    std::filesystem::remove(folder + "/socket");
    m_process =
        spawn({"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no", "-L",
               "module-native-protocol-unix auth-anonymous=1 socket=" + folder + "/socket", "-L",
               "module-null-sink sink_name=air channels=1 format=float32le rate=" + std::to_string(rate_hz)},
              folder + "/log");
    awaitReady();
}

void PulseServer::awaitReady() const {
    for (int attempt = 0; attempt < 400; ++attempt) {
        if (await(spawn({"pactl", "get-sink-volume", "air"}, "/dev/null")) == 0) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    throw std::runtime_error("the sound server does not start:\n" + m_folder.read("log"));
}

void PulseServer::kill() {
    if (m_process < 0) return;
    ::kill(m_process, SIGKILL);
    await(std::exchange(m_process, -1));
}

void PulseServer::freeze() { ::kill(m_process, SIGSTOP); }
void PulseServer::thaw() { ::kill(m_process, SIGCONT); }

PulseServer::Player::Player(const PulseServer&, std::span<const float> samples, int rate_hz) {
    m_folder.write("sound", std::string(reinterpret_cast<const char*>(samples.data()), samples.size_bytes()));
    const std::string folder = m_folder.path();
    m_process = spawn({"pacat", "--raw", "--format=float32le", "--channels=1", "--latency-msec=100",
                       "--rate=" + std::to_string(rate_hz), folder + "/sound"},
                      folder + "/log");
}

PulseServer::Player::~Player() {
    if (m_process < 0) return;
    ::kill(m_process, SIGKILL);
    await(m_process);
}

void PulseServer::Player::wait() { await(std::exchange(m_process, -1)); }
