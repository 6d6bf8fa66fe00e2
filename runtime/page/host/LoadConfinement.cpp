#include "LoadConfinement.h"

#include <Logger.h>

#include <cstdio>
#include <memory>
#include <regex>

namespace Kv {
namespace Page {

namespace {

struct Pending {
    WebKitWebView* view;
    std::function<void(const std::string&)> ready;
};

// A regular expression that matches `text` literally.
std::string literal(const std::string& text) {
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return std::regex_replace(text, special, R"(\$&)");
}

std::string jsonString(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted + "\"";
}

std::string allowRule(const std::string& pattern) {
    return R"({"trigger":{"url-filter":)" + jsonString(pattern) +
           R"(},"action":{"type":"ignore-previous-rules"}})";
}

void rulesSaved(GObject* store, GAsyncResult* result, gpointer data) {
    std::unique_ptr<Pending> pending(static_cast<Pending*>(data));
    GError* error = nullptr;
    WebKitUserContentFilter* filter = webkit_user_content_filter_store_save_finish(
        WEBKIT_USER_CONTENT_FILTER_STORE(store), result, &error);
    if (!filter) {
        const std::string why = error ? error->message : "unknown error";
        g_clear_error(&error);
        pending->ready("cannot compile the page's load rules: " + why);
        return;
    }
    webkit_user_content_manager_add_filter(webkit_web_view_get_user_content_manager(pending->view),
                                           filter);
    webkit_user_content_filter_unref(filter);
    pending->ready("");
}

bool insideApp(const char* uri, const std::string& appUrl) {
    if (!uri) {
        return false;
    }
    const std::string text = uri;
    return text.rfind(appUrl, 0) == 0 || text.rfind("about:", 0) == 0 ||
           text.rfind("data:", 0) == 0 || text.rfind("blob:", 0) == 0;
}

gboolean decidePolicy(WebKitWebView* /*view*/, WebKitPolicyDecision* decision,
                      WebKitPolicyDecisionType type, gpointer data) {
    const auto* appUrl = static_cast<const std::string*>(data);
    if (type == WEBKIT_POLICY_DECISION_TYPE_RESPONSE) {
        return FALSE;
    }
    WebKitNavigationAction* action = webkit_navigation_policy_decision_get_navigation_action(
        WEBKIT_NAVIGATION_POLICY_DECISION(decision));
    const char* uri = webkit_uri_request_get_uri(webkit_navigation_action_get_request(action));
    if (type == WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION || !insideApp(uri, *appUrl)) {
        std::fprintf(stderr, "kv-runtime: blocked %s %s: a page stays in its app's window\n",
                     type == WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION ? "a new window for"
                                                                           : "leaving to",
                     uri ? uri : "(no address)");
        LoggerW("blocked a navigation to " << (uri ? uri : "(no address)"));
        webkit_policy_decision_ignore(decision);
        return TRUE;
    }
    return FALSE;
}

}  // namespace

std::string confinementRules(const std::string& appUrl) {
    return "["
           R"({"trigger":{"url-filter":".*"},"action":{"type":"block"}},)" +
           allowRule("^" + literal(appUrl)) + "," + allowRule("^data:") + "," +
           allowRule("^blob:") + "," + allowRule("^about:") + "]";
}

void confineLoads(WebKitWebView* view, const std::string& appUrl, const std::string& storeDir,
                  std::function<void(const std::string& error)> ready) {
    WebKitUserContentFilterStore* store = webkit_user_content_filter_store_new(storeDir.c_str());
    const std::string rules = confinementRules(appUrl);
    GBytes* bytes = g_bytes_new(rules.data(), rules.size());
    webkit_user_content_filter_store_save(store, "kv-app", bytes, nullptr, rulesSaved,
                                          new Pending{view, std::move(ready)});
    g_bytes_unref(bytes);
    g_object_unref(store);
}

void confineNavigation(WebKitWebView* view, const std::string& appUrl) {
    g_signal_connect_data(
        view, "decide-policy", G_CALLBACK(decidePolicy), new std::string(appUrl),
        [](gpointer data, GClosure*) { delete static_cast<std::string*>(data); }, GConnectFlags(0));
}

}  // namespace Page
}  // namespace Kv
