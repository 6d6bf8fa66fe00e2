#include "JSHostTest.h"

#include "HostTestAccess.h"

#include <ArgumentValidator.h>
#include <JSWebAPIErrorFactory.h>
#include <PlatformException.h>

#include <CommonsJavaScript/Converter.h>
#include <CommonsJavaScript/JSUtils.h>
#include <Logger.h>

#include <exception>

namespace DeviceAPI {
namespace HostTest {

using Common::ArgumentValidator;
using Common::BasePlatformException;
using Common::JSWebAPIErrorFactory;
using WrtDeviceApis::CommonsJavaScript::Converter;
using WrtDeviceApis::CommonsJavaScript::JSUtils;

namespace {

// The class record, released by the destructor of this static object when
// the plug-in is unloaded.
struct ClassRecord {
    JSClassRef ref = nullptr;
    ~ClassRecord() {
        if (ref != nullptr) {
            JSClassRelease(ref);
        }
    }
};
ClassRecord theClass;

bool isHostTest(JSContextRef context, JSObjectRef object) {
    return object != nullptr && JSValueIsObjectOfClass(context, object, JSHostTest::getClassRef());
}

// A function, or script null for a null pointer.
JSValueRef functionOrNull(JSContextRef context, JSObjectRef function) {
    return function != nullptr ? static_cast<JSValueRef>(function) : JSValueMakeNull(context);
}

// Runs `body` as the script function `name`: checks `this`, and turns every
// failure into a script error so that no C++ exception reaches the engine.
template <class Body>
JSValueRef callGuarded(const char* name, JSContextRef context, JSObjectRef thisObject,
                       JSValueRef* exception, Body body) {
    LoggerI(name << " entered");
    try {
        if (!isHostTest(context, thisObject)) {
            return JSWebAPIErrorFactory::postException(
                context, exception, JSWebAPIErrorFactory::TYPE_MISMATCH_ERROR, "Wrong object");
        }
        return body();
    } catch (const BasePlatformException& error) {
        LoggerW(name << ": " << error.what());
        return JSWebAPIErrorFactory::postException(context, exception, error);
    } catch (const std::exception& error) {
        LoggerE("Error on platform : " << error.what());
        return JSWebAPIErrorFactory::postException(
            context, exception, JSWebAPIErrorFactory::UNKNOWN_ERROR, "Internal error");
    }
}

}  // namespace

const JSStaticFunction JSHostTest::kFunctions[] = {
    {"check", check, kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete},
    {"makeError", makeError, kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete},
    {"guarded", guarded, kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete},
    {nullptr, nullptr, 0},
};

JSClassRef JSHostTest::getClassRef() {
    if (theClass.ref == nullptr) {
        JSClassDefinition definition = kJSClassDefinitionEmpty;
        definition.className = "HostTest";
        definition.staticFunctions = kFunctions;
        theClass.ref = JSClassCreate(&definition);
    }
    return theClass.ref;
}

JSValueRef JSHostTest::check(JSContextRef context, JSObjectRef, JSObjectRef thisObject,
                             size_t argumentCount, const JSValueRef arguments[],
                             JSValueRef* exception) {
    return callGuarded("check", context, thisObject, exception, [&]() -> JSValueRef {
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        JSObjectRef fn = validator.toFunction(0);
        JSObjectRef obj = validator.toObject(1);
        std::string str = validator.toString(2);
        long num = validator.toLong(3);
        JSObjectRef nullableFn = validator.toFunction(4, true);

        Converter converter(context);
        JSObjectRef result = JSObjectMake(context, nullptr, nullptr);
        JSUtils::setProperty(context, result, "fn", fn);
        JSUtils::setProperty(context, result, "obj", obj);
        JSUtils::setProperty(context, result, "str", converter.toJSValueRef(str));
        JSUtils::setProperty(context, result, "num", converter.toJSValueRef(num));
        JSUtils::setProperty(context, result, "nullableFn", functionOrNull(context, nullableFn));
        return result;
    });
}

JSValueRef JSHostTest::makeError(JSContextRef context, JSObjectRef, JSObjectRef thisObject,
                                 size_t argumentCount, const JSValueRef arguments[],
                                 JSValueRef* exception) {
    return callGuarded("makeError", context, thisObject, exception, [&]() -> JSValueRef {
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        std::string name = validator.toString(0);
        std::string message = validator.toString(1, true);
        return JSWebAPIErrorFactory::makeErrorObject(context, name, message);
    });
}

JSValueRef JSHostTest::guarded(JSContextRef context, JSObjectRef, JSObjectRef thisObject, size_t,
                               const JSValueRef[], JSValueRef* exception) {
    return callGuarded("guarded", context, thisObject, exception, [&]() -> JSValueRef {
        if (postAccessError(context, exception, checkAccess(kGuardedFunctionId))) {
            return JSValueMakeUndefined(context);
        }
        return JSValueMakeBoolean(context, true);
    });
}

}  // namespace HostTest
}  // namespace DeviceAPI
