#include "platform/files/picture.hpp"

#include "platform/files/cairo_functions.hpp"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace sorvel {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void cannotWrite(const std::string& path, const std::string& reason) {
    throw PictureError("cannot write " + path + ": " + reason);
}
std::string systemReason(int error) { return std::generic_category().message(error); }

bool isSvg(const std::string& path) { return path.ends_with(".svg"); }

/// Through links, so that one that is there stays.
fs::path destination(const std::string& path) {
    std::error_code error;
    const fs::path real = fs::weakly_canonical(fs::absolute(path), error);
    if (error) cannotWrite(path, error.message());
    return real;
}

cairo_status_t append(void* closure, const unsigned char* data, unsigned length) {
    try {
        auto& bytes = *static_cast<std::vector<unsigned char>*>(closure);
        bytes.insert(bytes.end(), data, data + length);
        return CAIRO_STATUS_SUCCESS;
    } catch (...) { // nothing may pass through the library
        return CAIRO_STATUS_NO_MEMORY;
    }
}

/// How many bytes the character at the front takes; 0: they are none of UTF-8, which the library would end
/// the whole picture for.
std::size_t characterLength(std::string_view text) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const std::size_t length = at(0) < 0x80                    ? 1
                               : at(0) >= 0xC2 && at(0) < 0xE0 ? 2
                               : at(0) >= 0xE0 && at(0) < 0xF0 ? 3
                               : at(0) >= 0xF0 && at(0) < 0xF5 ? 4
                                                               : 0;
    if (length == 0 || length > text.size() || at(0) < 0x20) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((at(i) & 0xC0U) != 0x80) return 0;
    const bool isOverlong =
        length > 2 && ((at(0) == 0xE0 && at(1) < 0xA0) || (at(0) == 0xF0 && at(1) < 0x90));
    const bool isNoScalar =
        length > 2 && ((at(0) == 0xED && at(1) > 0x9F) || (at(0) == 0xF4 && at(1) > 0x8F));
    return isOverlong || isNoScalar ? 0 : length;
}

std::string drawable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        result += length > 0 ? text.substr(0, length) : "?";
        text.remove_prefix(length > 0 ? length : 1);
    }
    return result;
}

struct Descriptor {
    int number;
    ~Descriptor() {
        if (number >= 0) ::close(number);
    }
};

void writeAll(const std::string& path, int descriptor, std::span<const unsigned char> bytes) {
    while (!bytes.empty()) {
        const ssize_t put = ::write(descriptor, bytes.data(), bytes.size());
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) cannotWrite(path, systemReason(errno));
        bytes = bytes.subspan(static_cast<std::size_t>(put));
    }
}

void replace(const std::string& path, std::span<const unsigned char> bytes) {
    const fs::path target = destination(path);
    const fs::path temporary =
        target.parent_path() / (".sorvel-" + std::to_string(std::random_device{}()) + ".tmp");
    const Descriptor file{::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)};
    if (file.number < 0) cannotWrite(path, systemReason(errno));
    try {
        writeAll(path, file.number, bytes);
        if (::rename(temporary.c_str(), target.c_str()) != 0) cannotWrite(path, systemReason(errno));
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
}

} // namespace

void checkPicturePath(const std::string& path) {
    if (!path.ends_with(".png") && !isSvg(path))
        cannotWrite(path, "the name of a picture ends in .png or .svg");
    const fs::path target = destination(path);
    std::error_code error;
    const fs::file_status status = fs::status(target, error);
    if (fs::exists(status) && !fs::is_regular_file(status)) cannotWrite(path, "it is no file; name another");
    // Replacing needs no right to write a file, but whoever took that right away did not mean it.
    constexpr auto kWriters = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    const bool isForAnyone = (status.permissions() & kWriters) != fs::perms::none;
    if (fs::exists(status) && (!isForAnyone || ::access(target.c_str(), W_OK) != 0))
        cannotWrite(path, "it is read-only; name another file, or make it writable");
    if (::access(target.parent_path().c_str(), W_OK | X_OK) != 0) cannotWrite(path, systemReason(errno));
}

struct Picture::Sheet {
    const CairoFunctions& draw = cairoFunctions();
    std::vector<unsigned char> bytes; // of an SVG as it grows
    cairo_surface_t* surface = nullptr;
    cairo_t* pen = nullptr;

    Sheet(bool asSvg, int width, int height) {
        surface = asSvg ? draw.svg_surface_create_for_stream(append, &bytes, width, height)
                        : draw.image_surface_create(CAIRO_FORMAT_RGB24, width, height);
        if (asSvg) draw.svg_surface_set_document_unit(surface, CAIRO_SVG_UNIT_PX);
        pen = draw.create(surface);
    }
    ~Sheet() {
        draw.destroy(pen);
        draw.surface_destroy(surface);
    }
    Sheet(const Sheet&) = delete;
    Sheet& operator=(const Sheet&) = delete;

