// The entry point through which the engine loads the page host's extension
// into the app's web process: it starts the app (PageApp) with what the host
// sent, and connects the engine's signals to it. A failure to start ends the
// process's part at once: the host sees the app end with exit code 4 (a
// plug-in that can't be loaded) or 1.
#include "PageApp.h"
#include "RequestPolicy.h"

#include <PageProtocol.h>
#include <PageSettings.h>

#include <Commons/Exception.h>
#include <Logger.h>

#include <webkit2/webkit-web-extension.h>

#include <cstdio>
#include <exception>

namespace {

using Kv::Page::PageApp;

void onWindowObjectCleared(WebKitScriptWorld* world, WebKitWebPage* /*page*/, WebKitFrame* frame,
                           gpointer /*data*/) {
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    // The only way to a frame's JSGlobalContextRef for a script world; the
    // plug-ins are written against that interface.
    JSGlobalContextRef context = webkit_frame_get_javascript_context_for_script_world(frame, world);
    G_GNUC_END_IGNORE_DEPRECATIONS
    PageApp::instance().windowObjectCleared(frame, context);
}

gboolean onSendRequest(WebKitWebPage* /*page*/, WebKitURIRequest* request,
                       WebKitURIResponse* /*redirect*/, gpointer data) {
    const char* uri = webkit_uri_request_get_uri(request);
    if (static_cast<const Kv::Page::RequestPolicy*>(data)->allows(uri)) {
        return FALSE;
    }
    std::fprintf(stderr, "kv-runtime: blocked %s: a page loads only its own app's files\n", uri);
    std::fflush(stderr);
    LoggerW("blocked a load outside the app: " << uri);
    return TRUE;
}

gboolean onMessage(WebKitWebPage* /*page*/, WebKitUserMessage* message, gpointer /*data*/) {
    return PageApp::instance().messageReceived(message);
}

void onPageCreated(WebKitWebExtension* /*extension*/, WebKitWebPage* page, gpointer /*data*/) {
    auto* policy = new Kv::Page::RequestPolicy(PageApp::instance().settings().appRoot);
    g_signal_connect_data(
        page, "send-request", G_CALLBACK(onSendRequest), policy,
        [](gpointer data, GClosure*) { delete static_cast<Kv::Page::RequestPolicy*>(data); },
        GConnectFlags(0));
    g_signal_connect(page, "user-message-received", G_CALLBACK(onMessage), nullptr);
    PageApp::instance().pageCreated(page);
}

// Tells the host why the app could not start, and how it ends.
void startFailed(WebKitWebExtension* extension, const std::string& why, int code) {
    std::fprintf(stderr, "kv-runtime: %s\n", why.c_str());
    std::fflush(stderr);
    LoggerE("the page cannot start: " << why);
    webkit_web_extension_send_message_to_context(
        extension,
        webkit_user_message_new(Kv::Page::kEnded,
                                g_variant_new(Kv::Page::kEndedType, code, guint32{0})),
        nullptr, nullptr, nullptr);
}

}  // namespace

extern "C" G_MODULE_EXPORT void webkit_web_extension_initialize_with_user_data(
    WebKitWebExtension* extension, GVariant* data) {
    try {
        PageApp::start(extension, Kv::Page::PageSettings::fromVariant(data));
    } catch (const WrtDeviceApis::Commons::PlatformException& error) {
        startFailed(extension, error.GetMessage(), 4);
        return;
    } catch (const std::exception& error) {
        startFailed(extension, error.what(), 1);
        return;
    }
    g_signal_connect(webkit_script_world_get_default(), "window-object-cleared",
                     G_CALLBACK(onWindowObjectCleared), nullptr);
    g_signal_connect(extension, "page-created", G_CALLBACK(onPageCreated), nullptr);
}
