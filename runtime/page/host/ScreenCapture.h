// PNG pictures of what a page's screen shows: the page as the engine draws
// it, the size of the device's screen, clipped to a circle (transparent
// outside it) on a round screen.
#ifndef KV_PAGE_SCREEN_CAPTURE_H
#define KV_PAGE_SCREEN_CAPTURE_H

#include <kv-device/Screen.h>

#include <webkit2/webkit2.h>

#include <functional>
#include <string>

namespace Kv {
namespace Page {

// Called once the picture is written, with an empty string, or with what
// went wrong.
using CaptureDone = std::function<void(const std::string& error)>;

// Draws the page of `view` now and writes it to `file` (its folder is made
// when missing). Asynchronous: `done` runs later on the main loop.
void captureScreen(WebKitWebView* view, const Device::Screen& screen, const std::string& file,
                   CaptureDone done);

// Keeps `surface`'s pixels inside the screen's circle and makes the rest
// transparent; a rectangular screen's picture is kept whole. Returns a new
// surface (the caller destroys it).
cairo_surface_t* clipToScreen(cairo_surface_t* surface, const Device::Screen& screen);

}  // namespace Page
}  // namespace Kv

#endif
