#include <JSWebAPIError.h>

#include <Commons/Exception.h>
#include <CommonsJavaScript/Converter.h>
#include <CommonsJavaScript/JSUtils.h>
#include <CommonsJavaScript/PrivateObject.h>
#include <Logger.h>

#include <map>

namespace DeviceAPI {
namespace Common {

using WrtDeviceApis::CommonsJavaScript::Converter;
using WrtDeviceApis::CommonsJavaScript::JSUtils;

namespace {

// The private data: an owned copy of the error's name and message.
typedef WrtDeviceApis::CommonsJavaScript::PrivateObject<BasePlatformException*,
                                                        WrtDeviceApis::CommonsJavaScript::Ownership>
    ErrorPrivate;

const BasePlatformException* errorOf(JSObjectRef object) {
    auto* priv = static_cast<ErrorPrivate*>(JSObjectGetPrivate(object));
    return priv != nullptr ? priv->getObject() : nullptr;
}

std::string textOf(const BasePlatformException& error) {
    std::string message = error.getMessage();
    return message.empty() ? error.getName() : error.getName() + ": " + message;
}

// Makes `object` inherit from the context's Error.prototype. Left as it is
// (with a warning) when a script replaced the global Error.
void inheritFromError(JSContextRef context, JSObjectRef object) {
    try {
        JSObjectRef global = JSContextGetGlobalObject(context);
        JSValueRef errorConstructor = JSUtils::getJSProperty(context, global, "Error");
        Converter converter(context);
        JSObjectRef constructor = converter.toJSObjectRef(errorConstructor);
        JSValueRef prototype = JSUtils::getJSProperty(context, constructor, "prototype");
        JSObjectSetPrototype(context, object, converter.toJSObjectRef(prototype));
    } catch (const WrtDeviceApis::Commons::Exception& error) {
        LoggerW("Error.prototype is not reachable: " << error.GetMessage());
    }
}

void finalize(JSObjectRef object) {
    delete static_cast<ErrorPrivate*>(JSObjectGetPrivate(object));
    JSObjectSetPrivate(object, nullptr);
}

JSValueRef getProperty(JSContextRef context, JSObjectRef object, JSStringRef propertyName,
                       JSValueRef* /*exception*/) {
    try {
        const BasePlatformException* error = errorOf(object);
        if (error == nullptr) {
            return JSValueMakeUndefined(context);
        }
        Converter converter(context);
        std::string property = JSUtils::toString(propertyName);
        if (property == "name") {
            return converter.toJSValueRef(error->getName());
        }
        if (property == "message") {
            return converter.toJSValueRef(error->getMessage());
        }
        return converter.toJSValueRef(JSWebAPIError::convertToErrorCode(error->getName()));
    } catch (const std::exception& error) {
        LoggerE("Reading an error property failed: " << error.what());
        return JSValueMakeUndefined(context);
    }
}

JSValueRef toStringCall(JSContextRef context, JSObjectRef /*function*/, JSObjectRef thisObject,
                        size_t /*argumentCount*/, const JSValueRef /*arguments*/[],
                        JSValueRef* /*exception*/) {
    try {
        const BasePlatformException* error =
            JSWebAPIError::isObjectOfClass(context, thisObject) ? errorOf(thisObject) : nullptr;
        Converter converter(context);
        return converter.toJSValueRef(error != nullptr ? textOf(*error)
                                                       : std::string("WebAPIError"));
    } catch (const std::exception& error) {
        LoggerE("Converting an error to text failed: " << error.what());
        return JSValueMakeUndefined(context);
    }
}

const JSStaticValue kStaticValues[] = {
    {"name", getProperty, nullptr, kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete},
    {"message", getProperty, nullptr,
     kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete},
    {"code", getProperty, nullptr, kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete},
    {nullptr, nullptr, nullptr, 0},
};

const JSStaticFunction kStaticFunctions[] = {
    {"toString", toStringCall, kJSPropertyAttributeDontEnum},
    {nullptr, nullptr, 0},
};

JSClassDefinition makeClassDefinition() {
    JSClassDefinition definition = kJSClassDefinitionEmpty;
    definition.version = 0;
    // The functions sit on each object, so that its prototype can be
    // Error.prototype itself.
    definition.attributes = kJSClassAttributeNoAutomaticPrototype;
    definition.className = "WebAPIError";
    definition.staticValues = kStaticValues;
    definition.staticFunctions = kStaticFunctions;
    definition.finalize = finalize;
    return definition;
}

}  // namespace

const JSClassDefinition* JSWebAPIError::getClassInfo() {
    static const JSClassDefinition definition = makeClassDefinition();
    return &definition;
}

JSClassRef JSWebAPIError::getClassRef() {
    // Released when the library is unloaded, so a runtime that closes the
    // plug-ins using it leaves nothing behind.
    struct ClassRecord {
        JSClassRef ref = JSClassCreate(getClassInfo());
        ~ClassRecord() { JSClassRelease(ref); }
    };
    static const ClassRecord record;
    return record.ref;
}

bool JSWebAPIError::isObjectOfClass(JSContextRef context, JSValueRef value) {
    return context != nullptr && value != nullptr &&
           JSValueIsObjectOfClass(context, value, getClassRef());
}

JSObjectRef JSWebAPIError::makeJSWebAPIError(JSContextRef context,
                                             const BasePlatformException& error) {
    auto* copy = new BasePlatformException(error.getName().c_str(), error.getMessage().c_str());
    JSObjectRef object = JSObjectMake(context, getClassRef(), new ErrorPrivate(context, copy));
    inheritFromError(context, object);
    return object;
}

int JSWebAPIError::convertToErrorCode(const std::string& name) {
    static const std::map<std::string, int> codes = {
        {"IndexSizeError", 1},
        {"HierarchyRequestError", 3},
        {"WrongDocumentError", 4},
        {"InvalidCharacterError", 5},
        {"NoModificationAllowedError", 7},
        {"NotFoundError", 8},
        {"NotSupportedError", 9},
        {"InvalidStateError", 11},
        {"SyntaxError", 12},
        {"InvalidModificationError", 13},
        {"NamespaceError", 14},
        {"InvalidAccessError", 15},
        {"TypeMismatchError", 17},
        {"SecurityError", 18},
        {"NetworkError", 19},
        {"AbortError", 20},
        {"URLMismatchError", 21},
        {"QuotaExceededError", 22},
        {"TimeoutError", 23},
        {"InvalidNodeTypeError", 24},
        {"DataCloneError", 25},
    };
    auto found = codes.find(name);
    return found != codes.end() ? found->second : 0;
}

}  // namespace Common
}  // namespace DeviceAPI
