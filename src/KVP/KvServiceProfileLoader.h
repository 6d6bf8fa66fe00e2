// Finds the service profile of the calling application and reads the local
// service agents it declares.
//
// The profile is an XML file inside the application's package; the package
// metadata key "AccessoryServicesLocation" gives its place relative to the
// package's web folder. Each `serviceProfile` element of the file becomes one
// KvAgentInit record, in document order.
//
// A loader parses at most once: the first call of getKvAgentInits() reads the
// file, every later call returns the same list. Failures are logged and give
// an empty (or partial) list, never an exception.
#ifndef KVP_KV_SERVICE_PROFILE_LOADER_H
#define KVP_KV_SERVICE_PROFILE_LOADER_H

#include <dpl/singleton.h>

#include <string>

#include "KvAgentInit.h"

namespace DeviceAPI {
namespace KVP {

// The application id of this process, shared by every loader once found.
struct AppIdCache {
    std::string appId;
};
typedef DPL::Singleton<AppIdCache> AppIdCacheSingleton;

class KvServiceProfileLoader {
public:
    KvServiceProfileLoader();
    virtual ~KvServiceProfileLoader();

    KvServiceProfileLoader(const KvServiceProfileLoader&) = delete;
    KvServiceProfileLoader& operator=(const KvServiceProfileLoader&) = delete;

    // Returns the profiles of the calling application, never null. The first
    // call reads the profile file; later calls return the list it produced.
    KvAgentInitListPtr getKvAgentInits();

protected:
    // The application id of the calling process, cached for the whole
    // process once found; empty when the application manager does not know it.
    std::string getAppId();

    // The package of the application `appId`; empty when it can't be found.
    std::string getPackageFromAppId(const std::string& appId);

    // The value of the calling application's "AccessoryServicesLocation"
    // metadata; empty when there is none.
    std::string getServiceProfileLocation();

    // The absolute path of the profile file; empty when there is no location.
    std::string getServiceProfilePath();

    // Reads the profile file at `path` and returns a new list (never null)
    // with every profile closed before the end or the first error of the file.
    KvAgentInitListPtr parseXML(const std::string& path);

private:
    KvAgentInitListPtr agentInits;
    bool loaded;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
