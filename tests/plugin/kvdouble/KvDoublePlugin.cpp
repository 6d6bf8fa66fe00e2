// The test plug-in "kvdouble": installs `webapis.kvdouble`, through which a
// script test drives the client library double that the kv plug-in talks to
// (both plug-ins load the same shared double):
//   calls()                         the recorded calls, as [{function, args}]
//   setResult(name, result)         the standing result of a function
//   queueResult(name, result)       a one-time result, before the standing one
//   setConnected(connected)         what isKvpConnected answers
//   setPeerAccessory(id, accessory) the record getPeerAccessory fills
//   notificationsRegistered()       whether the service table is registered
//   deliver(name, ...arguments)     a notification of either table
//   collectGarbage()                a full, synchronous garbage collection
//   writeFile(path, text)           writes a file at a path of the device (the
//                                   app runs inside it), e.g. to change the
//                                   app's service profile while it runs
//   removeFile(path)                removes a file of the device, e.g. the
//                                   app's service profile after its install
// Wrong arguments throw a script Error naming the problem.
#include "KvpClientDouble.h"
#include "Notifications.h"
#include "ScriptValues.h"

#include <wrt_plugin_export.h>

#include <dlfcn.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace KvDoublePlugin {

namespace {

typedef JSValueRef (*Body)(const Arguments& arguments);

// Runs a method's body; whatever it throws becomes a script Error.
template <Body body>
JSValueRef method(JSContextRef context, JSObjectRef, JSObjectRef, size_t count,
                  const JSValueRef values[], JSValueRef* exception) {
    try {
        JSValueRef result = body(Arguments(context, count, values));
        return result != nullptr ? result : JSValueMakeUndefined(context);
    } catch (const std::exception& error) {
        *exception = makeError(context, std::string("kvdouble: ") + error.what());
    } catch (...) {
        *exception = makeError(context, "kvdouble: unknown failure");
    }
    return JSValueMakeUndefined(context);
}

JSValueRef calls(const Arguments& arguments) {
    return makeCallList(arguments.context(), KvpDouble::calls());
}

JSValueRef setResult(const Arguments& arguments) {
    KvpDouble::setResult(arguments.text(0), arguments.integer(1));
    return nullptr;
}

JSValueRef queueResult(const Arguments& arguments) {
    KvpDouble::queueResult(arguments.text(0), arguments.integer(1));
    return nullptr;
}

JSValueRef setConnected(const Arguments& arguments) {
    KvpDouble::setConnected(arguments.integer(0));
    return nullptr;
}

JSValueRef setPeerAccessory(const Arguments& arguments) {
    KvpDouble::setPeerAccessory(arguments.unsignedInteger(0), arguments.accessory(1));
    return nullptr;
}

JSValueRef notificationsRegistered(const Arguments& arguments) {
    return JSValueMakeBoolean(arguments.context(), KvpDouble::notificationsRegistered());
}

JSValueRef deliverNotification(const Arguments& arguments) {
    deliver(arguments.text(0), arguments, 1);
    return nullptr;
}

// The engine's synchronous collection, when the library exports it for
// debugging; otherwise the ordinary (possibly deferred) one.
JSValueRef collectGarbage(const Arguments& arguments) {
    typedef void (*Collect)(JSContextRef);
    auto collect =
        reinterpret_cast<Collect>(dlsym(RTLD_DEFAULT, "JSSynchronousGarbageCollectForDebugging"));
    if (collect != nullptr) {
        collect(arguments.context());
    } else {
        JSGarbageCollect(arguments.context());
    }
    return nullptr;
}

JSValueRef writeFile(const Arguments& arguments) {
    const std::filesystem::path path = arguments.text(0);
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    std::ofstream file(path, std::ios::trunc);
    file << arguments.text(1);
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
    return nullptr;
}

JSValueRef removeFile(const Arguments& arguments) {
    const std::string path = arguments.text(0);
    std::error_code error;
    if (!std::filesystem::remove(path, error)) {
        throw std::runtime_error("cannot remove " + path +
                                 (error ? ": " + error.message() : ": no such file"));
    }
    return nullptr;
}

const JSPropertyAttributes FUNCTION_ATTRIBUTES =
    kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete;

const JSStaticFunction functions[] = {
    {"calls", method<calls>, FUNCTION_ATTRIBUTES},
    {"setResult", method<setResult>, FUNCTION_ATTRIBUTES},
    {"queueResult", method<queueResult>, FUNCTION_ATTRIBUTES},
    {"setConnected", method<setConnected>, FUNCTION_ATTRIBUTES},
    {"setPeerAccessory", method<setPeerAccessory>, FUNCTION_ATTRIBUTES},
    {"notificationsRegistered", method<notificationsRegistered>, FUNCTION_ATTRIBUTES},
    {"deliver", method<deliverNotification>, FUNCTION_ATTRIBUTES},
    {"collectGarbage", method<collectGarbage>, FUNCTION_ATTRIBUTES},
    {"writeFile", method<writeFile>, FUNCTION_ATTRIBUTES},
    {"removeFile", method<removeFile>, FUNCTION_ATTRIBUTES},
    {nullptr, nullptr, 0}};

const JSClassDefinition classInfo = {
    0,                      // version
    kJSClassAttributeNone,  // attributes
    "KvDouble",             // className
    nullptr,                // parentClass
    nullptr,                // staticValues
    functions,              // staticFunctions
    nullptr,                // initialize
    nullptr,                // finalize
    nullptr,                // hasProperty
    nullptr,                // getProperty
    nullptr,                // setProperty
    nullptr,                // deleteProperty
    nullptr,                // getPropertyNames
    nullptr,                // callAsFunction
    nullptr,                // callAsConstructor
    nullptr,                // hasInstance
    nullptr,                // convertToType
};

// Made once, released when the runtime closes the plug-in.
struct ClassRecord {
    ClassRecord() : ref(JSClassCreate(&classInfo)) {}
    ~ClassRecord() { JSClassRelease(ref); }
    JSClassRef ref;
};

JSClassRef getClassRef() {
    static const ClassRecord record;
    return record.ref;
}

const js_entity_definition_t classMap[] = {
    {"webapis", "kvdouble", "", getClassRef, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

}  // namespace KvDoublePlugin

extern "C" {
WRT_PLUGIN_EXPORT class_map_t class_map = KvDoublePlugin::classMap;
}
