// One run of an app's script with its plug-ins, in this order:
//   prepare the engine; read the script; load the plug-ins;
//   make the ScriptEnvironment; install the plug-ins' classes;
//   on_widget_start(widgetId) and on_frame_load(context) of every plug-in;
//   evaluate the script; run the main loop until the app ends;
//   on_frame_unload(context) and on_widget_stop(widgetId), last plug-in first;
//   release the context; close the plug-ins.
// The stop hooks run whatever ended the app (runtime.exit, an uncaught
// exception, a signal, the time limit).
#ifndef KV_RUNTIME_APP_SESSION_H
#define KV_RUNTIME_APP_SESSION_H

#include <kv-runtime/ExitControl.h>

#include <optional>
#include <string>
#include <vector>

namespace Kv {
namespace Runtime {

struct AppRunOptions {
    std::string scriptPath;                  // the file evaluated
    std::string scriptName;                  // the name errors carry; scriptPath when empty
    int widgetId = 1;                        // given to the widget hooks
    std::vector<std::string> pluginFolders;  // every *.so of each, in name order
    std::vector<std::string> pluginFiles;    // then these, in this order
    std::optional<double> timeoutSeconds;    // ends the run with code 124
    std::vector<std::string> arguments;      // the script's runtime.args
};

struct AppRunResult {
    int exitCode = 0;
    ExitReason reason = ExitReason::None;
};

// Runs the app; call on the main loop's thread. Throws
// WrtDeviceApis::Commons::NotFoundException when the script cannot be read and
// WrtDeviceApis::Commons::PlatformException when a plug-in (or plug-in
// folder) cannot be loaded or installed; nothing of the app has run then.
AppRunResult runApp(const AppRunOptions& options);

}  // namespace Runtime
}  // namespace Kv

#endif
