// The built program, used as a user would: through a shell, with sox as the
// world's other audio program.

#include "tests/tools/run_sorvel.hpp"
#include "tools/simulated_air.hpp"
#include "tools/transmission.hpp"

#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>

namespace {

using testing::AllOf;
using testing::HasSubstr;

std::vector<nlohmann::json> objects(const std::string& lines) {
    std::vector<nlohmann::json> result;
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) result.push_back(nlohmann::json::parse(line));
    return result;
}

TEST_F(Sorvel, HearsWhatItSendsAtEveryRateAndFormatAsFileAndStream) {
    for (const std::string rate : {"44100", "48000", "96000"})
        for (const std::string format : {"u8", "i16", "f32"}) {
            const std::string send =
                "sorvel send 'acme_12 x' --rate " + rate + " --format " + format + " -o ";
            SCOPED_TRACE(send);
            EXPECT_EQ(shell(send + "a.wav && sorvel listen a.wav --prefix acme").out, "acme_12 x\n");
            EXPECT_EQ(shell(send + "- | sorvel listen - --prefix ACME").out, "acme_12 x\n");
            // Another reader finds a sound WAV of the length that was announced.
            const Outcome other =
                shell(send + "- | sox -V1 -t wav - b.wav && soxi -r b.wav && soxi -s b.wav");
            EXPECT_EQ(other.out, rate + "\n" + std::to_string(std::lround(3.664 * std::stod(rate))) + "\n");
            EXPECT_EQ(other.err, "");
        }
    // The header of a stream counts every repeat, and an odd byte's padding not.
    for (const auto& [options, samples] : {
             std::pair{" ",                           380544U},
             std::pair{" --format u8 --gap 1.00002 ", 380545U}
    }) {
        const Outcome sent = shell(std::string("sorvel send x --repeat 2 -o -") + options + "| cat");
        const std::uint32_t width = options[1] == '-' ? 1 : 2;
        ASSERT_EQ(sent.out.size(), 44 + width * samples + width * samples % 2);
        std::uint32_t announced = 0;
        std::memcpy(&announced, sent.out.data() + 40, sizeof announced);
        EXPECT_EQ(announced, width * samples);
    }
}

// The loader takes the first file of the name, and this one it cannot use.
TEST_F(Sorvel, WithoutTheSoundLibraryHearsRecordingsAndSaysWhyNotTheMicrophone) {
    write("libcubeb.so.0", "no library");
    EXPECT_EQ(shell("sorvel send x -o a.wav && LD_LIBRARY_PATH=$PWD sorvel listen a.wav").out, "x\n");
    for (const std::string microphone : {"devices", "listen --timeout 5 --prefix x"}) {
        // The C library keeps what dlerror() told where the leak sanitizer does not always look.
        const Outcome outcome =
            shell("ASAN_OPTIONS=detect_leaks=0 LD_LIBRARY_PATH=$PWD sorvel " + microphone);
        EXPECT_EQ(outcome.status, 2) << microphone;
        EXPECT_THAT(outcome.err, AllOf(HasSubstr("libcubeb.so.0"), HasSubstr("; install libcubeb0\n")));
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    }
}

TEST_F(Sorvel, HearsARecordingMadeQuietAndNoisyByAnotherProgramInAnyFormat) {
    ASSERT_EQ(shell("sorvel send acme_1234 -o a.wav").status, 0);
    sox("a.wav -r 44100 -b 16 quiet.wav gain -24"); // 0.5 of full scale to -30 dBFS
    sox("-n -r 44100 -b 16 noise.wav synth 3.664 whitenoise gain -42");
    sox("-m -v 1 quiet.wav -v 1 noise.wav r.wav");
    sox("r.wav r.flac");
    sox("r.wav -C 8 r.ogg");
    sox("a.wav -c 2 -b 24 stereo.wav remix 1 0"); // one channel silent
    sox("r.wav -r 96000 -e floating-point -b 32 float.wav");
    for (const std::string file : {"r.wav", "r.flac", "r.ogg", "stereo.wav", "float.wav"})
        EXPECT_EQ(shell("sorvel listen --prefix acme " + file).out, "acme_1234\n") << file;
    EXPECT_EQ(shell("sox -V1 r.wav -t wav - | sorvel listen -").out, "acme_1234\n");
    EXPECT_EQ(shell("sorvel listen float.wav r.wav a.wav").out,
              "acme_1234\nacme_1234\nacme_1234\n");                     // three rates
    ASSERT_EQ(shell("sorvel send abcdefghijklmno -o a.wav").status, 0); // a prefix may be the whole text
    EXPECT_EQ(shell("sorvel listen a.wav --prefix abcdefghijklmno").out, "abcdefghijklmno\n");
}

