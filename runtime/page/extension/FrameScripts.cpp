#include "FrameScripts.h"

#include "PageApp.h"

#include <kv-runtime/Console.h>
#include <kv-runtime/JsValues.h>
#include <kv-runtime/RuntimeObject.h>
#include <kv-runtime/ScriptError.h>

#include <CommonsJavaScript/ScriptExceptionHost.h>
#include <Logger.h>

namespace Kv {
namespace Page {

using Runtime::JsString;
using WrtDeviceApis::CommonsJavaScript::ScriptExceptionHost;

namespace {

// The page's error event, handed to the frame that owns the context:
// report(error, message, filename, lineno).
JSValueRef onErrorEvent(JSContextRef context, JSObjectRef /*function*/, JSObjectRef /*thisObject*/,
                        size_t count, const JSValueRef arguments[], JSValueRef* /*exception*/) {
    FrameScripts* frame = PageApp::instance().frameOf(context);
    if (!frame || count < 4) {
        return JSValueMakeUndefined(context);
    }
    frame->reportErrorEvent(arguments[0], Runtime::toStdString(context, arguments[1], ""),
                            Runtime::toStdString(context, arguments[2], ""),
                            static_cast<int>(JSValueToNumber(context, arguments[3], nullptr)));
    return JSValueMakeUndefined(context);
}

const char kErrorListener[] =
    "(function (report) {\n"
    "    addEventListener('error', function (event) {\n"
    "        report(event.error, event.message, event.filename, event.lineno);\n"
    "    });\n"
    "})";

}  // namespace

FrameScripts::FrameScripts(PageApp& app, JSGlobalContextRef context, bool mainFrame)
    : m_app(app), m_context(JSGlobalContextRetain(context)), m_mainFrame(mainFrame) {
    m_exitMarker = Runtime::makeExitMarker(m_context);
    JSValueProtect(m_context, m_exitMarker);
    installGlobals();
    ScriptExceptionHost::attach(
        m_context, [this](JSValueRef exception) { reportUncaught(exception); },
        [this] { return !m_app.ending(); });
    m_app.plugins().frameLoad(m_context);
}

FrameScripts::~FrameScripts() {
    m_app.plugins().frameUnload(m_context);
    // The document's script has ended, though its context may live on (the
    // plug-ins may hold its callbacks): they call none of them any more.
    ScriptExceptionHost::attach(
        m_context, [](JSValueRef) { LoggerW("an exception in a document that has gone; dropped"); },
        [] { return false; });
    Runtime::releaseRuntimeObject(m_context, JSContextGetGlobalObject(m_context));
    Runtime::silenceConsole(m_context, JSContextGetGlobalObject(m_context));
    JSValueUnprotect(m_context, m_exitMarker);
    JSGlobalContextRelease(m_context);
}

void FrameScripts::installGlobals() {
    JSObjectRef global = JSContextGetGlobalObject(m_context);
    m_app.plugins().installClasses(m_context);
    Runtime::installRuntimeObject(m_context, global, *this);
    Runtime::setRuntimeArguments(m_context, global, m_app.settings().arguments);
    Runtime::wrapConsole(m_context, global);
    listenForErrors();
}

void FrameScripts::listenForErrors() {
    JSValueRef exception = nullptr;
    JSValueRef installer = JSEvaluateScript(m_context, JsString(kErrorListener).get(), nullptr,
                                            nullptr, 1, &exception);
    JSObjectRef report = JSObjectMakeFunctionWithCallback(m_context, nullptr, onErrorEvent);
    const JSValueRef arguments[] = {report};
    if (installer) {
        JSObjectCallAsFunction(m_context, JSValueToObject(m_context, installer, nullptr), nullptr,
                               1, arguments, &exception);
    }
    if (exception) {
        LoggerW(
            "cannot listen for the page's errors: " << Runtime::toStdString(m_context, exception));
    }
}

void FrameScripts::exitRequested(int code) { m_app.end(Runtime::ExitReason::Script, code); }

bool FrameScripts::isExitMarker(JSValueRef value) const {
    return value && JSValueIsStrictEqual(m_context, value, m_exitMarker);
}

void FrameScripts::reportUncaught(JSValueRef exception) {
    if (isExitMarker(exception)) {
        m_app.exitUnwound();
        return;
    }
    if (m_app.ending()) {
        return;
    }
    Runtime::ScriptErrorInfo info = Runtime::describeException(m_context, exception, "");
    info.file = m_app.appRelativeName(info.file);
    m_app.reportUncaught(Runtime::formatUncaught(info));
}

void FrameScripts::reportErrorEvent(JSValueRef error, const std::string& message,
                                    const std::string& file, int line) {
    if (isExitMarker(error)) {
        m_app.exitUnwound();
        return;
    }
    if (m_app.ending()) {
        return;
    }
    Runtime::ScriptErrorInfo info;
    if (error && !JSValueIsUndefined(m_context, error) && !JSValueIsNull(m_context, error)) {
        info = Runtime::describeException(m_context, error, file);
    } else {
        info.message = message;
        info.file = file;
    }
    if (info.line <= 0) {
        info.line = line;
    }
    info.file = m_app.appRelativeName(info.file);
    m_app.reportUncaught(Runtime::formatUncaught(info));
}

}  // namespace Page
}  // namespace Kv
