#include "KvWrtStatus.h"

#include "KvProxy.h"

namespace DeviceAPI {
namespace KVP {

void KvWrtStatus::onWidgetStart() {}

void KvWrtStatus::onWidgetStop() { KvProxySingleton::Instance().softReset(); }

}  // namespace KVP
}  // namespace DeviceAPI
