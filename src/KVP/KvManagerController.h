// The private data of the script's manager object: it answers the agent
// request (a script array of KvAgent objects, or the script error) and
// delivers device attach and detach to the script's status listener.
#ifndef KVP_KV_MANAGER_CONTROLLER_H
#define KVP_KV_MANAGER_CONTROLLER_H

#include "KvListenerBinding.h"
#include "KvManager.h"
#include "KvManagerEvents.h"

#include <Commons/EventListener.h>
#include <Commons/EventReceiver.h>
#include <CommonsJavaScript/PrivateObject.h>
#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

class KvManagerController
    : public WrtDeviceApis::Commons::EventAnswerReceiver<EventKvManagerRequestKvAgent>,
      public WrtDeviceApis::Commons::EventListener<EventKvManagerDeviceStatusListener>,
      public WrtDeviceApis::CommonsJavaScript::PrivateObject<
          KvManagerPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership> {
public:
    // The base that the script object holds as its private data.
    typedef WrtDeviceApis::CommonsJavaScript::PrivateObject<
        KvManagerPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership>
        PrivateBase;

    // Keeps the global context of `context`.
    KvManagerController(JSContextRef context, const KvManagerPtr& manager);
    ~KvManagerController() override;

    // The agent request's answer: the success callback gets the agents, the
    // error callback "ServiceNotAvailableError" (code 2) or UNKNOWN_ERROR.
    void OnAnswerReceived(const DPL::SharedPtr<EventKvManagerRequestKvAgent>& event) override;
    // A device came or went: the status callback (first slot) gets the
    // transport type and the device status.
    void onAnswerReceived(const DPL::SharedPtr<EventKvManagerDeviceStatusListener>& event) override;

    // The emitter that the manager delivers device status through; it is cut
    // from this controller, and from the script callbacks, when the
    // controller goes with its page.
    KvListenerBinding<EventKvManagerDeviceStatusListener>& deviceStatusBinding() {
        return m_deviceStatus;
    }

private:
    KvListenerBinding<EventKvManagerDeviceStatusListener> m_deviceStatus;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
