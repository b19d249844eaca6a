#pragma once

#include "platform/system/shared_library.hpp"

#include <cairo-svg.h>
#include <cairo.h>

namespace sorvel {

/// The functions of the library that draws. It is opened with the first picture.
struct CairoFunctions {
    explicit CairoFunctions(const SharedLibrary& library);

    decltype(&cairo_image_surface_create) image_surface_create = nullptr;
    decltype(&cairo_image_surface_create_for_data) image_surface_create_for_data = nullptr;
    decltype(&cairo_svg_surface_create_for_stream) svg_surface_create_for_stream = nullptr;
    decltype(&cairo_svg_surface_set_document_unit) svg_surface_set_document_unit = nullptr;
    decltype(&cairo_surface_write_to_png_stream) surface_write_to_png_stream = nullptr;
    decltype(&cairo_surface_finish) surface_finish = nullptr;
    decltype(&cairo_surface_status) surface_status = nullptr;
    decltype(&cairo_surface_destroy) surface_destroy = nullptr;

    decltype(&cairo_create) create = nullptr;
    decltype(&cairo_destroy) destroy = nullptr;
    decltype(&cairo_status) status = nullptr;
    decltype(&cairo_status_to_string) status_to_string = nullptr;
    decltype(&cairo_save) save = nullptr;
    decltype(&cairo_restore) restore = nullptr;
    decltype(&cairo_translate) translate = nullptr;
    decltype(&cairo_scale) scale = nullptr;
    decltype(&cairo_set_source_rgb) set_source_rgb = nullptr;
    decltype(&cairo_set_source_surface) set_source_surface = nullptr;
    decltype(&cairo_get_source) get_source = nullptr;
    decltype(&cairo_pattern_set_filter) pattern_set_filter = nullptr;
    decltype(&cairo_set_line_width) set_line_width = nullptr;
    decltype(&cairo_rectangle) rectangle = nullptr;
    decltype(&cairo_move_to) move_to = nullptr;
    decltype(&cairo_line_to) line_to = nullptr;
    decltype(&cairo_fill) fill = nullptr;
    decltype(&cairo_stroke) stroke = nullptr;
    decltype(&cairo_paint) paint = nullptr;
    decltype(&cairo_select_font_face) select_font_face = nullptr;
    decltype(&cairo_set_font_size) set_font_size = nullptr;
    decltype(&cairo_text_extents) text_extents = nullptr;
    decltype(&cairo_show_text) show_text = nullptr;
};

/// @throws SharedLibraryError  at every call, when there is no such library; never after a call that did not
const CairoFunctions& cairoFunctions();

} // namespace sorvel
