// A programmable stand-in for the vconf functions that the plug-in calls
// (vconf_get_int, vconf_notify_key_changed, vconf_ignore_key_changed). A test
// program that links fake_vconf.cpp gets these definitions instead of the
// platform library's; every other vconf function stays the library's.
//
// The fake keeps integer keys in memory and the registered callbacks; a test
// sets a value and then delivers the change notification itself, at once and
// on its own thread. With useRealLibrary(true) the three calls are passed on
// to the platform library (and still recorded). Use from one thread at a time.
#ifndef KV_TESTS_KVP_FAKE_VCONF_H
#define KV_TESTS_KVP_FAKE_VCONF_H

#include <cstddef>
#include <string>
#include <vector>

namespace FakeVconf {

// Forgets every key, registration and call; fake answers again.
void reset();

// Pass the calls on to the platform library when `real` is true.
void useRealLibrary(bool real);

// Gives `key` an integer value that vconf_get_int reads (a key never set
// reads as an error).
void setInt(const std::string& key, int value);
// Makes vconf_get_int of `key` fail from now on.
void unsetKey(const std::string& key);

// Calls every callback registered for `key`, in the order of registration,
// with a null keynode and its user data; returns how many were called.
size_t notifyKeyChanged(const std::string& key);

// The number of callbacks registered for `key`.
size_t watcherCount(const std::string& key);

// The calls made since reset(), in order, as "name(key)".
std::vector<std::string> calls();

}  // namespace FakeVconf

#endif
