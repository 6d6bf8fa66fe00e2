// The plug-in's frame: the hooks through which the web runtime starts and
// stops it, and the class map that installs `webapis.kv`. These five data
// symbols are the only ones the plug-in exports.
#include "JSKvAuthenticationToken.h"
#include "JSKvManager.h"
#include "JSKvPeerAccessory.h"
#include "JSKvPeerAgent.h"
#include "KvWrtStatus.h"

#include <Commons/Exception.h>
#include <Commons/WrtAccess/WrtAccess.h>
#include <Logger.h>
#include <dpl/singleton.h>
#include <wrt_plugin_export.h>

namespace DeviceAPI {
namespace KVP {

namespace {

typedef DPL::Singleton<WrtDeviceApis::Commons::WrtAccess> WrtAccessSingleton;

// A failure of access control is one of the runtime's own exceptions: it is
// logged and the runtime status object is told all the same, so that a stop
// soft-resets the bridge in any case. Any other exception is not ours to
// judge and passes through to the runtime.
void on_widget_start_callback(int widgetId) {
    LoggerI("[KVP] on_widget_start_callback (" << widgetId << ")");
    try {
        WrtAccessSingleton::Instance().initialize(widgetId);
    } catch (const WrtDeviceApis::Commons::Exception&) {
        LoggerE("WrtAccess initialization failed");
    }
    KvWrtStatusSingleton::Instance().onWidgetStart();
}

void on_widget_stop_callback(int widgetId) {
    LoggerI("[KVP] on_widget_stop_callback (" << widgetId << ")");
    try {
        WrtAccessSingleton::Instance().deinitialize(widgetId);
    } catch (const WrtDeviceApis::Commons::Exception&) {
        LoggerE("WrtAccess deinitialization failed");
    }
    KvWrtStatusSingleton::Instance().onWidgetStop();
}

void on_frame_load_callback(JSContextRef /*context*/) {}

void on_frame_unload_callback(JSContextRef /*context*/) {}

// The class records that the runtime needs first are made when the library
// is loaded; the others on first use.
const bool classRecordsMade = [] {
    JSKvManager::getClassRef();
    JSKvPeerAgent::getClassRef();
    JSKvPeerAccessory::getClassRef();
    JSKvAuthenticationToken::getClassRef();
    return true;
}();

const js_entity_definition_t kvClassMap[] = {
    {"webapis", "kv", "", JSKvManager::getClassRef, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

}  // namespace KVP
}  // namespace DeviceAPI

extern "C" {
WRT_PLUGIN_EXPORT start_function_cb on_widget_start = DeviceAPI::KVP::on_widget_start_callback;
WRT_PLUGIN_EXPORT stop_function_cb on_widget_stop = DeviceAPI::KVP::on_widget_stop_callback;
WRT_PLUGIN_EXPORT frame_load_cb on_frame_load = DeviceAPI::KVP::on_frame_load_callback;
WRT_PLUGIN_EXPORT frame_unload_cb on_frame_unload = DeviceAPI::KVP::on_frame_unload_callback;
WRT_PLUGIN_EXPORT class_map_t class_map = DeviceAPI::KVP::kvClassMap;
}
