#include "tools/inspection_picture.hpp"

#include "platform/files/picture.hpp"
#include "tools/inspection_report.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

namespace sorvel::inspection {

namespace {

using Point = Picture::Point;
using Align = Picture::Align;

constexpr double kHeight = kRowHeight * static_cast<double>(Spectrogram::kRows);
constexpr double kBottom = kTop + kHeight;
constexpr double kBarTop = kTop - 18.0, kBarHeight = 14.0;

// Told apart by lightness too, for eyes that see fewer colours.
constexpr Colour kBlack{0x1A1A1A}, kGrey{0x6E6E6E}, kWhite{0xFFFFFF};
constexpr Colour kWanted{0x0B62A8}, kOther{0x7A7A7A}, kWrong{0xC24A00}, kBest{0xFFFFFF};

constexpr std::size_t kShades = 12; // few, so that the picture stays small
constexpr double kRange_db = 30.0;  // of the shades
constexpr double kOverNoise_db = 2.0;
constexpr double kMost_db = 45.0; // from the darkest to what is loud

struct Rgb {
    double red, green, blue;
};

Colour between(const Rgb& a, const Rgb& b, double part) {
    const auto mixed = [part](double from, double to) {
        return static_cast<std::uint32_t>(std::lround(from + part * (to - from)));
    };
    return Colour{mixed(a.red, b.red) << 16 | mixed(a.green, b.green) << 8 | mixed(a.blue, b.blue)};
}

/// From night blue to yellow, evenly lighter, which all kinds of eyes tell apart.
std::array<Colour, kShades> shades() {
    constexpr std::array<Rgb, 5> kStops{
        {{10, 16, 48}, {30, 62, 120}, {88, 118, 142}, {178, 170, 108}, {255, 236, 96}}
    };
    std::array<Colour, kShades> result{};
    for (std::size_t i = 0; i < kShades; ++i) {
        const double at = static_cast<double>(i) * (kStops.size() - 1) / (kShades - 1);
        const auto stop = std::min(static_cast<std::size_t>(at), kStops.size() - 2);
        result[i] = between(kStops[stop], kStops[stop + 1], at - static_cast<double>(stop));
    }
    return result;
}

template <typename... Values>
std::string formatted(const char* form, Values... values) {
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(), form, values...);
    return text.data();
}

class Sheet {
public:
    Sheet(const std::string& path, const Report& report, const Spectrogram& spectrogram, const Part& part)
        : m_picture(path, kPictureWidth, kPictureHeight), m_report(report), m_spectrogram(spectrogram),
          m_part(part) {}

    void draw() {
        title();
        sound();
        frequencies();
        times();
        marks();
        if (m_report.best) {
            nibbles(*m_report.best);
            facts(*m_report.best);
        } else {
            m_picture.text({kLeft, kBottom + 66}, "There is no transmission whose nibbles could be shown.",
                           {.size = 13, .colour = kGrey});
        }
        m_picture.finish();
    }

private:
    double x(double time_s) const {
        return kLeft + kWidth * (time_s - m_part.from_s) / (m_part.to_s - m_part.from_s);
    }
    static double y(double frequency_hz) {
        return kBottom - kHeight * (frequency_hz - Spectrogram::frequency_hz(0)) /
                             (Spectrogram::frequency_hz(Spectrogram::kRows) - Spectrogram::frequency_hz(0));
    }

    /// The text, without what does not fit.
    void fitting(Point at, std::string text, const Picture::Font& font, double width) {
        if (m_picture.width(text, font) > width) {
            while (!text.empty() && m_picture.width(text + "...", font) > width) text.pop_back();
            text += "...";
        }
        m_picture.text(at, text, font);
    }

    void title() {
        const std::size_t slash = m_report.file.find_last_of('/');
        const std::string name = slash == std::string::npos ? m_report.file : m_report.file.substr(slash + 1);
        fitting({kLeft, 28}, name, {.size = 17, .colour = kBlack, .isBold = true}, 560);
        m_picture.text({kLeft + kWidth, 28},
                       formatted("%d Hz, noise %.0f dBFS from 18 to 19.5 kHz", m_report.rate_hz,
                                 m_report.band.noise_dbfs),
                       {.size = 13, .colour = kGrey, .align = Align::Right});
        const bool isHeard = m_report.verdict == Verdict::Heard;
        const auto wanted = std::count_if(m_report.texts.begin(), m_report.texts.end(),
                                          [](const Text& text) { return text.isWanted; });
        fitting({kLeft, 52},
                isHeard
                    ? formatted("Heard: %ld %s", static_cast<long>(wanted), wanted == 1 ? "text" : "texts")
                    : "Nothing was heard: " + reason(m_report),
                {.size = 15, .colour = isHeard ? kWanted : kWrong, .isBold = true}, kWidth);
    }

