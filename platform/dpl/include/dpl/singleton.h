// DPL::Singleton<T>::Instance() returns the one T of the process. It is made
// on first use (thread-safe, as a function-local static) and destroyed at
// process exit in reverse order of construction.
#ifndef KV_PLATFORM_DPL_SINGLETON_H
#define KV_PLATFORM_DPL_SINGLETON_H

namespace DPL {

template <typename T>
class Singleton {
public:
    static T& Instance() {
        static T instance;
        return instance;
    }

    Singleton() = delete;
};

}  // namespace DPL

#endif
