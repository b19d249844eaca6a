#include "bench/hearing/points.hpp"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <stdexcept>

namespace sorvel::hearing {

namespace {

using Values = std::vector<double>;
using Setting = std::function<void(Channel&, double)>;

constexpr double kGait_m_s = 0.35; // to each side of the mean speed, at 2 Hz

std::string shown(double value) {
    char text[32]; // NOLINT(*-avoid-c-arrays)
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

class Collection {
public:
    /// Of the families that follow.
    void group(std::string name) { m_group = std::move(name); }
    /// @param base  for all points of the family
    void add(std::string name, std::string meaning, std::string unit, const Values& values,
             const Setting& set, const Channel& base = {}) {
        Family family{m_group, std::move(name), std::move(meaning), std::move(unit), {}};
        for (const double value : values) {
            Point point{family.name, value, base};
            set(point.channel, value);
            family.points.push_back(std::move(point));
        }
        m_families.push_back(std::move(family));
    }
    std::vector<Family> take() { return std::move(m_families); }

private:
    std::string m_group;
    std::vector<Family> m_families;
};

Channel withSnr(double snr_db) {
    Channel channel;
    channel.snr_db = snr_db;
    return channel;
}

Channel moving(Motion motion, double snr_db = 10.0) {
    Channel channel = withSnr(snr_db);
    channel.motion = motion;
    return channel;
}

Motion walking(double mean_m_s) {
    Motion motion;
    motion.mean_m_s = mean_m_s;
    motion.swing_m_s = kGait_m_s;
    return motion;
}

Motion swinging(double peak_m_s, double frequency_hz) {
    Motion motion;
    motion.swing_m_s = peak_m_s;
    motion.swing_hz = frequency_hz;
    return motion;
}

void setSnr(Channel& channel, double snr_db) { channel.snr_db = snr_db; }
void setSpeed(Channel& channel, double speed_m_s) { channel.motion.mean_m_s = speed_m_s; }

void addNoises(Collection& all) {
    const Values snrs{20, 10, 0, -2, -4, -5, -6, -8, -10, -12, -12.5, -13, -13.5, -14, -15, -16};
    all.add("white", "white noise", "dB", snrs, setSnr);
    Channel pink;
    pink.colour = Colour::Pink;
    all.add("pink", "pink noise", "dB", snrs, setSnr, pink);
    Channel nine;
    nine.textLength = 9;
    all.add("nine", "white noise, 9 characters", "dB", {-4, -13, -14, -15, -16}, setSnr, nine);
    Channel twice;
    twice.transmissions = 2;
    twice.gap_s = 0.5;
    all.add("twice", "white noise, the same text twice within 7.2 s", "dB",
            {-4, -5, -6, -13, -14, -14.5, -15, -16}, setSnr, twice);
    twice.isSameText = false;
    twice.gap_s = 0.0;
    all.add("joined", "two texts, 0 to 0.1 s in between, both to be heard", "dB", {10, 0, -4, -8, -10, -12},
            setSnr, twice);
    Channel joinedWalking = twice;
    joinedWalking.motion = walking(0.7);
    all.add("joined-walking", "the same while walking at 0.7 m/s", "dB", {10, 0, -6}, setSnr, joinedWalking);
}

void addMotions(Collection& all) {
    all.add("speed", "constant speed at 10 dB", "m/s", {-2, -1, 0.1, 0.25, 0.5, 1, 1.5, 2}, setSpeed,
            withSnr(10));
    all.add("speed-deep", "constant speed at -12 dB", "m/s", {-2, -1, 0.5, 1, 1.5, 2}, setSpeed,
            withSnr(-12));
    const Values snrs{15, 10, 6, 3, 0, -3, -6, -9, -11};
    all.add("gait-0", "+-0.35 m/s at 2 Hz, mean 0", "dB", snrs, setSnr, moving(walking(0.0)));
    all.add("gait-0.7", "+-0.35 m/s at 2 Hz, mean 0.7 m/s", "dB", snrs, setSnr, moving(walking(0.7)));
    all.add("gait-1.4", "+-0.35 m/s at 2 Hz, mean 1.4 m/s", "dB", snrs, setSnr, moving(walking(1.4)));
    const auto setSwing = [](Channel& channel, double peak_m_s) { channel.motion.swing_m_s = peak_m_s; };
    all.add("swing-2", "swing at 2 Hz, 10 dB", "m/s", {0.2, 0.35, 0.5, 0.7, 1.0}, setSwing,
            moving(swinging(0, 2.0)));
    all.add("swing-0.7", "swing at 0.7 Hz, 10 dB", "m/s", {0.1, 0.25, 0.5, 1.0}, setSwing,
            moving(swinging(0, 0.7)));
    all.add(
        "swing-rate", "swing of +-0.35 m/s, 3 dB", "Hz", {0.5, 1, 1.5, 2, 2.5, 3},
        [](Channel& channel, double hz) { channel.motion.swing_hz = hz; },
        moving(swinging(kGait_m_s, 2.0), 3));
    Motion lift;
    lift.lift_m_s = 1.0;
    all.add("lift", "from rest to 1 m/s and back in 1 s", "dB", {15, 10, 3, 0, -6}, setSnr, moving(lift));
    all.add(
        "clock", "clock error at 10 dB", "ppm", {-1000, -300, -100, 100, 300, 1000},
        [](Channel& channel, double ppm) { channel.clockError_ppm = ppm; }, withSnr(10));
}

void addRooms(Collection& all) {
    const auto setEcho = [](Channel& channel, double ratio_db) { channel.room->directToEcho_db = ratio_db; };
    const auto room = [](double rt60_s, Motion motion, std::size_t speeds) {
        Channel channel = moving(motion);
        channel.room = Room{rt60_s, 0.0, speeds};
        return channel;
    };
    const Values ratios{6, 0, -6, -12};
    constexpr std::size_t kSpeeds = 6;
    Motion steady;
    steady.mean_m_s = 1.4;
    all.add("room-0.4", "RT60 0.4 s at 10 dB, direct to echo", "dB", ratios, setEcho, room(0.4, {}, 1));
    all.add("room-0.8", "RT60 0.8 s at 10 dB, direct to echo", "dB", ratios, setEcho, room(0.8, {}, 1));
    all.add("room-1.2", "RT60 1.2 s at 10 dB, direct to echo", "dB", ratios, setEcho, room(1.2, {}, 1));
    all.add("room-gait", "RT60 0.8 s at 10 dB, walking at 0.7 m/s, the echo moving along; direct to echo",
            "dB", ratios, setEcho, room(0.8, walking(0.7), 1));
    all.add("room-speed", "RT60 0.8 s at 10 dB, moving at 1.4 m/s within the echo; direct to echo", "dB",
            ratios, setEcho, room(0.8, steady, kSpeeds));
    all.add("room-walk", "RT60 0.8 s at 10 dB, walking at 0.7 m/s within the echo; direct to echo", "dB",
            ratios, setEcho, room(0.8, walking(0.7), kSpeeds));
}

void addDisturbances(Collection& all) {
    const auto setWhistle = [](double sweep_hz_per_s) {
        return [sweep_hz_per_s](Channel& channel, double level_db) {
            channel.whistles = {
                {level_db, sweep_hz_per_s}
            };
        };
    };
    const Values levels{-10, 0, 10, 20};
    // Whistles have been there for long, and receivers may get used to them; one family's begins anew.
    const auto longBefore = [](Channel channel) {
        channel.before_s = 4.0;
        return channel;
    };
    all.add("whistle-new", "whistle that begins 0.6 s before, at SNR 10 dB, its level over the tones", "dB",
            levels, setWhistle(0), withSnr(10));
    all.add("whistle", "whistle at SNR 10 dB, its level over the tones", "dB", levels, setWhistle(0),
            longBefore(withSnr(10)));
    all.add("whistle-deep", "whistle at SNR -10 dB, its level over the tones", "dB", levels, setWhistle(0),
            longBefore(withSnr(-10)));
    all.add("whistle-gait", "whistle while walking at 0.7 m/s, 10 dB", "dB", levels, setWhistle(0),
            longBefore(moving(walking(0.7))));
    all.add("screen", "whistle that sweeps by 50 Hz/s, at SNR 10 dB", "dB", levels, setWhistle(50),
            longBefore(withSnr(10)));
    all.add(
        "three", "three whistles, each at 10 dB of SNR, level of each", "dB", levels,
        [](Channel& channel, double level_db) { channel.whistles.assign(3, {level_db, 0.0}); },
        longBefore(withSnr(10)));
    all.add(
        "bursts", "20 ms bursts every 150 ms, at SNR -8 dB, their level", "dB", {0, 10, 20, 30},
        [](Channel& channel, double level_db) { channel.bursts = Bursts{level_db}; }, withSnr(-8));
    all.add(
        "bursts-strong", "20 ms bursts every 150 ms, at SNR 10 dB, their level", "dB", {0, 10, 20, 30},
        [](Channel& channel, double level_db) { channel.bursts = Bursts{level_db}; }, withSnr(10));
}

void addDevices(Collection& all) {
    const auto setDropouts = [](Dropouts::Kind kind) {
        return [kind](Channel& channel, double length_ms) {
            channel.dropouts = Dropouts{length_ms / 1000.0, 1.0, kind};
        };
    };
    all.add("dropouts", "silent drop-outs, one a second, at 10 dB", "ms", {1, 3, 10, 30, 100},
            setDropouts(Dropouts::Kind::Silent), withSnr(10));
    all.add("lost", "lost sound, one piece a second, at 10 dB", "ms", {1, 3, 10, 30, 100},
            setDropouts(Dropouts::Kind::Lost), withSnr(10));
    all.add(
        "slope", "microphone's fall over the band, at 15 dB", "dB", {3, 6, 10, 15, 20},
        [](Channel& channel, double fall_db) { channel.slope_db = fall_db; }, withSnr(15));
    all.add(
        "gain", "gain steps twice a second, at 10 dB", "dB", {-20, -12, -6, 6, 12},
        [](Channel& channel, double step_db) { channel.gainStep_db = step_db; }, withSnr(10));
    all.add(
        "clip", "clipped at this share of the peak, 20 dB", "", {0.5, 0.2, 0.05, 0.01},
        [](Channel& channel, double share) { channel.clip = share; }, withSnr(20));
    all.add(
        "quiet", "highest sample of a 16-bit recording, 10 dB", "dBFS", {-40, -60, -70, -80},
        [](Channel& channel, double peak_dbfs) { channel.peak_dbfs = peak_dbfs; }, withSnr(10));
}

void addCodecs(Collection& all) {
    const auto add = [&](const char* name, const char* meaning, CodecKind kind) {
        all.add(
            name, meaning, "kbit/s", {128, 192, 256, 320},
            [kind](Channel& channel, double rate) { channel.codec = Codec{kind, static_cast<int>(rate)}; },
            withSnr(10));
    };
    add("mp3", "MP3 at 10 dB", CodecKind::Mp3);
    add("aac", "AAC at 10 dB", CodecKind::Aac);
    add("opus", "Opus at 10 dB", CodecKind::Opus);
    add("vorbis", "Vorbis at 10 dB", CodecKind::Vorbis);
}

std::vector<Family> makeFamilies() {
    Collection all;
    all.group("noise");
    addNoises(all);
    all.group("motion");
    addMotions(all);
    all.group("rooms");
    addRooms(all);
    all.group("disturbances");
    addDisturbances(all);
    all.group("devices");
    addDevices(all);
    all.group("codecs");
    addCodecs(all);
    return all.take();
}

} // namespace

std::string Point::name() const { return family + ":" + shown(value); }

const std::vector<Family>& families() {
    static const std::vector<Family> kFamilies = makeFamilies();
    return kFamilies;
}

const Family& familyOf(const Point& point) {
    return *std::find_if(families().begin(), families().end(),
                         [&](const Family& family) { return family.name == point.family; });
}

const Point& pointNamed(std::string_view name) {
    for (const Family& family : families())
        for (const Point& point : family.points)
            if (point.name() == name) return point;
    throw std::runtime_error("there is no point '" + std::string(name) + "'; --list shows all");
}

const std::vector<Goal>& goals() {
    const auto same = [](std::string meaning, std::vector<std::string> points, double share) {
        return Goal{std::move(meaning), points, points, share};
    };
    static const std::vector<Goal> kGoals{
        {"white noise down to -13 / -12.5 dB",
         {"white:-4", "white:-12.5", "white:-13"},
         {"white:-4", "white:-12.5"},
         0.98},
        same("constant speed 2 m/s at -12 dB", {"speed-deep:2", "speed-deep:-2"},
        0.98),
        same("walking, mean 0", {"gait-0:10", "gait-0:0", "gait-0:-6"},
        0.98),
        same("walking, mean 0.7 m/s", {"gait-0.7:10", "gait-0.7:0", "gait-0.7:-6"},
        0.98),
        same("walking, mean 1.4 m/s", {"gait-1.4:10", "gait-1.4:0", "gait-1.4:-6"},
        0.98),
        same("swing of +-1.0 m/s at 2 Hz, 10 dB", {"swing-2:1"},
        0.95),
        same("walking beside a whistle of +10 dB", {"whistle-gait:10"},
        0.90),
        same("RT60 1.2 s, direct to echo -12 dB, 10 dB", {"room-1.2:-12"},
        0.98),
        same("whistle of +10 dB, at -10 dB", {"whistle-deep:10"},
        0.95),
        same("20 ms bursts of +30 dB, at -8 dB", {"bursts:30"},
        0.98),
        same("microphone slope of 20 dB, at 15 dB", {"slope:20"},
        0.98),
        {"the same text twice, down to -15 / -14.5 dB",
         {"twice:-5", "twice:-14.5", "twice:-15"},
         {"twice:-5", "twice:-14.5"},
         0.98},
    };
    return kGoals;
}

} // namespace sorvel::hearing