    void sound() {
        const auto colours = shades();
        std::vector<Colour> cells;
        cells.reserve(m_spectrogram.columns() * Spectrogram::kRows);
        const double darkest_db = quiet_db();
        for (std::size_t row = Spectrogram::kRows; row-- > 0;)
            for (std::size_t column = 0; column < m_spectrogram.columns(); ++column) {
                const double over_db = level_db(column, row) - darkest_db;
                const double shade = over_db / kRange_db * static_cast<double>(kShades);
                cells.push_back(colours[static_cast<std::size_t>(std::clamp(shade, 0.0, kShades - 1.0))]);
            }
        m_picture.cells({kLeft, kTop, kWidth, kHeight}, cells, m_spectrogram.columns());
    }
    double level_db(std::size_t column, std::size_t row) const {
        return 10.0 * std::log10(static_cast<double>(m_spectrogram.power(column, row)) + 1e-14);
    }
    double quiet_db() const {
        std::vector<double> levels;
        for (std::size_t column = 0; column < m_spectrogram.columns(); ++column)
            for (std::size_t row = 0; row < Spectrogram::kRows; row += 3)
                levels.push_back(level_db(column, row));
        const auto rank = [&levels](double share) {
            const auto at = static_cast<std::ptrdiff_t>(share * static_cast<double>(levels.size() - 1));
            std::nth_element(levels.begin(), levels.begin() + at, levels.end());
            return levels[static_cast<std::size_t>(at)];
        };
        // Without noise, what tones leave beside them would all be bright.
        return std::max(rank(0.5) + kOverNoise_db, rank(0.99) - kMost_db);
    }

    void frequencies() {
        for (int tick_hz = 17000; tick_hz <= 20500; tick_hz += 500) {
            const bool isEdge = tick_hz == 18000 || tick_hz == 19500; // of the tones
            const double hz = tick_hz;
            const double at = std::clamp(y(hz), kTop, kBottom);
            m_picture.line({kLeft - 5, at}, {kLeft, at}, kGrey);
            m_picture.text({kLeft - 8, at + 4}, formatted("%.1f", hz / 1000.0),
                           {.size = 12, .colour = kBlack, .align = Align::Right, .isBold = isEdge});
            if (isEdge) m_picture.line({kLeft + kWidth, at}, {kLeft + kWidth + 9, at}, kBlack, 2);
        }
        m_picture.text({kLeft - 8, kTop - 10}, "kHz", {.size = 12, .colour = kGrey, .align = Align::Right});
        m_picture.line({kLeft + kWidth + 8, y(18000.0)}, {kLeft + kWidth + 8, y(19500.0)}, kBlack, 2);
        m_picture.text({kLeft + kWidth + 13, y(18750.0) + 4}, "band", {.size = 10, .colour = kGrey});
    }

    void times() {
        const double length_s = m_part.to_s - m_part.from_s;
        constexpr double kMost = 12.0;
        double step_s = 0.1;
        for (const double factor :
             {2.0, 2.5, 2.0, 2.0, 2.5, 2.0, 3.0, 2.0, 5.0, 2.0, 3.0, 2.0, 5.0, 2.0, 6.0})
            if (length_s / step_s > kMost) step_s *= factor;
        while (length_s / step_s > kMost) step_s *= 2.0;
        const auto last = std::floor(m_part.to_s / step_s + 1e-6);
        for (auto step = std::lround(std::ceil(m_part.from_s / step_s - 1e-6)); step <= std::lround(last);
             ++step) {
            const double time_s = static_cast<double>(step) * step_s;
            m_picture.line({x(time_s), kBottom}, {x(time_s), kBottom + 5}, kGrey);
            m_picture.text({x(time_s), kBottom + 18},
                           formatted(step_s < 1.0 ? "%.1f" : "%.0f", time_s + 1e-9),
                           {.size = 12, .colour = kBlack, .align = Align::Centre});
        }
        m_picture.text({kLeft + kWidth + 8, kBottom + 18}, "s", {.size = 12, .colour = kGrey});
    }

