// The base of every listener event of the plug-in. It adds nothing to the
// commons' listener event; it is the level at which ListenerEventDirectEmitter
// works.
#ifndef KVP_LISTENER_DIRECT_EVENT_H
#define KVP_LISTENER_DIRECT_EVENT_H

#include <Commons/ListenerEvent.h>

namespace DeviceAPI {
namespace KVP {

template <class Super>
class ListenerDirectEvent : public WrtDeviceApis::Commons::ListenerEvent<Super> {};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