TEST_F(Sorvel, HearsSamplesWithoutAHeader) {
    ASSERT_EQ(shell("sorvel send acme_1234 --rate 96000 -o a.wav").status, 0);
    sox("a.wav -c 3 -t raw -e signed-integer -b 32 i32.raw");
    EXPECT_EQ(shell("sorvel listen i32.raw --raw --rate 96000 --format i32 --channels 3").out, "acme_1234\n");
    EXPECT_EQ(shell("sox a.wav -t raw - | sorvel listen - --raw --rate 96000 --prefix acme").out,
              "acme_1234\n");
    // Every third sample not a number, infinite, or huge.
    sox("a.wav -t raw -e floating-point -b 32 f32.raw");
    std::string bytes = content("f32.raw");
    const float bad[] = {NAN, INFINITY, -INFINITY, 3e38F};
    for (std::size_t i = 0; i * 4 * 3000 < bytes.size(); ++i)
        bytes.replace(i * 4 * 3000, 4, std::string(reinterpret_cast<const char*>(&bad[i % 4]), 4));
    write("f32.raw", bytes);
    EXPECT_EQ(shell("sorvel listen f32.raw --raw --rate 96000 --format f32").out, "acme_1234\n");
}

TEST_F(Sorvel, ReportsTimeAndFileAsJsonAndDropsRepeatsWithinASecond) {
    ASSERT_EQ(shell("sorvel send acme_1 --repeat 2 --gap 2 -o 'a \"b\".wav'").status, 0);
    const Outcome outcome = shell("sorvel listen 'a \"b\".wav' --json");
    const auto heard = objects(outcome.out);
    ASSERT_EQ(heard.size(), 2U) << outcome.out;
    for (const auto& object : heard) {
        EXPECT_EQ(object.at("text"), "acme_1");
        EXPECT_EQ(object.at("file"), "a \"b\".wav");
        EXPECT_EQ(object.size(), 7U); // what the deep receiver knows too
    }
    EXPECT_NEAR(heard[0].at("time").get<double>(), 3.3, 0.2); // 0.1 s of silence and 3.264 s of sound
    EXPECT_NEAR(heard[1].at("time").get<double>() - heard[0].at("time").get<double>(), 5.264, 0.11);
    EXPECT_GT(objects(shell("sorvel listen *.wav --json --all").out).size(), 2U);
    const auto again = objects(shell("cp *.wav b.wav; sorvel listen b.wav b.wav --json").out);
    ASSERT_EQ(again.size(), 4U);
    for (const std::size_t at : {0U, 1U, 2U, 3U}) // each file has its own time
        EXPECT_EQ(again[at].at("time"), heard[at % 2].at("time"));
}

