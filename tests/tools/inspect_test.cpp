#include "modem/rs.hpp"
#include "payload/encoding.hpp"
#include "platform/files/wav_writer.hpp"
#include "tests/support/transmissions.hpp"
#include "tests/tools/run_sorvel.hpp"
#include "tools/inspection_picture.hpp"
#include "tools/simulated_air.hpp"
#include "tools/transmission.hpp"

#include <cairo.h>
#include <nlohmann/json.hpp>
#include <numbers>

namespace {

using namespace sorvel;
using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr int kRate_hz = 48000;
constexpr double kBegin_s = 1.0, kEnd_s = kBegin_s + inspection::kTransmission_s;

std::size_t frames(double seconds) { return static_cast<std::size_t>(seconds * kRate_hz); }

/// A second, the sound, half a second, in noise that is faint or as strong as asked for.
Samples inNoise(const Samples& sound, double inBandSnr_db = 25.0) {
    Samples whole = silence(frames(kBegin_s)) + sound + silence(frames(0.5));
    air::addWhiteNoise(whole, inBandSnr_db, air::tonePower(sound), kRate_hz, 7);
    return whole;
}

void addTone(Samples& sound, double frequency_hz, double amplitude) {
    for (std::size_t i = 0; i < sound.size(); ++i)
        sound[i] += static_cast<float>(
            amplitude * std::sin(2.0 * std::numbers::pi * frequency_hz * static_cast<double>(i) / kRate_hz));
}

class Inspect : public Sorvel {
protected:
    void record(const std::string& name, Samples samples, int rate_hz = kRate_hz) const {
        for (float& sample : samples) sample *= 0.3F;
        WavWriter writer(folder() + "/" + name, rate_hz, StoredFormat::I16, samples.size());
        writer.write(samples);
        writer.finish();
    }
    json inspected(const std::string& arguments, int status) const {
        const Outcome outcome = shell("sorvel inspect --json " + arguments);
        EXPECT_EQ(outcome.status, status) << outcome.err << outcome.out;
        return json::parse(outcome.out);
    }
};

TEST_F(Inspect, TellsWhoHeardATextWhereAndHow) {
    record("a.wav", inNoise(sorvel::transmission("acme_1234", 50)));
    const json all = inspected("a.wav --prefix ACME", 0);
    EXPECT_EQ(all["verdict"], "heard");
    EXPECT_EQ(all["rate_hz"], kRate_hz);
    EXPECT_NEAR(all["to_s"].get<double>(), kEnd_s + 0.5, 0.01);
    ASSERT_EQ(all["texts"].size(), 1U);
    EXPECT_EQ(all["texts"][0]["text"], "acme_1234");
    EXPECT_TRUE(all["texts"][0]["classic"] && all["texts"][0]["deep"] && all["texts"][0]["wanted"]);
    EXPECT_NEAR(all["texts"][0]["end_s"].get<double>(), kEnd_s, 0.03);
    const json& best = all["best"];
    EXPECT_EQ(best["text"], "acme_1234");
    EXPECT_EQ(best["clear_nibbles"], 34);
    EXPECT_NEAR(best["end_s"].get<double>(), kEnd_s, 0.03);
    EXPECT_NEAR(best["snr_db"].get<double>(), 25.0, 2.0);
    EXPECT_NEAR(best["speed_m_s"].get<double>(), 0.0, 0.05);
    EXPECT_LT(best["echo"].get<double>(), 0.02);
    // The nibbles are the bytes that were sent, low before high.
    std::array<char, encoding::kPayloadBytes> sent{};
    compressString("acme_1234", sent.data());
    ASSERT_EQ(best["nibbles"].size(), 34U);
    for (std::size_t i = 0; i < 2 * sent.size(); ++i)
        EXPECT_EQ(best["nibbles"][i]["value"].get<int>(), sent[i / 2] >> 4 * (i % 2) & 0xF) << i;
    // Of both tones 1/8, white noise 25 dB below in the band: full scale 0.3 * 0.25 each.
    EXPECT_NEAR(all["noise_dbfs"].get<double>(), 20.0 * std::log10(0.3 * 0.25 * std::sqrt(2.0)) - 25.0, 2.0);

    const Outcome text = shell("sorvel inspect a.wav");
    EXPECT_THAT(text.out, AllOf(HasSubstr("\"acme_1234\" until 4.2"), HasSubstr("34 of 34 nibbles clear"),
                                EndsWith("result    heard\n")));
}

// Nothing but the tones: what the spectra leak then stands where noise would.
TEST_F(Inspect, ShowsTheNibblesOfATextInSilenceOrNearlySo) {
    const Samples sound = sorvel::transmission("acme_1234", 50);
    record("loud.wav", inNoise(sound, 45.0));
    EXPECT_EQ(inspected("loud.wav", 0)["best"]["clear_nibbles"], 34);
    for (const auto& [before_s, behind_s] : {
             std::pair{0.0, 0.0},
             std::pair{1.0, 0.5},
             std::pair{0.3, 6.0}
    }) {
        record("silent.wav", silence(frames(before_s)) + sound + silence(frames(behind_s)));
        const json best = inspected("silent.wav", 0)["best"];
        ASSERT_TRUE(best.is_object()) << before_s;
        EXPECT_EQ(best["text"], "acme_1234");
        EXPECT_EQ(best["clear_nibbles"], 34) << before_s;
        EXPECT_NEAR(best["end_s"].get<double>(), before_s + inspection::kTransmission_s, 0.03);
        EXPECT_NEAR(best["speed_m_s"].get<double>(), 0.0, 0.05);
        EXPECT_GT(best["snr_db"].get<double>(), 27.0);
    }
}

TEST(Inspection, SaysOfWhatCanBeReadAndWasNotDeliveredThatItWasMissed) {
    TransmissionSearch search(kRate_hz);
    const Samples sound = inNoise(sorvel::transmission("acme_1234", 50));
    search.take(sound);
    search.finish();
    for (const auto& [prefix, verdict] : {
             std::pair{"acme", inspection::Verdict::Missed     },
             std::pair{"",     inspection::Verdict::Missed     },
             std::pair{"beta", inspection::Verdict::OtherPrefix}
    }) {
        inspection::Report report;
        report.prefix = prefix;
        report.rate_hz = kRate_hz;
        report.to_s = kEnd_s + 0.5;
        report.peak = 0.5;
        inspection::readBest(report, search.sightings());
        EXPECT_EQ(report.verdict, verdict) << prefix;
        EXPECT_THAT(inspection::reason(report), HasSubstr("\"acme_1234\"")) << prefix;
        ASSERT_TRUE(report.best);
        EXPECT_EQ(report.best->clearNibbles(), 34);
    }
}

TEST_F(Inspect, MeasuresSpeedAndEcho) {
    const Samples sound = sorvel::transmission("acme_1234", 50);
    record("closer.wav", inNoise(air::reclocked(sound, -1.5 / 343.0 * 1e6)));
    const json closer = inspected("closer.wav", 0)["best"];
    EXPECT_NEAR(closer["speed_m_s"].get<double>(), 1.5, 0.05);
    const Samples room = air::convolved(sound, air::roomResponse(1.2, -6.0, kRate_hz, 3));
    record("room.wav", inNoise(room));
    EXPECT_GT(inspected("room.wav", 0)["best"]["echo"].get<double>(), 0.1);
}

TEST_F(Inspect, SaysWhyATransmissionGaveNoText) {
    const Samples sound = sorvel::transmission("acme_1234", 50);
    record("other.wav", inNoise(sound));
    const json other = inspected("other.wav --prefix beta", 1);
    EXPECT_EQ(other["reason"], "other prefix: \"acme_1234\"");
    EXPECT_FALSE(other["texts"][0]["wanted"]);

    std::array<char, encoding::kPayloadBytes> payload{};
    compressString("acme_1234", payload.data());
    payload[0] = static_cast<char>(payload[0] ^ 0x55);
    record("damaged.wav", inNoise(::transmission(std::string(payload.data(), payload.size()))));
    EXPECT_EQ(inspected("damaged.wav", 1)["reason"], "check byte wrong");

    record("faint.wav", inNoise(sorvel::transmission("acme_47112958x0z", 50), -15.0));
    const json faint = inspected("faint.wav --prefix acme", 1);
    EXPECT_EQ(faint["verdict"], "too unclear");
    EXPECT_THAT(faint["reason"], MatchesRegex("[0-9]+ of 34 nibbles clear, 26 needed"));
    EXPECT_EQ(std::stoi(faint["reason"].get<std::string>()), faint["best"]["clear_nibbles"]);
    EXPECT_NEAR(faint["best"]["end_s"].get<double>(), kEnd_s, 0.6); // or some chunks off
    EXPECT_NEAR(faint["best"]["snr_db"].get<double>(), -15.0, 2.5);

    // Half of it is missing.
    const Samples half(sound.begin() + static_cast<std::ptrdiff_t>(sound.size() / 2), sound.end());
    record("cut.wav", half + silence(frames(0.5)));
    const Outcome cut = shell("sorvel inspect cut.wav");
    EXPECT_THAT(cut.out, HasSubstr("it began 1.")); // s before the recording; give or take some chunks
}

TEST_F(Inspect, SaysWhatElseIsThereWhereNothingLooksLikeATransmission) {
    record("zeros.wav", silence(frames(5)));
    EXPECT_EQ(inspected("zeros.wav", 1)["verdict"], "silence");

    const Samples hiss = noise(frames(5), 0.01F, 3);
    record("hiss.wav", hiss);
    const json nothing = inspected("hiss.wav", 1);
    EXPECT_EQ(nothing["verdict"], "nothing");
    EXPECT_TRUE(nothing["best"].is_null() && nothing["whistles"].empty());

    Samples whistle = hiss;
    addTone(whistle, 18903.0, 0.05);
    record("whistle.wav", whistle);
    const json disturbed = inspected("whistle.wav", 1);
    EXPECT_EQ(disturbed["verdict"], "whistle");
    ASSERT_EQ(disturbed["whistles"].size(), 1U);
    EXPECT_NEAR(disturbed["whistles"][0]["frequency_hz"].get<double>(), 18903.0, 10.0);
    EXPECT_NEAR(disturbed["whistles"][0]["level_dbfs"].get<double>(), 20.0 * std::log10(0.3 * 0.05), 2.0);

    sox("hiss.wav coded.wav sinc -16000");
    const json coded = inspected("coded.wav", 1);
    EXPECT_EQ(coded["verdict"], "band removed");
    EXPECT_NEAR(coded["nothing_above_hz"].get<double>(), 16000.0, 400.0);

    record("short.wav", noise(frames(1), 0.01F, 3));
    EXPECT_THAT(inspected("short.wav", 1)["reason"], StartsWith("1.0 s are too short"));

    record("low.wav", noise(32000, 0.01F, 3), 32000);
    EXPECT_THAT(inspected("low.wav -o low.png", 1)["reason"],
                StartsWith("the rate of 32000 Hz cannot carry the band"));
}

TEST_F(Inspect, LooksAtAPartAndCountsFromTheStartOfTheFile) {
    record("two.wav", inNoise(sorvel::transmission("acme_1", 50)) + silence(frames(20)) +
                          inNoise(sorvel::transmission("acme_2", 50)));
    EXPECT_EQ(inspected("two.wav", 0)["texts"].size(), 2U);
    const json second = inspected("two.wav --from 20 --to 29.5", 0);
    ASSERT_EQ(second["texts"].size(), 1U);
    EXPECT_EQ(second["texts"][0]["text"], "acme_2");
    EXPECT_NEAR(second["texts"][0]["end_s"].get<double>(), 24.764 + kEnd_s, 0.03);
    EXPECT_EQ(second["from_s"], 20.0);
    EXPECT_EQ(inspected("two.wav --from 6 --to 20", 1)["verdict"], "silence");
}

TEST_F(Inspect, LooksAtTheBetterChannelOrTheOneAskedFor) {
    record("a.wav", inNoise(sorvel::transmission("acme_1234", 50)));
    record("hiss.wav", noise(frames(5), 0.1F, 3));
    sox("-M a.wav -v -1 a.wav opposite.wav");
    sox("-M hiss.wav a.wav right.wav");
    EXPECT_EQ(inspected("opposite.wav", 0)["best"]["clear_nibbles"], 34);
    EXPECT_EQ(inspected("right.wav", 0)["best"]["clear_nibbles"], 34);
    EXPECT_EQ(inspected("right.wav --channel 1", 1)["verdict"], "nothing");
    const Outcome none = shell("sorvel inspect right.wav --channel 3");
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, HasSubstr("has no channel 3, its last one is 2"));
}

