#include "ScriptTestContext.h"

#include <dlfcn.h>
#include <kv-runtime/ScriptEngine.h>

#include <vector>

namespace {

JSStringRef makeString(const std::string& text) {
    return JSStringCreateWithUTF8CString(text.c_str());
}

// ecore and JavaScriptCore both handle SIGUSR1, the collector's default
// signal for suspending threads. As the runtime host does, the main loop
// (ecore) starts first and the engine gets a real-time signal of its own, so
// a collection never waits for a suspension that ecore swallowed.
JSGlobalContextRef createContextAfterTheMainLoop() {
    Kv::Runtime::prepareScriptEngine();
    return JSGlobalContextCreate(nullptr);
}

}  // namespace

ScriptTestContext::ScriptTestContext() : m_context(createContextAfterTheMainLoop()) {}

ScriptTestContext::~ScriptTestContext() { JSGlobalContextRelease(m_context); }

JSValueRef ScriptTestContext::evaluate(const std::string& script, JSValueRef* exception) const {
    JSStringRef source = makeString(script);
    JSValueRef result = JSEvaluateScript(m_context, source, nullptr, nullptr, 1, exception);
    JSStringRelease(source);
    return result;
}

void ScriptTestContext::setGlobal(const std::string& name, JSValueRef value) const {
    JSStringRef key = makeString(name);
    JSObjectSetProperty(m_context, JSContextGetGlobalObject(m_context), key, value,
                        kJSPropertyAttributeNone, nullptr);
    JSStringRelease(key);
}

std::string ScriptTestContext::text(JSValueRef value) const {
    JSStringRef string = JSValueToStringCopy(m_context, value, nullptr);
    if (string == nullptr) {
        return "<not convertible>";
    }
    std::vector<char> buffer(JSStringGetMaximumUTF8CStringSize(string));
    JSStringGetUTF8CString(string, buffer.data(), buffer.size());
    JSStringRelease(string);
    return buffer.data();
}

void ScriptTestContext::collectGarbage() const {
    typedef void (*Collect)(JSContextRef);
    auto collect =
        reinterpret_cast<Collect>(dlsym(RTLD_DEFAULT, "JSSynchronousGarbageCollectForDebugging"));
    if (collect != nullptr) {
        collect(m_context);
    } else {
        JSGarbageCollect(m_context);
    }
}
