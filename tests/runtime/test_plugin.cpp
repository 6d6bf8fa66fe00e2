// A device-API plug-in for the runtime's tests. It installs one object whose
// class has a few functions, and records every hook call in the file named by
// $KV_TEST_PLUGIN_LOG, one line each: "<plug-in name> <event> [<argument>]".
// Built several times with different compile definitions:
//   KV_TEST_PLUGIN_NAME            the name in its log lines
//   KV_TEST_PLUGIN_OBJECT          the property of webapis it installs
//   KV_TEST_PLUGIN_CONSTRUCTOR_ROW adds kvtest.widget, a row with a constructor callback
//   KV_TEST_PLUGIN_NO_FRAME_HOOKS  exports no frame hooks
//   KV_TEST_PLUGIN_NO_CLASS_MAP    exports no class map
#include <wrt_plugin_export.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// The engine's synchronous collection, exported by the library for debugging.
extern "C" void JSSynchronousGarbageCollectForDebugging(JSContextRef context);

namespace {

void record(const std::string& line) {
    const char* path = std::getenv("KV_TEST_PLUGIN_LOG");
    if (!path) {
        return;
    }
    if (FILE* file = std::fopen(path, "a")) {
        std::fprintf(file, "%s %s\n", KV_TEST_PLUGIN_NAME, line.c_str());
        std::fclose(file);
    }
}

std::string textOf(JSContextRef context, JSValueRef value) {
    JSStringRef string = JSValueToStringCopy(context, value, nullptr);
    if (!string) {
        return {};
    }
    std::vector<char> buffer(JSStringGetMaximumUTF8CStringSize(string));
    JSStringGetUTF8CString(string, buffer.data(), buffer.size());
    JSStringRelease(string);
    return buffer.data();
}

JSValueRef recordFromScript(JSContextRef context, JSObjectRef, JSObjectRef, size_t count,
                            const JSValueRef arguments[], JSValueRef*) {
    record("script " + (count > 0 ? textOf(context, arguments[0]) : std::string()));
    return JSValueMakeUndefined(context);
}

JSValueRef add(JSContextRef context, JSObjectRef, JSObjectRef, size_t count,
               const JSValueRef arguments[], JSValueRef* exception) {
    if (count < 2) {
        JSStringRef text = JSStringCreateWithUTF8CString("add needs two numbers");
        JSValueRef message = JSValueMakeString(context, text);
        JSStringRelease(text);
        *exception = JSObjectMakeError(context, 1, &message, nullptr);
        return JSValueMakeUndefined(context);
    }
    return JSValueMakeNumber(context, JSValueToNumber(context, arguments[0], nullptr) +
                                          JSValueToNumber(context, arguments[1], nullptr));
}

JSValueRef collectGarbage(JSContextRef context, JSObjectRef, JSObjectRef, size_t,
                          const JSValueRef[], JSValueRef*) {
    JSGarbageCollect(context);
    JSSynchronousGarbageCollectForDebugging(context);
    return JSValueMakeUndefined(context);
}

JSValueRef nameOf(JSContextRef context, JSObjectRef, JSStringRef, JSValueRef*) {
    JSStringRef name = JSStringCreateWithUTF8CString(KV_TEST_PLUGIN_NAME);
    JSValueRef value = JSValueMakeString(context, name);
    JSStringRelease(name);
    return value;
}

void finalize(JSObjectRef) { record("finalize"); }

const JSStaticFunction kFunctions[] = {
    {"record", recordFromScript, kJSPropertyAttributeReadOnly},
    {"add", add, kJSPropertyAttributeReadOnly},
    {"collectGarbage", collectGarbage, kJSPropertyAttributeReadOnly},
    {nullptr, nullptr, 0},
};

const JSStaticValue kValues[] = {
    {"name", nameOf, nullptr, kJSPropertyAttributeReadOnly},
    {nullptr, nullptr, nullptr, 0},
};

// The class record: made on first use, released when the plug-in is
// unloaded (static objects of a shared object are destroyed by dlclose).
struct ClassRecord {
    JSClassRef ref = nullptr;
    ~ClassRecord() {
        if (ref) {
            JSClassRelease(ref);
        }
    }
};
ClassRecord theClass;

// Unused in the variant without a class map.
[[maybe_unused]] JSClassRef getClassRef() {
    if (!theClass.ref) {
        JSClassDefinition definition = kJSClassDefinitionEmpty;
        definition.className = "TestPlugin";
        definition.staticFunctions = kFunctions;
        definition.staticValues = kValues;
        definition.finalize = finalize;
        theClass.ref = JSClassCreate(&definition);
    }
    return theClass.ref;
}

void widgetStart(int widgetId) { record("widget_start " + std::to_string(widgetId)); }
void widgetStop(int widgetId) { record("widget_stop " + std::to_string(widgetId)); }

#ifndef KV_TEST_PLUGIN_NO_FRAME_HOOKS
void frameLoad(JSContextRef context) { record(context ? "frame_load" : "frame_load null"); }
void frameUnload(JSContextRef context) { record(context ? "frame_unload" : "frame_unload null"); }
#endif

#ifdef KV_TEST_PLUGIN_CONSTRUCTOR_ROW
JSObjectRef construct(JSContextRef context, JSObjectRef, size_t, const JSValueRef[], JSValueRef*) {
    record("constructor called");
    return JSObjectMake(context, getClassRef(), nullptr);
}
#endif

#ifndef KV_TEST_PLUGIN_NO_CLASS_MAP
const js_entity_definition_t kClassMap[] = {
    {"webapis", KV_TEST_PLUGIN_OBJECT, "", getClassRef, nullptr, nullptr},
#ifdef KV_TEST_PLUGIN_CONSTRUCTOR_ROW
    {"kvtest", "widget", "", getClassRef, construct, nullptr},
#endif
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};
#endif

}  // namespace

extern "C" {
WRT_PLUGIN_EXPORT start_function_cb on_widget_start = widgetStart;
WRT_PLUGIN_EXPORT stop_function_cb on_widget_stop = widgetStop;
#ifndef KV_TEST_PLUGIN_NO_FRAME_HOOKS
WRT_PLUGIN_EXPORT frame_load_cb on_frame_load = frameLoad;
WRT_PLUGIN_EXPORT frame_unload_cb on_frame_unload = frameUnload;
#endif
#ifndef KV_TEST_PLUGIN_NO_CLASS_MAP
WRT_PLUGIN_EXPORT class_map_t class_map = kClassMap;
#endif
}
