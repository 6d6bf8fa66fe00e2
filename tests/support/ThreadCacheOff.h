// For tests that watch a process's heap in use: while a ThreadCacheOff
// lives, the processes started run without glibc's per-thread cache of freed
// blocks. The heap figure counts that cache as in use; it fills over the
// first few hundred sessions (about 100 KiB) and would hide a small leak
// behind its warm-up.
#ifndef KV_TESTS_SUPPORT_THREAD_CACHE_OFF_H
#define KV_TESTS_SUPPORT_THREAD_CACHE_OFF_H

#include <cstdlib>

namespace KvTest {

class ThreadCacheOff {
public:
    ThreadCacheOff() { setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1); }
    ~ThreadCacheOff() { unsetenv("GLIBC_TUNABLES"); }
    ThreadCacheOff(const ThreadCacheOff&) = delete;
    ThreadCacheOff& operator=(const ThreadCacheOff&) = delete;
};

}  // namespace KvTest

#endif
