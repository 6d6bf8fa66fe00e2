// The interface of an object that wants to hear when the accessory link goes
// up or down (in practice the proxy). Receivers register with
// KvConnectionDetector.
#ifndef KVP_KV_CONNECTION_RECEIVER_H
#define KVP_KV_CONNECTION_RECEIVER_H

namespace DeviceAPI {
namespace KVP {

class KvConnectionReceiver {
public:
    virtual ~KvConnectionReceiver() = default;

    // The accessory link came up.
    virtual void onConnected() = 0;
    // The accessory link went down.
    virtual void onDisconnected() = 0;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