std::uint32_t pixel(cairo_surface_t* image, double x, double y) {
    const unsigned char* const row = cairo_image_surface_get_data(image) +
                                     static_cast<std::ptrdiff_t>(y) * cairo_image_surface_get_stride(image);
    std::uint32_t value = 0;
    std::memcpy(&value, row + 4 * static_cast<std::ptrdiff_t>(x), sizeof value);
    return value & 0xFFFFFFU;
}

TEST_F(Inspect, DrawsAPictureWhoseMarksLieWhereTheTextWas) {
    Samples sound = inNoise(sorvel::transmission("acme_1234", 50));
    addTone(sound, 20000.0, 0.05);
    record("a.wav", sound);
    ASSERT_EQ(shell("sorvel inspect a.wav -o a.png && sorvel inspect a.wav -o a.svg").status, 0);
    cairo_surface_t* const image = cairo_image_surface_create_from_png((folder() + "/a.png").c_str());
    ASSERT_EQ(cairo_surface_status(image), CAIRO_STATUS_SUCCESS);
    EXPECT_EQ(cairo_image_surface_get_width(image), inspection::kPictureWidth);
    EXPECT_EQ(cairo_image_surface_get_height(image), inspection::kPictureHeight);
    const double length_s = kEnd_s + 0.5;
    const auto x = [&](double time_s) { return inspection::kLeft + inspection::kWidth * time_s / length_s; };
    const double above = inspection::kTop - 16.0; // amid the bars, over their letters
    EXPECT_EQ(pixel(image, x(kBegin_s) + 6, above), pixel(image, x(kEnd_s) - 6, above));
    EXPECT_NE(pixel(image, x(kEnd_s) - 6, above), 0xFFFFFFU);
    EXPECT_EQ(pixel(image, x(kBegin_s) - 6, above), 0xFFFFFFU);
    EXPECT_EQ(pixel(image, x(kEnd_s) + 6, above), 0xFFFFFFU);
    // The whistle is lighter than what is beside it, all along.
    const auto y = [](double hz) {
        return inspection::kTop +
               inspection::kRowHeight * (Spectrogram::kRows - 0.5 - (hz - 17015.6) / 23.4375);
    };
    const auto lightness = [&](double time_s, double hz) {
        const std::uint32_t colour = pixel(image, x(time_s), y(hz));
        return (colour >> 16) + (colour >> 8 & 0xFFU) + (colour & 0xFFU);
    };
    for (double time_s = 0.2; time_s < length_s - 0.1; time_s += 0.3)
        EXPECT_GT(lightness(time_s, 20000.0), lightness(time_s, 19750.0) + 200) << time_s;
    cairo_surface_destroy(image);

    const std::string svg = content("a.svg");
    EXPECT_THAT(svg, AllOf(HasSubstr("width=\"1000px\""), HasSubstr("height=\"560px\""),
                           HasSubstr("data:image/png;base64,"), EndsWith("</svg>\n")));
    EXPECT_LT(svg.size(), 300000U);
}

