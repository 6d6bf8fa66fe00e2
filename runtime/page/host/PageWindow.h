// The window of a page app: exactly the size of the device's screen, not
// resizable, and on a round screen shaped as a circle. It holds the web view.
#ifndef KV_PAGE_PAGE_WINDOW_H
#define KV_PAGE_PAGE_WINDOW_H

#include <kv-device/Screen.h>

#include <gtk/gtk.h>
#include <webkit2/webkit2.h>

#include <optional>
#include <string>
#include <utility>

namespace Kv {
namespace Page {

// Makes and shows the window with `view` in it, titled `title`, at
// `position` on the display when given. The window owns the view.
GtkWidget* makePageWindow(WebKitWebView* view, const Device::Screen& screen,
                          const std::string& title,
                          const std::optional<std::pair<int, int>>& position);

}  // namespace Page
}  // namespace Kv

#endif
