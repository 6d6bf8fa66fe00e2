#include <kv-runtime/JsValues.h>
#include <kv-runtime/Plugin.h>

#include <Commons/Exception.h>
#include <Logger.h>

namespace Kv {
namespace Runtime {

using WrtDeviceApis::Commons::PlatformException;

namespace {

const JSPropertyAttributes kFixed = kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete;

bool isTerminator(const js_entity_definition_t& row) {
    return !row.parent_name && !row.object_name && !row.interface_name &&
           !row.js_class_template_getter && !row.js_class_constructor_cb && !row.class_options;
}

// The global object named `name`, made as a plain object when missing.
JSObjectRef parentObject(JSContextRef context, const char* name, const std::string& owner) {
    JSObjectRef global = JSContextGetGlobalObject(context);
    JSValueRef existing = getProperty(context, global, name);
    if (JSValueIsObject(context, existing)) {
        return JSValueToObject(context, existing, nullptr);
    }
    if (!JSValueIsUndefined(context, existing)) {
        ThrowMsg(PlatformException,
                 "plug-in " << owner << ": the global " << name << " exists and is not an object");
    }
    JSObjectRef parent = JSObjectMake(context, nullptr, nullptr);
    setProperty(context, global, name, parent, kFixed);
    return parent;
}

void installRow(JSContextRef context, const js_entity_definition_t& row, size_t index,
                const std::string& owner) {
    if (!row.parent_name || !row.object_name || !row.js_class_template_getter) {
        ThrowMsg(PlatformException, "plug-in " << owner << ": class map row " << index
                                               << " lacks a name or a class getter");
    }
    JSClassRef theClass = row.js_class_template_getter();
    if (!theClass) {
        ThrowMsg(PlatformException, "plug-in " << owner << ": the class getter of "
                                               << row.parent_name << "." << row.object_name
                                               << " returned no class");
    }
    if (row.js_class_constructor_cb) {
        LoggerI(row.parent_name << "." << row.object_name
                                << " has a constructor callback; installing an instance");
    }
    JSObjectRef parent = parentObject(context, row.parent_name, owner);
    JSObjectRef object = JSObjectMake(context, theClass, nullptr);
    if (!setProperty(context, parent, row.object_name, object, kFixed)) {
        ThrowMsg(PlatformException, "plug-in " << owner << ": cannot set " << row.parent_name << "."
                                               << row.object_name);
    }
    LoggerI("installed " << row.parent_name << "." << row.object_name << " of " << owner);
}

}  // namespace

void installClassMap(JSContextRef context, class_map_t classMap, const std::string& owner) {
    for (size_t index = 0; !isTerminator(classMap[index]); ++index) {
        installRow(context, classMap[index], index, owner);
    }
}

}  // namespace Runtime
}  // namespace Kv
