// The host test plug-in's frame: the five symbols that the runtime reads.
// Its one class-map row installs webapis.hosttest; the widget hooks start
// and stop access control for the widget, as the accessory plug-in does.
#include "HostTestAccess.h"
#include "JSHostTest.h"

#include <Logger.h>
#include <wrt_plugin_export.h>

namespace {

using namespace DeviceAPI::HostTest;

void onWidgetStart(int widgetId) {
    LoggerI("on_widget_start_callback (" << widgetId << ")");
    startAccessControl(widgetId);
}

void onWidgetStop(int widgetId) {
    LoggerI("on_widget_stop_callback (" << widgetId << ")");
    stopAccessControl(widgetId);
}

void onFrameLoad(JSContextRef) { LoggerI("on_frame_load_callback"); }

void onFrameUnload(JSContextRef) { LoggerI("on_frame_unload_callback"); }

const js_entity_definition_t kClassMap[] = {
    {"webapis", "hosttest", "", JSHostTest::getClassRef, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

extern "C" {
WRT_PLUGIN_EXPORT start_function_cb on_widget_start = onWidgetStart;
WRT_PLUGIN_EXPORT stop_function_cb on_widget_stop = onWidgetStop;
WRT_PLUGIN_EXPORT frame_load_cb on_frame_load = onFrameLoad;
WRT_PLUGIN_EXPORT frame_unload_cb on_frame_unload = onFrameUnload;
WRT_PLUGIN_EXPORT class_map_t class_map = kClassMap;
}
