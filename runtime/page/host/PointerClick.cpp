#include "PointerClick.h"

#include <gtk/gtk.h>

namespace Kv {
namespace Page {

namespace {

// Puts a motion or button event at (x, y) of `window`.
template <typename Event>
void place(Event& event, GdkWindow* window, double x, double y) {
    int originX = 0;
    int originY = 0;
    gdk_window_get_origin(window, &originX, &originY);
    event.window = GDK_WINDOW(g_object_ref(window));
    event.time = GDK_CURRENT_TIME;
    event.x = x;
    event.y = y;
    event.x_root = originX + x;
    event.y_root = originY + y;
}

void sendPointerEvent(GtkWidget* widget, GdkEventType type, double x, double y) {
    GdkWindow* window = gtk_widget_get_window(widget);
    GdkEvent* event = gdk_event_new(type);
    if (type == GDK_MOTION_NOTIFY) {
        place(event->motion, window, x, y);
    } else {
        place(event->button, window, x, y);
        event->button.button = 1;
        event->button.state = type == GDK_BUTTON_RELEASE ? GDK_BUTTON1_MASK : 0;
    }
    GdkSeat* seat = gdk_display_get_default_seat(gtk_widget_get_display(widget));
    gdk_event_set_device(event, gdk_seat_get_pointer(seat));
    gtk_main_do_event(event);
    gdk_event_free(event);
}

}  // namespace

void clickAt(WebKitWebView* view, double x, double y) {
    GtkWidget* widget = GTK_WIDGET(view);
    sendPointerEvent(widget, GDK_MOTION_NOTIFY, x, y);
    sendPointerEvent(widget, GDK_BUTTON_PRESS, x, y);
    sendPointerEvent(widget, GDK_BUTTON_RELEASE, x, y);
}

}  // namespace Page
}  // namespace Kv
