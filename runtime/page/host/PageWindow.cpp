#include "PageWindow.h"

#include <cmath>

namespace Kv {
namespace Page {

namespace {

// The region of a round screen: a disc as wide as the window.
cairo_region_t* discRegion(const Device::Screen& screen) {
    cairo_surface_t* mask =
        cairo_image_surface_create(CAIRO_FORMAT_A1, screen.width, screen.height);
    cairo_t* cr = cairo_create(mask);
    cairo_arc(cr, screen.width / 2.0, screen.height / 2.0,
              std::min(screen.width, screen.height) / 2.0, 0, 2 * M_PI);
    cairo_fill(cr);
    cairo_destroy(cr);
    cairo_region_t* region = gdk_cairo_region_create_from_surface(mask);
    cairo_surface_destroy(mask);
    return region;
}

}  // namespace

GtkWidget* makePageWindow(WebKitWebView* view, const Device::Screen& screen,
                          const std::string& title,
                          const std::optional<std::pair<int, int>>& position) {
    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), title.c_str());
    gtk_window_set_default_size(GTK_WINDOW(window), screen.width, screen.height);
    gtk_widget_set_size_request(GTK_WIDGET(view), screen.width, screen.height);
    gtk_window_set_resizable(GTK_WINDOW(window), FALSE);
    if (position) {
        gtk_window_move(GTK_WINDOW(window), position->first, position->second);
    }
    if (screen.round) {
        gtk_window_set_decorated(GTK_WINDOW(window), FALSE);
        cairo_region_t* region = discRegion(screen);
        gtk_widget_shape_combine_region(window, region);
        cairo_region_destroy(region);
    }
    gtk_container_add(GTK_CONTAINER(window), GTK_WIDGET(view));
    gtk_widget_show_all(window);
    return window;
}

}  // namespace Page
}  // namespace Kv
