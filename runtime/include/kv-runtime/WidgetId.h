// The widget id an app's plug-in hooks get: a stable positive 32-bit integer
// derived from the app id, the 32-bit FNV-1a hash of its bytes with the sign
// bit cleared (0 becomes 1). The same app id always gets the same widget id.
#ifndef KV_RUNTIME_WIDGET_ID_H
#define KV_RUNTIME_WIDGET_ID_H

#include <string>

namespace Kv {
namespace Runtime {

int widgetIdFor(const std::string& appId);

}  // namespace Runtime
}  // namespace Kv

#endif
