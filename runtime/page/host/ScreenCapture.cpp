#include "ScreenCapture.h"

#include <cmath>
#include <filesystem>
#include <memory>
#include <system_error>

namespace Kv {
namespace Page {

namespace {

struct Capture {
    Device::Screen screen;
    std::string file;
    CaptureDone done;
};

std::string writePng(cairo_surface_t* surface, const Device::Screen& screen,
                     const std::string& file) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::path(file).parent_path();
    if (!folder.empty()) {
        std::filesystem::create_directories(folder, error);
    }
    cairo_surface_t* clipped = clipToScreen(surface, screen);
    const cairo_status_t status = cairo_surface_write_to_png(clipped, file.c_str());
    cairo_surface_destroy(clipped);
    return status == CAIRO_STATUS_SUCCESS
               ? std::string()
               : "cannot write " + file + ": " + cairo_status_to_string(status);
}

void snapshotTaken(GObject* view, GAsyncResult* result, gpointer data) {
    std::unique_ptr<Capture> capture(static_cast<Capture*>(data));
    GError* error = nullptr;
    cairo_surface_t* surface =
        webkit_web_view_get_snapshot_finish(WEBKIT_WEB_VIEW(view), result, &error);
    if (!surface) {
        const std::string why = error ? error->message : "no picture";
        g_clear_error(&error);
        capture->done("cannot draw the page: " + why);
        return;
    }
    const std::string failure = writePng(surface, capture->screen, capture->file);
    cairo_surface_destroy(surface);
    capture->done(failure);
}

}  // namespace

cairo_surface_t* clipToScreen(cairo_surface_t* surface, const Device::Screen& screen) {
    cairo_surface_t* target =
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, screen.width, screen.height);
    cairo_t* cr = cairo_create(target);
    if (screen.round) {
        const double radius = std::min(screen.width, screen.height) / 2.0;
        cairo_arc(cr, screen.width / 2.0, screen.height / 2.0, radius, 0, 2 * M_PI);
        cairo_clip(cr);
    }
    cairo_set_source_surface(cr, surface, 0, 0);
    cairo_paint(cr);
    cairo_destroy(cr);
    return target;
}

void captureScreen(WebKitWebView* view, const Device::Screen& screen, const std::string& file,
                   CaptureDone done) {
    auto* capture = new Capture{screen, file, std::move(done)};
    // The engine draws the page anew for it, layout included, so what the
    // page changed just before is in the picture.
    webkit_web_view_get_snapshot(view, WEBKIT_SNAPSHOT_REGION_VISIBLE, WEBKIT_SNAPSHOT_OPTIONS_NONE,
                                 nullptr, snapshotTaken, capture);
}

}  // namespace Page
}  // namespace Kv
