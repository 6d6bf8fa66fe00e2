// The remote accessory device of a peer agent, as the service describes it.
#ifndef KVP_KV_PEER_ACCESSORY_H
#define KVP_KV_PEER_ACCESSORY_H

#include <dpl/shared_ptr.h>

#include <string>
#include <utility>

namespace DeviceAPI {
namespace KVP {

class KvPeerAccessory {
public:
    KvPeerAccessory(std::string deviceAddress, std::string deviceName, std::string productId,
                    int transportType, std::string vendorId)
        : m_deviceAddress(std::move(deviceAddress)),
          m_deviceName(std::move(deviceName)),
          m_productId(std::move(productId)),
          m_transportType(transportType),
          m_vendorId(std::move(vendorId)) {}

    const std::string& getDeviceAddress() const { return m_deviceAddress; }
    const std::string& getDeviceName() const { return m_deviceName; }
    const std::string& getProductId() const { return m_productId; }
    // A KvTransportType number.
    int getTransportType() const { return m_transportType; }
    const std::string& getVendorId() const { return m_vendorId; }

private:
    std::string m_deviceAddress;
    std::string m_deviceName;
    std::string m_productId;
    int m_transportType;
    std::string m_vendorId;
};

typedef DPL::SharedPtr<KvPeerAccessory> KvPeerAccessoryPtr;

}  // namespace KVP
}  // namespace DeviceAPI

#endif