// Noise 10 dB over the tones within their band, and a source that comes closer at 1 m/s.
TEST_F(Sorvel, HearsWithTheDeepReceiverWhereTheClassicIsDeafAndSaysHowWell) {
    const std::vector<float> sent = sorvel::transmission("acme_12 x", 25);
    const auto heardAs = [&](std::vector<float> sound, const std::string& options) {
        sound.insert(sound.begin(), 48000, 0.0F);
        sound.resize(sound.size() + 24000);
        sorvel::air::addWhiteNoise(sound, -10.0, sorvel::air::tonePower(sent), 48000.0, 7);
        write("far.raw", std::string(reinterpret_cast<const char*>(sound.data()), 4 * sound.size()));
        return shell("sorvel listen far.raw --raw --rate 48000 --format f32 --prefix acme --json " + options);
    };
    EXPECT_EQ(heardAs(sent, "--receiver classic").status, 1);
    constexpr double kSpeed_m_s = 1.0, kSpeedOfSound_m_s = 343.0;
    const auto moving = sorvel::air::reclocked(sent, -1e6 * kSpeed_m_s / kSpeedOfSound_m_s);
    for (const auto& [sound, speed_m_s] : {
             std::pair{sent,   0.0       },
             std::pair{moving, kSpeed_m_s}
    }) {
        const Outcome outcome = heardAs(sound, ""); // which it is without a word
        const auto heard = objects(outcome.out);
        ASSERT_EQ(heard.size(), 1U) << outcome.out << outcome.err;
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(heard[0].at("text"), "acme_12 x");
        EXPECT_NEAR(heard[0].at("time").get<double>(), 1.0 + static_cast<double>(sound.size()) / 48000.0,
                    0.05);
        EXPECT_NEAR(heard[0].at("snr_db").get<double>(), -10.0, 3.0);
        EXPECT_NEAR(heard[0].at("speed_m_s").get<double>(), speed_m_s, 0.2);
        EXPECT_GT(heard[0].at("margin").get<double>(), 0.0);
        EXPECT_TRUE(heard[0].at("echo").is_number());
    }
    // Without any noise too every field is a number, from several files and rates, and from a stream.
    ASSERT_EQ(shell("sorvel send acme_1 -o a.wav && sorvel send acme_2 --rate 44100 -o b.wav").status, 0);
    sox("b.wav -r 22050 low.wav");
    const Outcome clean = shell("sorvel listen a.wav low.wav b.wav a.wav --receiver deep --json");
    ASSERT_EQ(objects(clean.out).size(), 3U) << clean.out;
    for (const auto& object : objects(clean.out))
        for (const char* const field : {"snr_db", "speed_m_s", "echo", "margin"})
            EXPECT_TRUE(object.at(field).is_number()) << object;
    EXPECT_THAT(clean.err, HasSubstr("low.wav has 22050 Hz"));
    EXPECT_EQ(shell("cat b.wav | sorvel listen - --receiver deep --once --prefix ACME").out, "acme_2\n");
    EXPECT_EQ(shell("sorvel listen a.wav --receiver deep --prefix other").status, 1);
}

// One process has four modem instances, and nothing of one file may be heard in the next.
TEST_F(Sorvel, ListensToManyFilesEachByItself) {
    std::string files, expected;
    for (const std::string i : {"0", "1", "2", "3", "4", "5"}) {
        ASSERT_EQ(shell("sorvel send text_" + i + " -o " + i + ".wav").status, 0);
        sox(i + ".wav start" + i + ".wav trim 0 1.8"); // two halves of different files beside each other
        sox(i + ".wav end" + i + ".wav trim 1.8");
        files += " " + i + ".wav start" + i + ".wav end" + i + ".wav";
        expected += "text_" + i + "\n";
    }
    const Outcome outcome = shell("sorvel listen" + files);
    EXPECT_EQ(outcome.out, expected);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);

    const Outcome oneMissing = shell("sorvel listen 0.wav missing.wav 1.wav");
    EXPECT_EQ(oneMissing.out, "text_0\ntext_1\n");
    EXPECT_EQ(oneMissing.err, "sorvel: cannot read missing.wav: No such file or directory\n");
    EXPECT_EQ(oneMissing.status, 2);
}

TEST_F(Sorvel, SaysByItsStatusThatNothingWasHeard) {
    sox("-n -r 44100 silence.wav trim 0 2");
    sox("-n -r 48000 noise.wav synth 20 whitenoise gain -6");
    ASSERT_EQ(shell("sorvel send acme_1234 -o a.wav").status, 0);
    for (const std::string arguments : {"silence.wav", "noise.wav", "a.wav --prefix other"}) {
        const Outcome outcome = shell("sorvel listen " + arguments);
        EXPECT_EQ(outcome.status, 1) << arguments;
        EXPECT_EQ(outcome.out + outcome.err, "") << arguments;
    }
    // Where the recording itself is why, a line says so.
    sox("a.wav -r 22050 low.wav");
    EXPECT_THAT(shell("sorvel listen low.wav").err, HasSubstr("22050 Hz"));
}

TEST_F(Sorvel, TakesAHeaderThatLiesAboutTheLength) {
    ASSERT_EQ(shell("sorvel send acme_1234 -o a.wav").status, 0);
    const std::string wav = content("a.wav");
    for (const std::string length : {"\xff\xff\xff\xff", "\xff\xff\xff\x7f"}) {
        write("b.wav", wav.substr(0, 40) + length + wav.substr(44));
        EXPECT_EQ(shell("sorvel listen b.wav").out, "acme_1234\n");
        EXPECT_EQ(shell("cat b.wav | sorvel listen -").out, "acme_1234\n");
    }
    write("b.wav", wav.substr(0, 40) + std::string(4, '\0') + wav.substr(44));
    EXPECT_THAT(shell("sorvel listen b.wav").err, HasSubstr("no samples"));
}

