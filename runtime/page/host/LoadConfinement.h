// What keeps a page inside its app, on the host's side (the web process
// refuses loads outside the app folder too, with the links resolved):
//   - a content rule list, compiled by the engine, that blocks every load
//     whose URL is not in the app's folder (or data:, blob:, about:), web
//     sockets included, before any connection is tried;
//   - a navigation policy that keeps the page's frames in the app and opens
//     no new windows.
#ifndef KV_PAGE_LOAD_CONFINEMENT_H
#define KV_PAGE_LOAD_CONFINEMENT_H

#include <webkit2/webkit2.h>

#include <functional>
#include <string>

namespace Kv {
namespace Page {

// The rule list for an app whose files are under the file URL `appUrl`
// (ending in a slash), in the engine's content-blocker JSON.
std::string confinementRules(const std::string& appUrl);

// Compiles the rules into `storeDir` and adds them to `view`'s content;
// `ready` runs on the main loop with an empty string, or with the error.
void confineLoads(WebKitWebView* view, const std::string& appUrl, const std::string& storeDir,
                  std::function<void(const std::string& error)> ready);

// Keeps navigations of `view` inside `appUrl` and refuses new windows.
void confineNavigation(WebKitWebView* view, const std::string& appUrl);

}  // namespace Page
}  // namespace Kv

#endif
