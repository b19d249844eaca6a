// Measures how far the receivers hear, classic and deep on the same draws of a simulated channel.
//     hearing --list                                  all channels
//     hearing --point white:-12 --trials 100          one point (a family's name: its curve)
//     hearing --table --draws reporting --trials 200  what is to be reached
//     hearing --curves --output curves.csv            everything; plot_hearing.py draws it
//     hearing --superset 10000                        what classic delivers and deep does not
//     hearing --false-texts 1                         hours of sound without a text
//     hearing --cost                                  speed, memory, longest push
#include "bench/hearing/false_texts.hpp"
#include "bench/hearing/report.hpp"
#include "bench/hearing/superset.hpp"
#include "modem/ggwave.h"
#include "platform/files/wav_writer.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

namespace {

using namespace sorvel::hearing;

void list() {
    for (const Family& family : families()) {
        std::printf("%s: %s [%s]\n ", family.name.c_str(), family.meaning.c_str(), family.unit.c_str());
        for (const Point& point : family.points) std::printf(" %s", point.name().c_str());
        std::printf("\n");
    }
}

/// Points by name; a family's name stands for all of it.
std::vector<const Point*> chosen(const std::vector<std::string>& names, bool isAll) {
    std::vector<const Point*> points;
    for (const Family& family : families())
        if (isAll || std::find(names.begin(), names.end(), family.name) != names.end())
            for (const Point& point : family.points) points.push_back(&point);
    for (const std::string& name : names)
        if (std::none_of(families().begin(), families().end(),
                         [&](const Family& f) { return f.name == name; }))
            points.push_back(&pointNamed(name));
    return points;
}

/// Writes the first trial's sound, to listen to and to try other receivers on.
void save(const std::string& path, const Point& point, const Plan& plan) {
    const Scene scene = makeScene(point.channel, plan.rate_hz, {plan.set, plan.seed, plan.first});
    sorvel::WavWriter writer(path, static_cast<int>(plan.rate_hz), sorvel::StoredFormat::I16,
                             scene.sound.size());
    writer.write(scene.sound);
    writer.finish();
    for (const std::string& text : scene.texts)
        std::printf("%s: '%s', the end at %.3f s\n", path.c_str(), text.c_str(), scene.end_s);
}

struct Options {
    Plan plan;
    std::vector<std::string> points;
    std::string output, sound, draws = "tuning", prefix = "both";
    bool isSmall = false, isList = false, isTable = false, isCurves = false, isCost = false;
    int superset = 0;
    double falseTexts_h = 0.0;
};

int run(Options& options) {
    Plan& plan = options.plan;
    plan.set = options.draws == "reporting" ? DrawSet::Reporting : DrawSet::Tuning;
    if (options.prefix != "both")
        plan.kinds = {Kind::Classic, options.prefix == "4" ? Kind::DeepWithPrefix : Kind::DeepWithout};
    if (options.isSmall && options.prefix != "0") plan.kinds.push_back(Kind::SmallWithPrefix);
    if (options.isSmall && options.prefix != "4") plan.kinds.push_back(Kind::SmallWithout);
    GGWave::setLogFile(nullptr);
    if (options.isList) return list(), 0;
    if (options.isCost) return printCost(plan), 0;
    if (options.falseTexts_h > 0.0) return countFalseTexts(options.falseTexts_h, plan) == 0 ? 0 : 1;
    if (options.superset > 0) {
        plan.trials = options.superset;
        return compareAll(plan) == 0 ? 0 : 1;
    }
    if (!options.sound.empty() && !options.points.empty())
        save(options.sound, *chosen(options.points, false).front(), plan);
    std::vector<Measured> measured;
    bool isReached = true;
    if (options.isTable)
        isReached = printGoals(plan, measured);
    else
        measured = measure(chosen(options.points, options.isCurves), plan);
    if (!options.output.empty()) write(options.output, measured, plan);
    return isReached ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Measures how far the receivers hear, on the same draws of a simulated channel.", "hearing");
    Options options;
    Plan& plan = options.plan;
    auto* const what = app.add_option_group("what");
    what->add_flag("--list", options.isList, "Show all channels");
    what->add_option("--point", options.points, "Measure points, or all of a family");
    what->add_flag("--table", options.isTable, "Measure what is to be reached; status 1 if a row is missed");
    what->add_flag("--curves", options.isCurves, "Measure every point of every family");
    what->add_option("--superset", options.superset,
                     "Send this many texts over all channels; list what classic delivers and deep misses")
        ->check(CLI::Range(1, 10000000));
    what->add_option("--false-texts", options.falseTexts_h,
                     "Listen to this many hours of each sound without a text")
        ->check(CLI::Range(0.001, 100000.0));
    what->add_flag("--cost", options.isCost, "Measure speed, memory and the longest push");
    what->require_option(1);
    app.add_option("--trials", plan.trials, "Per point")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
    app.add_option("--draws", options.draws, "Settings are tuned on one set and reported on the other")
        ->check(CLI::IsMember({"tuning", "reporting"}))
        ->capture_default_str();
    app.add_option("--seed", plan.seed, "Of the draws")->capture_default_str();
    app.add_option("--first", plan.first, "Number of the first trial")->capture_default_str();
    app.add_option("--prefix", options.prefix, "Characters of the prefix that the deep receiver knows")
        ->check(CLI::IsMember({"4", "0", "both"}))
        ->capture_default_str();
    app.add_flag("--small", options.isSmall, "Measure the deep receiver for small machines too");
    app.add_option("--rate", plan.rate_hz, "Hz of the microphone")
        ->check(CLI::Range(44100.0, 192000.0))
        ->capture_default_str();
    app.add_option("--jobs", plan.jobs, "Threads")->check(CLI::Range(1U, 256U))->capture_default_str();
    app.add_option("--output", options.output, "Write results as CSV, or as JSON if the name ends so");
    app.add_option("--save", options.sound, "Write the first trial of the first point as WAV");
    CLI11_PARSE(app, argc, argv);
    try {
        return run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "hearing: %s\n", error.what());
        return 2;
    }
}
