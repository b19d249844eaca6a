#include "platform/files/cairo_functions.hpp"

namespace sorvel {

CairoFunctions::CairoFunctions(const SharedLibrary& library) {
    library.find(image_surface_create, "cairo_image_surface_create");
    library.find(image_surface_create_for_data, "cairo_image_surface_create_for_data");
    library.find(svg_surface_create_for_stream, "cairo_svg_surface_create_for_stream");
    library.find(svg_surface_set_document_unit, "cairo_svg_surface_set_document_unit");
    library.find(surface_write_to_png_stream, "cairo_surface_write_to_png_stream");
    library.find(surface_finish, "cairo_surface_finish");
    library.find(surface_status, "cairo_surface_status");
    library.find(surface_destroy, "cairo_surface_destroy");
    library.find(create, "cairo_create");
    library.find(destroy, "cairo_destroy");
    library.find(status, "cairo_status");
    library.find(status_to_string, "cairo_status_to_string");
    library.find(save, "cairo_save");
    library.find(restore, "cairo_restore");
    library.find(translate, "cairo_translate");
    library.find(scale, "cairo_scale");
    library.find(set_source_rgb, "cairo_set_source_rgb");
    library.find(set_source_surface, "cairo_set_source_surface");
    library.find(get_source, "cairo_get_source");
    library.find(pattern_set_filter, "cairo_pattern_set_filter");
    library.find(set_line_width, "cairo_set_line_width");
    library.find(rectangle, "cairo_rectangle");
    library.find(move_to, "cairo_move_to");
    library.find(line_to, "cairo_line_to");
    library.find(fill, "cairo_fill");
    library.find(stroke, "cairo_stroke");
    library.find(paint, "cairo_paint");
    library.find(select_font_face, "cairo_select_font_face");
    library.find(set_font_size, "cairo_set_font_size");
    library.find(text_extents, "cairo_text_extents");
    library.find(show_text, "cairo_show_text");
}

const CairoFunctions& cairoFunctions() {
    static const CairoFunctions functions(SharedLibrary("libcairo.so.2", "libcairo2"));
    return functions;
}

} // namespace sorvel
