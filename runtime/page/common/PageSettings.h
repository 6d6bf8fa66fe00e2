// What the page host hands to its web extension when the engine starts the
// web process: the app, its plug-ins and its arguments. It travels as the
// extension's initialisation data, a GVariant dictionary.
#ifndef KV_PAGE_PAGE_SETTINGS_H
#define KV_PAGE_PAGE_SETTINGS_H

#include <glib.h>

#include <string>
#include <vector>

namespace Kv {
namespace Page {

struct PageSettings {
    std::string appId;
    int widgetId = 1;
    std::string appRoot;                   // the app's installed folder, a device path
    std::vector<std::string> pluginFiles;  // in load order
    std::vector<std::string> arguments;    // runtime.args

    // A new floating dictionary.
    GVariant* toVariant() const;
    // Reads what toVariant wrote; missing entries keep their defaults.
    static PageSettings fromVariant(GVariant* variant);
};

}  // namespace Page
}  // namespace Kv

#endif
