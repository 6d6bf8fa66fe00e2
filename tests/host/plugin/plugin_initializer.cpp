// The host test plug-in's frame: the five symbols that the runtime reads.
// Its one class-map row installs webapis.hosttest; the widget hooks start
// and stop access control for the widget, as the accessory plug-in does.
#include "HostTestAccess.h"
#include "JSHostTest.h"

#include <JavaScriptCore/JavaScript.h>
#include <Logger.h>
#include <wrt_plugin_export.h>
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>

namespace {

using namespace DeviceAPI::HostTest;

// KV_HOST_TEST_START_DELAY_MS holds the widget's start that long: a device
// slow to start an app.
void onWidgetStart(int widgetId) {
    LoggerI("on_widget_start_callback (" << widgetId << ")");
    if (const char* delay = std::getenv("KV_HOST_TEST_START_DELAY_MS")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(delay)));
    }
    startAccessControl(widgetId);
}

void onWidgetStop(int widgetId) {
    LoggerI("on_widget_stop_callback (" << widgetId << ")");
    stopAccessControl(widgetId);
}

// The document each loaded frame's context belongs to, so that the frame
// hooks can say which frame they were called for: the address of a page's
// frame, or nothing for the script host's context.
std::map<JSGlobalContextRef, std::string>& loadedFrames() {
    static std::map<JSGlobalContextRef, std::string> frames;
    return frames;
}

std::string addressOf(JSContextRef context) {
    JSStringRef script = JSStringCreateWithUTF8CString(
        "typeof location === 'object' && location ? String(location.href) : ''");
    JSValueRef value = JSEvaluateScript(context, script, nullptr, nullptr, 1, nullptr);
    JSStringRelease(script);
    JSStringRef text = value ? JSValueToStringCopy(context, value, nullptr) : nullptr;
    if (!text) {
        return {};
    }
    std::string address(JSStringGetMaximumUTF8CStringSize(text), '\0');
    address.resize(JSStringGetUTF8CString(text, address.data(), address.size()) - 1);
    JSStringRelease(text);
    return address;
}

// "on_frame_load_callback", followed by the frame's address in a page.
void onFrameLoad(JSContextRef context) {
    const std::string address = addressOf(context);
    loadedFrames()[JSContextGetGlobalContext(context)] = address;
    LoggerI("on_frame_load_callback" << (address.empty() ? "" : " ") << address);
}

void onFrameUnload(JSContextRef context) {
    const auto found = loadedFrames().find(JSContextGetGlobalContext(context));
    const std::string address = found == loadedFrames().end() ? "" : found->second;
    if (found != loadedFrames().end()) {
        loadedFrames().erase(found);
    }
    LoggerI("on_frame_unload_callback" << (address.empty() ? "" : " ") << address);
}

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
