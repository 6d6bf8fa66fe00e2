// A programmable stand-in for the application manager and the package
// manager information functions (<app_manager.h>, <pkgmgr-info.h>). A test
// program that links fake_appfw.cpp gets these definitions instead of the
// platform library's.
//
// After reset() every call succeeds: the process runs the app "org.example.app"
// of the package "example", which has no metadata. Tests program other
// answers with the setters below and read the calls that were made. With
// useRealLibrary(true) every call is passed on to the platform library (and
// still recorded). Use from one thread at a time.
//
// Platform libraries loaded into the program that call these functions
// themselves (the filesystem API resolving the wgt-* roots) reach the fake
// too, since the program's definitions take precedence over a library's.
#ifndef KV_TESTS_KVP_FAKE_APPFW_H
#define KV_TESTS_KVP_FAKE_APPFW_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace FakeAppfw {

// One metadata entry; an absent key or value is handed to the callback as a
// null pointer.
typedef std::pair<std::optional<std::string>, std::optional<std::string>> MetadataEntry;

// Back to the defaults above; forgets the calls; fake answers again.
void reset();

// Pass every call on to the platform library when `real` is true.
void useRealLibrary(bool real);

// app_manager_get_app_id: its result and the id it hands out on success.
void setAppId(const std::string& appId, int result = 0);
// app_manager_get_app_info: its result (a negative result hands out no handle).
void setAppInfoResult(int result);
// app_info_get_package: the package handed out on success, and the result.
void setPackage(const std::string& package, int result = 0);
// app_info_destroy: its result.
void setAppInfoDestroyResult(int result);
// pkgmgrinfo_appinfo_get_appinfo: its result (non-zero hands out no handle).
void setPackageInfoResult(int result);
// pkgmgrinfo_appinfo_foreach_metadata: the entries walked, in this order.
void setMetadata(const std::vector<MetadataEntry>& entries);

// The calls made since reset(), in order, each as "name(argument)": the pid
// or the app id for the calls that take one, and "handle" or "bad handle"
// for the calls that take a handle (a bad handle is one the fake did not
// hand out, or one already destroyed).
std::vector<std::string> calls();

// How many values the metadata callback returned, in order.
std::vector<int> metadataCallbackResults();

}  // namespace FakeAppfw

#endif
