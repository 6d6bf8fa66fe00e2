#include "PointerClick.h"

#include <gtk/gtk.h>

namespace Kv {
namespace Page {

namespace {

void sendPointerEvent(GtkWidget* widget, GdkEventType type, double x, double y) {
    GdkWindow* window = gtk_widget_get_window(widget);
    GdkDevice* pointer = gdk_seat_get_pointer(gdk_display_get_default_seat(gtk_widget_get_display(widget)));
    int originX = 0;
    int originY = 0;
    gdk_window_get_origin(window, &originX, &originY);
    GdkEvent* event = gdk_event_new(type);
    if (type == GDK_MOTION_NOTIFY) {
        event->motion.window = GDK_WINDOW(g_object_ref(window));
        event->motion.time = GDK_CURRENT_TIME;
        event->motion.x = x;
        event->motion.y = y;
        event->motion.x_root = originX + x;
        event->motion.y_root = originY + y;
    } else {
        event->button.window = GDK_WINDOW(g_object_ref(window));
        event->button.time = GDK_CURRENT_TIME;
        event->button.x = x;
        event->button.y = y;
        event->button.x_root = originX + x;
        event->button.y_root = originY + y;
        event->button.button = 1;
        event->button.state = type == GDK_BUTTON_RELEASE ? GDK_BUTTON1_MASK : 0;
    }
    gdk_event_set_device(event, pointer);
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