TEST_F(Sorvel, HearsWhatLiesBeforeTheDamageAndNothingOfItInTheNextFile) {
    ASSERT_EQ(shell("sorvel send acme_1234 --repeat 2 -o a.wav").status, 0);
    sox("a.wav a.flac");
    const std::string flac = content("a.flac");
    write("cut.flac", flac.substr(0, flac.size() * 3 / 4));
    sox("a.wav rest.wav trim 6.2"); // what the cut took away
    const Outcome outcome = shell("sorvel listen cut.flac rest.wav");
    EXPECT_EQ(outcome.out, "acme_1234\n");
    EXPECT_THAT(outcome.err, HasSubstr("cut.flac: damaged or incomplete"));
    EXPECT_EQ(outcome.status, 2);
}

// Both a text and a message are complete only with the silence behind them.
TEST_F(Sorvel, ARecordingThatBreaksOffKeepsWhatItEndsWith) {
    for (const std::string what : {"acme_1234", "--message acme_1234"}) {
        ASSERT_EQ(shell("sorvel send " + what + " -o a.wav && sox -V1 a.wav a.flac trim 0 -0.3").status, 0);
        sox("-n -r 44100 quiet.wav trim 0 2");
        const std::string flac = content("a.flac");
        write("cut.flac", flac.substr(0, flac.size() - 2000));
        const std::string mode = what[0] == '-' ? " --messages" : "";
        const Outcome outcome = shell("sorvel listen --json cut.flac quiet.wav" + mode);
        const auto heard = objects(outcome.out);
        ASSERT_EQ(heard.size(), 1U) << what << "\n" << outcome.out << outcome.err;
        EXPECT_EQ(heard[0].at("file"), "cut.flac");
        EXPECT_GT(heard[0].at("time").get<double>(), 1.0);
        EXPECT_THAT(outcome.err, HasSubstr("damaged or incomplete"));
        EXPECT_EQ(outcome.status, 2);
    }
}

TEST_F(Sorvel, EndsQuietlyWhenItsReaderIsGone) {
    EXPECT_EQ(shell("sorvel send acme --repeat 50 -o - | head -c 100 | wc -c; echo ${PIPESTATUS[0]}").out,
              "100\n0\n");
    ASSERT_EQ(shell("sorvel send acme -o a.wav").status, 0);
    const Outcome outcome = shell("sorvel listen a.wav a.wav a.wav | true; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(outcome.out, "0\n");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(Sorvel, ReplacesAFileAtOnceAndOnlyWhenItIsWhole) {
    ASSERT_EQ(
        shell("sorvel send first -o a.wav && ln -s a.wav link.wav && sorvel send second -o link.wav").status,
        0);
    EXPECT_TRUE(fs::is_symlink(folder() + "/link.wav"));
    EXPECT_EQ(shell("sorvel listen a.wav").out, "second\n");
    // The limit is met in the middle of the samples, as a full disk would be.
    EXPECT_NE(shell("(trap '' XFSZ; ulimit -f 100; sorvel send third -o a.wav)").status, 0);
    EXPECT_EQ(shell("sorvel listen a.wav").out, "second\n");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("a.wav", "link.wav"));
    // What is no file is written to, not replaced.
    EXPECT_EQ(shell("mkfifo pipe && { sorvel send fourth -o pipe & sorvel listen pipe; }").out, "fourth\n");
}

TEST_F(Sorvel, OverwritesLikeAShellWould) {
    const auto mode = [&](const std::string& file) {
        return static_cast<unsigned>(fs::status(folder() + "/" + file).permissions());
    };
    ASSERT_EQ(shell("sorvel send first -o a.wav && chmod 640 a.wav && sorvel send second -o a.wav").status,
              0);
    EXPECT_EQ(mode("a.wav"), 0640U);
    const Outcome refused = shell("chmod 440 a.wav && sorvel send third -o a.wav");
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("read-only"));
    EXPECT_EQ(shell("sorvel listen a.wav").out, "second\n");

    ASSERT_EQ(shell("mkdir d && ln -s ../b.wav d/link.wav && sorvel send third -o d/link.wav").status, 0);
    EXPECT_TRUE(fs::is_symlink(folder() + "/d/link.wav"));
    EXPECT_EQ(shell("sorvel listen b.wav").out, "third\n");
    EXPECT_THAT(shell("ln -s round.wav round.wav; sorvel send x -o round.wav").err, HasSubstr("links"));
    EXPECT_THAT(files(), testing::UnorderedElementsAre("a.wav", "b.wav", "d", "round.wav"));

    // What a process of the same number left behind is in nobody's way.
    EXPECT_EQ(
        shell("(for i in {0..99}; do : >.sorvel-$BASHPID-$i.tmp; done; exec \"$SORVEL\" send x -o c.wav)")
            .status,
        0);
}

