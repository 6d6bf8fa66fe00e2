// The script side of one frame of an app's page, for the life of one of the
// frame's documents: its global context gets the plug-ins' objects
// (`webapis.kv`), `runtime` and the printing console, and its uncaught
// exceptions end the app. Made when the engine clears the frame's window
// object (a new document: first load, reload, navigation), destroyed when the
// frame gets another document or goes away.
//
//   made:       class maps installed, runtime and console, then every
//               plug-in's on_frame_load(context), in load order
//   destroyed:  every plug-in's on_frame_unload(context), last loaded first,
//               then the context is released
#ifndef KV_PAGE_FRAME_SCRIPTS_H
#define KV_PAGE_FRAME_SCRIPTS_H

#include <kv-runtime/ScriptHost.h>

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace Kv {
namespace Page {

class PageApp;

class FrameScripts : public Runtime::ScriptHost {
public:
    FrameScripts(PageApp& app, JSGlobalContextRef context, bool mainFrame);
    ~FrameScripts() override;
    FrameScripts(const FrameScripts&) = delete;
    FrameScripts& operator=(const FrameScripts&) = delete;

    JSGlobalContextRef context() const { return m_context; }
    bool mainFrame() const { return m_mainFrame; }

    // ScriptHost: runtime.exit ends the app.
    void exitRequested(int code) override;
    JSObjectRef exitMarker() const override { return m_exitMarker; }

    // An exception nobody caught in this frame: reported as
    // "Uncaught <message> at line <n> in <file>" and the app ends with 1.
    // runtime.exit's marker is not reported.
    void reportUncaught(JSValueRef exception);

    // The same for what the page's error event tells: the thrown value, and
    // the file and line the engine gave.
    void reportErrorEvent(JSValueRef error, const std::string& message, const std::string& file,
                          int line);

private:
    void installGlobals();
    void listenForErrors();
    bool isExitMarker(JSValueRef value) const;

    PageApp& m_app;
    JSGlobalContextRef m_context;
    bool m_mainFrame;
    JSObjectRef m_exitMarker = nullptr;
};

}  // namespace Page
}  // namespace Kv

#endif