    void marks() {
        for (const Text& text : m_report.texts)
            bar(text.end_s - kTransmission_s, text.end_s, text.isWanted ? kWanted : kOther,
                text.text + (text.isWanted ? " (" : " (other prefix, ") +
                    (text.isByClassic && text.isByDeep ? "both receivers)"
                     : text.isByDeep                   ? "deep)"
                                                       : "classic)"));
        if (!m_report.best) return;
        const Best& best = *m_report.best;
        const bool isMarked =
            std::any_of(m_report.texts.begin(), m_report.texts.end(), [&](const Text& text) {
                return std::abs(text.end_s - best.end_s) < kTransmission_s / 2;
            });
        if (!isMarked) bar(best.start_s, best.end_s, kWrong, "best candidate");
        const double from = std::max(x(best.start_s), kLeft);
        const double to = std::min(x(best.end_s), kLeft + kWidth);
        if (to <= from) return;
        m_picture.frame({from, y(19560.0), to - from, y(17940.0) - y(19560.0)}, kBest, 1.5);
    }
    void bar(double start_s, double end_s, Colour colour, const std::string& label) {
        const double from = std::max(x(start_s), kLeft), to = std::min(x(end_s), kLeft + kWidth);
        if (to <= from) return;
        m_picture.fill({from, kBarTop, to - from, kBarHeight}, colour);
        fitting({from + 5, kBarTop + 11}, label, {.size = 11, .colour = kWhite}, to - from - 8);
    }

    static constexpr double kCell = 34.0, kCellHeight = 30.0, kGridTop = kBottom + 66.0;

    void nibbles(const Best& best) {
        m_picture.text({kLeft, kBottom + 42},
                       formatted("Nibbles: %d of %zu clear", best.clearNibbles(), deep::kNibbles),
                       {.size = 13, .colour = kBlack, .isBold = true});
        for (std::size_t side = 0; side < 2; ++side) {
            const double top = kGridTop + kCellHeight * static_cast<double>(side);
            m_picture.text({kLeft - 8, top + 19}, side == 0 ? "low" : "high",
                           {.size = 12, .colour = kBlack, .align = Align::Right});
            for (std::size_t chunk = 0; chunk < deep::kChunks; ++chunk)
                cell({kLeft + kCell * static_cast<double>(chunk), top, kCell - 2, kCellHeight - 2},
                     best.nibbles[2 * chunk + side]);
        }
        for (std::size_t chunk = 0; chunk < deep::kChunks; ++chunk)
            m_picture.text({kLeft + kCell * (static_cast<double>(chunk) + 0.5) - 1, kGridTop - 5},
                           std::to_string(chunk + 1), {.size = 10, .colour = kGrey, .align = Align::Centre});
        legend(kGridTop + 2 * kCellHeight + 22);
    }
    void cell(const Picture::Box& box, const Nibble& nibble) {
        // From 1/16, where nothing is known, to 1.
        const double known = std::clamp((nibble.certainty - 1.0 / 16.0) * 16.0 / 15.0, 0.0, 1.0);
        const bool isDark = nibble.isClear();
        m_picture.fill(box, isDark ? kWanted : between({238, 240, 243}, {150, 190, 224}, known));
        if (nibble.isWrong) m_picture.frame(box, kWrong, 3);
        m_picture.text(
            {box.x + box.width / 2, box.y + 19}, formatted("%x", nibble.value),
            {.size = 14, .colour = isDark ? kWhite : kGrey, .align = Align::Centre, .isBold = isDark});
    }
    void legend(double at) {
        double from = kLeft;
        const auto entry = [&](const Nibble& nibble, const char* meaning) {
            cell({from, at - 14, 24, 20 + 8}, nibble);
            const Picture::Font font{.size = 12, .colour = kGrey};
            m_picture.text({from + 30, at + 4}, meaning, font);
            from += 48 + m_picture.width(meaning, font);
        };
        entry({10, 1.0, false}, "clear, 90 % sure and more");
        entry({10, 0.5, false}, "unclear");
        if (m_report.best && !m_report.best->text.empty()) entry({10, 0.2, true}, "another one was sent");
    }

    void facts(const Best& best) {
        constexpr double kFrom = kLeft + 17 * kCell + 22;
        double at = kBottom + 42;
        const auto fact = [&](const char* name, const std::string& words) {
            m_picture.text({kFrom, at}, name, {.size = 12, .colour = kGrey});
            fitting({kFrom + 48, at}, words, {.size = 12, .colour = kBlack}, kPictureWidth - kFrom - 48 - 8);
            at += 20;
        };
        fact("from", formatted("%.2f to %.2f s", best.start_s, best.end_s));
        fact("signal", signalWords(best) + " in the band");
        fact("speed", speedWords(best));
        fact("echo", best.echo < 0.005 ? "none" : formatted("%.0f %% left 192 ms later", 100 * best.echo));
        if (!best.text.empty()) fact("text", best.text);
    }

    Picture m_picture;
    const Report& m_report;
    const Spectrogram& m_spectrogram;
    Part m_part;
};

} // namespace

void draw(const std::string& path, const Report& report, const Spectrogram& spectrogram, const Part& part) {
    Sheet(path, report, spectrogram, part).draw();
}

} // namespace sorvel::inspection
