/// Pictures with lines, text and coloured cells, as PNG or SVG.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

namespace sorvel {

/// One line for the user: which picture cannot be made, why, and what to try.
class PictureError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Says before long work whether a picture could be written there afterwards.
/// @throws PictureError  also for a name that ends neither in .png nor in .svg
void checkPicturePath(const std::string& path);

/// 0xRRGGBB.
enum class Colour : std::uint32_t {};

/// A white sheet; places are in pixels from its upper left corner. Thread: one at a time.
///
///     Picture picture("air.svg", 1000, 500);
///     picture.text({20, 30}, "Air", {.size = 16});
///     picture.finish();
class Picture {
public:
    struct Point {
        double x = 0.0, y = 0.0;
    };
    struct Box {
        double x = 0.0, y = 0.0, width = 0.0, height = 0.0;
    };
    enum class Align : std::uint8_t { Left, Centre, Right };
    struct Font {
        double size = 12.0; ///< of the letters' height with space, pixels
        Colour colour{0x000000};
        Align align = Align::Left;
        bool isBold = false;
    };

    /// @throws PictureError as `checkPicturePath`, SharedLibraryError without the library that draws
    Picture(const std::string& path, int width, int height);
    ~Picture();
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    void fill(const Box& box, Colour colour);
    void frame(const Box& box, Colour colour, double width = 1.0); ///< lies inside of the box
    void line(Point from, Point to, Colour colour, double width = 1.0);
    /// @param at    on the base line
    /// @param utf8  what is no UTF-8 shows as '?'
    void text(Point at, const std::string& utf8, const Font& font);
    double width(const std::string& utf8, const Font& font); ///< of a text, pixels
    /// Cells from the upper left one on, row by row, without a blur between them.
    /// @param cells  `columns` of them in each row
    void cells(const Box& box, std::span<const Colour> cells, std::size_t columns);

    /// Puts the file in place, all at once: one that is there before stays whole if that fails.
    /// @throws PictureError  when it cannot be written
    void finish();

private:
    struct Sheet;
    std::string m_path;
    std::unique_ptr<Sheet> m_sheet;
};

} // namespace sorvel
