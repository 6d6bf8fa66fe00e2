// DPL::Singleton<T>::Instance() returns the one T of the process. It is made
// on first use (thread-safe, as a function-local static) and destroyed at
// process exit in reverse order of construction: a singleton that another
// one's constructor uses outlives it.
//
// Tests that need a singleton fresh, as a new process would have it, call
// RenewForTests() while nothing else uses it: the instance is destroyed and
// a new one made in its place. Production code never renews.
#ifndef KV_PLATFORM_DPL_SINGLETON_H
#define KV_PLATFORM_DPL_SINGLETON_H

#include <memory>

namespace DPL {

template <typename T>
class Singleton {
public:
    static T& Instance() { return *storage().instance; }

    static void RenewForTests() {
        Storage& made = storage();
        made.instance.reset();
        made.instance = std::make_unique<T>();
    }

    Singleton() = delete;

private:
    // Made, with its T, on first use: its construction completes after that
    // of every singleton T's constructor uses, so it is destroyed first.
    struct Storage {
        Storage() : instance(std::make_unique<T>()) {}
        std::unique_ptr<T> instance;
    };

    static Storage& storage() {
        static Storage made;
        return made;
    }
};

}  // namespace DPL

#endif