TEST_F(Inspect, RefusesWithOneLineWhatCannotBeDone) {
    record("a.wav", noise(frames(0.2), 0.01F, 1));
    record("none.wav", {});
    write("text.wav", "no sound");
    write("locked.png", "kept");
    ASSERT_EQ(shell("chmod a-w locked.png && mkdir folder.png && mkfifo pipe.wav").status, 0);
    const auto complaint = [&](const std::string& arguments) {
        const Outcome outcome = shell("sorvel inspect " + arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        return outcome.err;
    };
    EXPECT_THAT(complaint("missing.wav"), HasSubstr("missing.wav"));
    EXPECT_THAT(complaint("text.wav"), HasSubstr("text.wav"));
    EXPECT_THAT(complaint("none.wav"), HasSubstr("no samples"));
    EXPECT_THAT(complaint("-"), HasSubstr("name a file"));
    EXPECT_THAT(complaint("a.wav -o picture.jpg"), HasSubstr(".png or .svg"));
    EXPECT_THAT(complaint("a.wav -o nowhere/picture.png"), HasSubstr("nowhere/picture.png"));
    EXPECT_THAT(complaint("a.wav -o folder.png"), HasSubstr("folder.png"));
    EXPECT_THAT(complaint("a.wav -o locked.png"), HasSubstr("read-only"));
    EXPECT_THAT(complaint("a.wav --from 2 --to 1"), HasSubstr("--from"));
    EXPECT_THAT(complaint("a.wav --from 2"), HasSubstr("ends before --from"));
    EXPECT_THAT(complaint("a.wav --prefix acme!"), HasSubstr("no text begins"));
    EXPECT_THAT(complaint(""), HasSubstr("FILE"));
    EXPECT_EQ(content("locked.png"), "kept");
}

} // namespace