TEST_F(Sorvel, LeavesNoTemporaryFileHoweverItEnds) {
    for (const auto& [signal, status] : {
             std::pair{"TERM", "143"},
             std::pair{"HUP",  "129"},
             std::pair{"INT",  "130"},
             std::pair{"QUIT", "131"},
             std::pair{"KILL", "137"}
    }) {
        const Outcome outcome =
            shell("(ulimit -c 0; exec env --default-signal=INT,QUIT \"$SORVEL\" send x --repeat 9999 -o "
                  "a.wav) & p=$!\n"
                  "until ls -l /proc/$p/fd | grep -q 'deleted\\|tmp$'; do sleep 0.01; done\n" // it writes
                  "kill -" +
                  std::string(signal) + " $p; wait $p; echo $?");
        EXPECT_EQ(outcome.out, status + std::string("\n")) << outcome.err;
        EXPECT_THAT(files(), testing::IsEmpty()) << signal;
    }
    const Outcome limited =
        shell("ulimit -f 100; sorvel send x -o a.wav"); // as a full disk, but with a signal
    EXPECT_EQ(limited.status, 2);
    EXPECT_THAT(limited.err, HasSubstr("cannot write a.wav"));
    EXPECT_THAT(files(), testing::IsEmpty());
}

TEST_F(Sorvel, EndsWithTheFirstTextOrAfterSomeSecondsOfEachRecording) {
    ASSERT_EQ(shell("sorvel send a --repeat 3 --gap 2 -o a.wav && sorvel send b -o b.wav").status, 0);
    ASSERT_EQ(shell("sorvel send --message m --repeat 2 -o m.wav").status, 0);
    EXPECT_EQ(shell("sorvel listen --once a.wav b.wav").out, "a\n");
    EXPECT_EQ(shell("sorvel listen --once --all - <a.wav").out, "a\n");
    EXPECT_EQ(shell("sorvel listen --once --messages m.wav m.wav").out, "m\n");
    EXPECT_EQ(shell("sorvel listen --timeout 4 a.wav b.wav").out, "a\nb\n");
    EXPECT_EQ(shell("sorvel listen --timeout 9 - <a.wav").out, "a\na\n");
    const Outcome nothing = shell("sorvel listen --timeout 0 a.wav");
    EXPECT_EQ(nothing.status, 1);
    EXPECT_EQ(nothing.out + nothing.err, "");
}

TEST_F(Sorvel, ASignalEndsAStreamThatStandsStillAndKeepsWhatWasHeard) {
    ASSERT_EQ(shell("sorvel send acme -o a.wav && sox -R -V1 a.wav b.raw pad 0 5 && mkfifo p").status, 0);
    const Outcome outcome =
        shell("exec 9<>p; (trap '' INT; exec \"$SORVEL\" listen p --raw --rate 48000) & s=$!\n"
              "cat b.raw >&9\n" // all but what the pipe holds has been read
              "kill -INT $s; sleep 0.1; kill -TERM $s; wait $s; echo $?");
    EXPECT_EQ(outcome.out, "acme\n143\n");
    EXPECT_EQ(outcome.err, "");
}

struct Mistake {
    const char* arguments;
    const char* hint; // what the line must name
};

class Mistakes : public Sorvel, public testing::WithParamInterface<Mistake> {};

TEST_P(Mistakes, AreOneLineAndLeaveNoFile) {
    write("empty", "");
    write("text.wav", "no sound at all, but forty-four bytes and more of text");
    const auto before = files();
    const Outcome outcome = shell(std::string("sorvel ") + GetParam().arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(testing::StartsWith("sorvel: "), HasSubstr(GetParam().hint)));
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_THAT(files(), testing::UnorderedElementsAreArray(before));
}

