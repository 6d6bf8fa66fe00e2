#include "PngPicture.h"

#include <cairo.h>

namespace KvTest {

PngPicture readPng(const std::string& path) {
    PngPicture picture;
    cairo_surface_t* png = cairo_image_surface_create_from_png(path.c_str());
    if (cairo_surface_status(png) == CAIRO_STATUS_SUCCESS) {
        picture.width = cairo_image_surface_get_width(png);
        picture.height = cairo_image_surface_get_height(png);
        cairo_surface_t* argb =
            cairo_image_surface_create(CAIRO_FORMAT_ARGB32, picture.width, picture.height);
        cairo_t* cr = cairo_create(argb);
        cairo_set_source_surface(cr, png, 0, 0);
        cairo_paint(cr);
        cairo_destroy(cr);
        cairo_surface_flush(argb);
        const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(argb));
        const unsigned char* data = cairo_image_surface_get_data(argb);
        for (std::size_t y = 0; y < static_cast<std::size_t>(picture.height); ++y) {
            const auto* row = reinterpret_cast<const std::uint32_t*>(data + y * stride);
            picture.pixels.insert(picture.pixels.end(), row, row + picture.width);
        }
        cairo_surface_destroy(argb);
    }
    cairo_surface_destroy(png);
    return picture;
}

}  // namespace KvTest
