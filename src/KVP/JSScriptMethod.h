// The edge of a script method of the plug-in's script classes:
// it runs the method's body and turns every failure into the script error that
// the method answers with, so that no C++ exception reaches the engine.
//   return callScriptMethod(context, exception, [&] {
//       KvSocketController& controller = controllerOf<KvSocketController>(
//           context, thisObject, getClassRef());
//       ...
//       return JSValueMakeUndefined(context);
//   });
//
// Failures and their answers:
//   NullPointerException ("No private object.")  TYPE_MISMATCH_ERROR "Wrong object"
//   ConversionException, or the argument         TYPE_MISMATCH_ERROR with its message,
//     validator's TypeMismatchException            logged as "Error on conversion : "
//   any other Web API exception (a method's      its own name and message, logged as
//     own error table)                             "Error on platform : "
//   any other exception                          UNKNOWN_ERROR "Internal error", logged
//                                                  as "Error on platform : "
#ifndef KVP_JS_SCRIPT_METHOD_H
#define KVP_JS_SCRIPT_METHOD_H

#include "JSPrivateData.h"

#include <Commons/EventReceiver.h>
#include <Commons/Exception.h>
#include <CommonsJavaScript/PrivateObject.h>
#include <JSWebAPIErrorFactory.h>
#include <Logger.h>
#include <PlatformException.h>
#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

#include <exception>

namespace DeviceAPI {
namespace KVP {

template <class Body>
JSValueRef callScriptMethod(JSContextRef context, JSValueRef* exception, Body&& body) {
    using Common::JSWebAPIErrorFactory;
    LoggerI("entered");
    try {
        return body();
    } catch (const WrtDeviceApis::Commons::NullPointerException& error) {
        LoggerE("No private object");
        return JSWebAPIErrorFactory::postException(
            context, exception, JSWebAPIErrorFactory::TYPE_MISMATCH_ERROR, "Wrong object");
    } catch (const WrtDeviceApis::Commons::ConversionException& error) {
        LoggerE("Error on conversion : " << error.GetMessage());
        return JSWebAPIErrorFactory::postException(
            context, exception, JSWebAPIErrorFactory::TYPE_MISMATCH_ERROR, error.GetMessage());
    } catch (const Common::TypeMismatchException& error) {
        // An argument that the argument validator could not convert.
        LoggerE("Error on conversion : " << error.getMessage());
        return JSWebAPIErrorFactory::postException(context, exception, error);
    } catch (const Common::BasePlatformException& error) {
        // An answer of the method's own error table.
        LoggerE("Error on platform : " << error.getMessage());
        return JSWebAPIErrorFactory::postException(context, exception, error);
    } catch (const WrtDeviceApis::Commons::Exception& error) {
        LoggerE("Error on platform : " << error.GetMessage());
    } catch (const std::exception& error) {
        LoggerE("Error on platform : " << error.what());
    } catch (...) {
        LoggerE("Error on platform : unknown");
    }
    return JSWebAPIErrorFactory::postException(
        context, exception, JSWebAPIErrorFactory::UNKNOWN_ERROR, "Internal error");
}

// The controller behind `object`, a script object of the class `classRef`
// whose private data is the controller's private-object base. Throws
// NullPointerException "No private object." for an object of any other class
// or one without private data.
template <class Controller>
Controller& controllerOf(JSContextRef context, JSObjectRef object, JSClassRef classRef) {
    typedef typename Controller::PrivateBase PrivateBase;
    auto* priv = privateDataOf<PrivateBase>(context, object, classRef);
    if (priv == nullptr) {
        ThrowMsg(WrtDeviceApis::Commons::NullPointerException, "No private object.");
    }
    return *static_cast<Controller*>(priv);
}

// Posts `event` to `receiver` for synchronous handling: on the main loop the
// receiver runs in place, so the event's outcome can be read on return.
template <class Event, class Receiver>
void postSynchronously(Receiver& receiver, const DPL::SharedPtr<Event>& event) {
    event->setForSynchronousCall();
    static_cast<WrtDeviceApis::Commons::EventRequestReceiver<Event>&>(receiver).PostRequest(event);
}

}  // namespace KVP
}  // namespace DeviceAPI

#endif