INSTANTIATE_TEST_SUITE_P(
    Sorvel, Mistakes,
    testing::Values(
        Mistake{"", "say what to do"}, Mistake{"sing", "sing"},
        Mistake{"send -o x.wav", "TEXT,--message,--file"}, Mistake{"send acme", "output"},
        Mistake{"send '' -o x.wav", "no text"},
        Mistake{"send acme_12345678901 -o x.wav", "16 characters; at most 15"},
        Mistake{"send Acme -o x.wav", "'A' cannot be sent; try \"acme\""},
        Mistake{"send a-b -o x.wav", "'-' cannot be sent; these characters can be sent: \"0123"},
        Mistake{"send caf\u00e9 -o x.wav", "'\u00e9' cannot"},
        Mistake{"send $'a\\nb' -o x.wav", "character 10"}, Mistake{"send acme -o x.wav --play", "--play"},
        Mistake{"send acme -o x.wav --device y", "--play"},
        Mistake{"send acme --play --rate 48000", "--output"},
        Mistake{"send acme --play --device ''", "empty"}, Mistake{"send acme -o x.wav --rate 8000", "--rate"},
        Mistake{"send acme -o x.wav --format mp3", "--format"},
        Mistake{"send acme -o x.wav --volume 101", "--volume"},
        Mistake{"send acme -o x.wav --gap -1", "--gap"},
        Mistake{"send acme -o x.wav --repeat 2 --gap nan", "--gap"},
        Mistake{"send acme -o x.wav --repeat 2 --gap inf", "--gap"},
        Mistake{"listen empty --receiver deaf", "--receiver"},
        Mistake{"listen empty --receiver deep --all", "--all"},
        Mistake{"listen empty --receiver deep --messages", "messages"},
        Mistake{"listen --timeout nan", "--timeout"}, Mistake{"listen empty --timeout 1e999", "--timeout"},
        Mistake{"listen empty --timeout -1", "--timeout"},
        Mistake{"listen empty --prefix ''", "prefix is empty"},
        Mistake{"listen empty --prefix acme_12345678901", "16 characters"},
        Mistake{"listen empty --device hw", "--device"}, Mistake{"listen empty --or-demo", "--or-demo"},
        Mistake{"--version >/dev/full", "standard output"},
        Mistake{"listen --help >/dev/full", "standard output"},
        Mistake{"send acme -o x.wav --repeat 99999 --gap 3600", "4 GiB"},
        Mistake{"send acme -o x.wav --loud", "--loud"}, Mistake{"send acme -o none/x.wav", "none/x.wav"},
        Mistake{"send acme -o .", "folder"}, Mistake{"send acme -o /dev/full", "/dev/full"},
        Mistake{"send acme -o - >/dev/full", "standard output"}, Mistake{"listen --all", "recordings"},
        Mistake{"listen missing.wav", "missing.wav"}, Mistake{"listen .", "folder"},
        Mistake{"listen empty", "empty"}, Mistake{"listen text.wav", "text.wav"},
        Mistake{"listen - <text.wav", "standard input"}, Mistake{"listen - </dev/null", "standard input"},
        Mistake{"listen empty --raw", "--rate"}, Mistake{"listen empty --rate 96000", "--raw"},
        Mistake{"listen empty --raw --rate 7", "7"},
        Mistake{"listen empty --raw --rate 48000 --channels 65", "65"},
        Mistake{"listen empty --prefix a-b", "a-b"}, Mistake{"listen $'two\\nlines\\u009b'", "two?lines?:"},
        Mistake{"demo -o -", "file"}, Mistake{"demo --seed many", "many"}),
    [](const auto& mistake) { return "Number" + std::to_string(mistake.index); });

TEST_F(Sorvel, DemonstratesItselfInEveryRoom) {
    for (const std::string seed : {"1", "2", "3", "4", "5"}) {
        const Outcome outcome = shell("sorvel demo --json --seed " + seed);
        EXPECT_EQ(outcome.status, 0) << seed;
        const auto heard = objects(outcome.out);
        ASSERT_EQ(heard.size(), 1U) << seed;
        EXPECT_EQ(heard[0].at("text"), "acme_1234") << seed;
    }
    const Outcome outcome = shell("sorvel demo -o air.wav");
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("no microphone"), HasSubstr("RT60 0.4 s"), HasSubstr("acme_1234")));
    EXPECT_EQ(shell("sorvel listen air.wav").out, "acme_1234\n"); // and 16 bits do not lose it
}

TEST_F(Sorvel, ExplainsItself) {
    EXPECT_THAT(shell("sorvel --version").out, testing::MatchesRegex("sorvel [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    for (const std::string command : {"", "send", "listen", "check", "demo"})
        EXPECT_THAT(shell("sorvel " + command + " --help").out,
                    AllOf(HasSubstr("Usage:"), HasSubstr("Examples:")));
}

} // namespace
