#include "JSKvManager.h"

#include "JSCallbacksManager.h"
#include "JSClassHolder.h"
#include "JSScriptMethod.h"
#include "KvManager.h"
#include "KvManagerController.h"
#include "plugin_config.h"

#include <ArgumentValidator.h>
#include <Commons/Exception.h>
#include <CommonsJavaScript/JSCallbackManager.h>
#include <Logger.h>

#include <memory>

namespace DeviceAPI {
namespace KVP {

using DeviceAPI::Common::ArgumentValidator;
using WrtDeviceApis::Commons::EventRequestReceiver;
using WrtDeviceApis::CommonsJavaScript::JSCallbackManager;

namespace {

// The agent request is handled on a later turn of the main loop.
const double REQUEST_KV_AGENT_DUE_TIME = 0.0;

void postRequestKvAgent(JSContextRef context, KvManagerController& controller,
                        const ArgumentValidator& validator) {
    JSObjectRef onSuccess = validator.toFunction(0);
    JSObjectRef onError = validator.toFunction(1, true);
    auto event = std::make_shared<EventKvManagerRequestKvAgent>();
    event->setPrivateData(JSCallbackManager::createObject(context, onSuccess, onError));
    event->setForAsynchronousCall(&controller);
    KvManager& manager = *controller.getObject();
    static_cast<EventRequestReceiver<EventKvManagerRequestKvAgent>&>(manager).PostRequest(
        event, REQUEST_KV_AGENT_DUE_TIME);
}

// Hands the manager a new emitter whose listener is the controller and
// whose private data holds the status callback (first slot).
void postDeviceStatusListener(JSContextRef context, KvManagerController& controller,
                              const ArgumentValidator& validator) {
    JSObjectRef onStatus = validator.toFunction(0);
    const auto outcome =
        controller.deviceStatusBinding().attach<EventKvManagerSetDeviceStatusListener>(
            *controller.getObject(), &controller,
            JSCallbacksManager::createObject(context, onStatus));
    if (outcome != WrtDeviceApis::Commons::ExceptionCodes::None) {
        ThrowMsg(WrtDeviceApis::Commons::UnknownException, "The listener was not taken");
    }
}

}  // namespace

const JSStaticFunction JSKvManager::m_functions[] = {
    {"requestKvAgent", requestKvAgent, kJSPropertyAttributeNone},
    {"setDeviceStatusListener", setDeviceStatusListener, kJSPropertyAttributeNone},
    {nullptr, nullptr, 0}};

constinit const JSClassDefinition JSKvManager::m_classInfo =
    makeClassDefinition("KvManager", nullptr, m_functions, initialize, finalize);

const JSClassDefinition* JSKvManager::getClassInfo() { return &m_classInfo; }

JSClassRef JSKvManager::getClassRef() {
    static const JSClassHolder holder(getClassInfo());
    return holder.get();
}

void JSKvManager::initialize(JSContextRef context, JSObjectRef object) {
    if (JSObjectGetPrivate(object) != nullptr) {
        return;
    }
    try {
        KvManagerController::PrivateBase* controller =
            new KvManagerController(context, KvManager::getInstance());
        JSObjectSetPrivate(object, controller);
    } catch (const std::exception& error) {
        LoggerE("Cannot make the manager's controller: " << error.what());
    }
}

void JSKvManager::finalize(JSObjectRef object) {
    delete static_cast<KvManagerController::PrivateBase*>(JSObjectGetPrivate(object));
    JSObjectSetPrivate(object, nullptr);
}

JSValueRef JSKvManager::requestKvAgent(JSContextRef context, JSObjectRef /*function*/,
                                       JSObjectRef thisObject, size_t argumentCount,
                                       const JSValueRef arguments[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        if (kvAccessGranted(context, KVP_FUNCTION_API_REQUEST_KV_AGENT, exception)) {
            auto& controller =
                controllerOf<KvManagerController>(context, thisObject, getClassRef());
            ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
            postRequestKvAgent(context, controller, validator);
        }
        return JSValueMakeUndefined(context);
    });
}

JSValueRef JSKvManager::setDeviceStatusListener(JSContextRef context, JSObjectRef /*function*/,
                                                JSObjectRef thisObject, size_t argumentCount,
                                                const JSValueRef arguments[],
                                                JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        if (kvAccessGranted(context, KVP_FUNCTION_API_SET_DEVICE_STATUS_LISTENER, exception)) {
            auto& controller =
                controllerOf<KvManagerController>(context, thisObject, getClassRef());
            ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
            postDeviceStatusListener(context, controller, validator);
        }
        return JSValueMakeUndefined(context);
    });
}

}  // namespace KVP
}  // namespace DeviceAPI
