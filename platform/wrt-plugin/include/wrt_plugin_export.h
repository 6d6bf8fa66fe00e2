// The interface between the web runtime and a device-API plug-in.
//
// A plug-in is a shared object that exports five data symbols, read by name:
//   on_widget_start   start_function_cb    called with the widget id before the app's script runs
//   on_widget_stop    stop_function_cb     called with the widget id when the app ends
//   on_frame_load     frame_load_cb        called with the script context once it is made
//   on_frame_unload   frame_unload_cb      called with the script context before it goes
//   class_map         class_map_t          the script entities to install
//
// class_map points to an array of js_entity_definition_t rows ended by a row
// whose fields are all null. For each row the runtime makes an object of the
// row's class and sets it as property `object_name` of the global object
// named `parent_name` (made as a plain object when it does not exist yet).
#ifndef KV_PLATFORM_WRT_PLUGIN_EXPORT_H
#define KV_PLATFORM_WRT_PLUGIN_EXPORT_H

#include <JavaScriptCore/JavaScript.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef JSClassRef (*js_class_template_getter)(void);
typedef JSObjectRef (*js_class_constructor_cb_t)(JSContextRef context, JSObjectRef constructor,
                                                 size_t argumentCount, const JSValueRef arguments[],
                                                 JSValueRef* exception);

// Options of a class entry; no option is defined yet, so rows carry null.
typedef struct js_entity_definition_options_s {
    int reserved;
} js_entity_definition_options_t;

typedef struct js_entity_definition_s {
    const char* parent_name;
    const char* object_name;
    const char* interface_name;
    js_class_template_getter js_class_template_getter;
    js_class_constructor_cb_t js_class_constructor_cb;
    const js_entity_definition_options_t* class_options;
} js_entity_definition_t;

typedef const js_entity_definition_t* class_map_t;

typedef void (*start_function_cb)(int widgetId);
typedef void (*stop_function_cb)(int widgetId);
typedef void (*frame_load_cb)(JSContextRef context);
typedef void (*frame_unload_cb)(JSContextRef context);

#ifdef __cplusplus
}
#endif

// Marks a plug-in's exported symbol; every other symbol stays hidden.
#define WRT_PLUGIN_EXPORT __attribute__((visibility("default")))

#endif
