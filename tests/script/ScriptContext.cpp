#include "ScriptContext.h"

#include <kv-runtime/ScriptEngine.h>

#include <memory>

// JavaScriptCore's debugging entry point for a full synchronous collection.
// JSGarbageCollect only asks for a collection; the tests need it done.
extern "C" void JSSynchronousGarbageCollectForDebugging(JSContextRef context);

namespace KvTest {

namespace {

std::string toText(JSContextRef context, JSValueRef value) {
    JSStringRef string = JSValueToStringCopy(context, value, nullptr);
    if (string == nullptr) {
        return "<not convertible>";
    }
    std::string result(JSStringGetMaximumUTF8CStringSize(string), '\0');
    result.resize(JSStringGetUTF8CString(string, result.data(), result.size()) - 1);
    JSStringRelease(string);
    return result;
}

JSValueRef evaluate(JSContextRef context, const std::string& script, JSValueRef* exception) {
    JSStringRef source = JSStringCreateWithUTF8CString(script.c_str());
    JSValueRef value = JSEvaluateScript(context, source, nullptr, nullptr, 1, exception);
    JSStringRelease(source);
    return value;
}

}  // namespace

void ScriptTest::SetUp() {
    // As the runtime host does: the main loop (ecore) first, and the
    // engine's collector on a signal of its own.
    Kv::Runtime::prepareScriptEngine();
    m_context = JSGlobalContextCreate(nullptr);
}

void ScriptTest::TearDown() {
    JSGlobalContextRelease(m_context);
    m_context = nullptr;
}

JSValueRef ScriptTest::eval(const std::string& script) {
    JSValueRef exception = nullptr;
    JSValueRef value = evaluate(m_context, script, &exception);
    if (exception != nullptr) {
        ADD_FAILURE() << "script threw " << toText(m_context, exception) << ": " << script;
        return JSValueMakeUndefined(m_context);
    }
    return value;
}

JSValueRef ScriptTest::evalThrowing(const std::string& script) {
    JSValueRef exception = nullptr;
    evaluate(m_context, script, &exception);
    if (exception == nullptr) {
        ADD_FAILURE() << "script did not throw: " << script;
        return JSValueMakeUndefined(m_context);
    }
    return exception;
}

JSObjectRef ScriptTest::evalObject(const std::string& script) {
    JSValueRef value = eval(script);
    if (!JSValueIsObject(m_context, value)) {
        ADD_FAILURE() << "not an object: " << script;
        return JSContextGetGlobalObject(m_context);
    }
    return JSValueToObject(m_context, value, nullptr);
}

std::string ScriptTest::text(JSValueRef value) { return toText(m_context, value); }

void ScriptTest::setGlobal(const std::string& name, JSValueRef value) {
    JSStringRef propertyName = JSStringCreateWithUTF8CString(name.c_str());
    JSObjectSetProperty(m_context, JSContextGetGlobalObject(m_context), propertyName, value,
                        kJSPropertyAttributeNone, nullptr);
    JSStringRelease(propertyName);
}

JSValueRef ScriptTest::global(const std::string& name) {
    JSStringRef propertyName = JSStringCreateWithUTF8CString(name.c_str());
    JSValueRef value =
        JSObjectGetProperty(m_context, JSContextGetGlobalObject(m_context), propertyName, nullptr);
    JSStringRelease(propertyName);
    return value;
}

void ScriptTest::collectGarbage() {
    JSGarbageCollect(m_context);
    JSSynchronousGarbageCollectForDebugging(m_context);
}

}  // namespace KvTest