    void choose(Colour colour) const {
        const auto part = [colour](unsigned shift) {
            return static_cast<double>(static_cast<std::uint32_t>(colour) >> shift & 0xFFU) / 255.0;
        };
        draw.set_source_rgb(pen, part(16), part(8), part(0));
    }
    void choose(const Font& font) const {
        draw.select_font_face(pen, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                              font.isBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        draw.set_font_size(pen, font.size);
    }
};

Picture::Picture(const std::string& path, int width, int height) : m_path(path) {
    checkPicturePath(path);
    m_sheet = std::make_unique<Sheet>(isSvg(path), width, height);
    fill({0.0, 0.0, static_cast<double>(width), static_cast<double>(height)}, Colour{0xFFFFFF});
}

Picture::~Picture() = default;

void Picture::fill(const Box& box, Colour colour) {
    m_sheet->choose(colour);
    m_sheet->draw.rectangle(m_sheet->pen, box.x, box.y, box.width, box.height);
    m_sheet->draw.fill(m_sheet->pen);
}

void Picture::frame(const Box& box, Colour colour, double width) {
    m_sheet->choose(colour);
    m_sheet->draw.set_line_width(m_sheet->pen, width);
    m_sheet->draw.rectangle(m_sheet->pen, box.x + width / 2, box.y + width / 2, box.width - width,
                            box.height - width);
    m_sheet->draw.stroke(m_sheet->pen);
}

void Picture::line(Point from, Point to, Colour colour, double width) {
    m_sheet->choose(colour);
    m_sheet->draw.set_line_width(m_sheet->pen, width);
    m_sheet->draw.move_to(m_sheet->pen, from.x, from.y);
    m_sheet->draw.line_to(m_sheet->pen, to.x, to.y);
    m_sheet->draw.stroke(m_sheet->pen);
}

void Picture::text(Point at, const std::string& utf8, const Font& font) {
    const double length = font.align == Align::Left ? 0.0 : width(utf8, font);
    m_sheet->choose(font);
    m_sheet->choose(font.colour);
    m_sheet->draw.move_to(m_sheet->pen, at.x - (font.align == Align::Centre ? length / 2 : length), at.y);
    m_sheet->draw.show_text(m_sheet->pen, drawable(utf8).c_str());
}

double Picture::width(const std::string& utf8, const Font& font) {
    m_sheet->choose(font);
    cairo_text_extents_t extents{};
    m_sheet->draw.text_extents(m_sheet->pen, drawable(utf8).c_str(), &extents);
    return extents.x_advance;
}

void Picture::cells(const Box& box, std::span<const Colour> cells, std::size_t columns) {
    const auto& draw = m_sheet->draw;
    if (columns == 0 || cells.size() < columns) return;
    const std::size_t rows = cells.size() / columns;
    // In this format a pixel is a whole number of 32 bits, its upper eight unused, and rows follow closely.
    std::vector<std::uint32_t> pixels;
    pixels.reserve(cells.size());
    for (const Colour colour : cells) pixels.push_back(static_cast<std::uint32_t>(colour));
    cairo_surface_t* const image = draw.image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(pixels.data()), CAIRO_FORMAT_RGB24, static_cast<int>(columns),
        static_cast<int>(rows), static_cast<int>(4 * columns));
    draw.save(m_sheet->pen);
    draw.translate(m_sheet->pen, box.x, box.y);
    draw.scale(m_sheet->pen, box.width / static_cast<double>(columns),
               box.height / static_cast<double>(rows));
    draw.set_source_surface(m_sheet->pen, image, 0.0, 0.0);
    draw.pattern_set_filter(draw.get_source(m_sheet->pen), CAIRO_FILTER_NEAREST);
    draw.rectangle(m_sheet->pen, 0.0, 0.0, static_cast<double>(columns), static_cast<double>(rows));
    draw.fill(m_sheet->pen);
    draw.restore(m_sheet->pen);
    // An SVG takes a copy of what is still referred to when its source ends.
    draw.surface_finish(image);
    draw.surface_destroy(image);
}

void Picture::finish() {
    const auto& draw = m_sheet->draw;
    cairo_status_t status = draw.status(m_sheet->pen);
    std::vector<unsigned char> bytes;
    if (status == CAIRO_STATUS_SUCCESS && !isSvg(m_path)) {
        status = draw.surface_write_to_png_stream(m_sheet->surface, append, &bytes);
    } else if (status == CAIRO_STATUS_SUCCESS) {
        draw.surface_finish(m_sheet->surface);
        status = draw.surface_status(m_sheet->surface);
        bytes.swap(m_sheet->bytes);
    }
    if (status != CAIRO_STATUS_SUCCESS) cannotWrite(m_path, draw.status_to_string(status));
    replace(m_path, bytes);
}

} // namespace sorvel
