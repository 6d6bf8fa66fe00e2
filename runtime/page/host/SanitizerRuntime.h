// A page host built with AddressSanitizer loads our web extension, built the
// same way, into the engine's web process, which is not: the sanitizer's
// runtime must come first in that process. When this process has the
// runtime, the engine's processes get it too (LD_PRELOAD), with leak
// checking off there: the engine's own allocations at exit are not ours to
// judge. Nothing happens in an ordinary build.
#ifndef KV_PAGE_SANITIZER_RUNTIME_H
#define KV_PAGE_SANITIZER_RUNTIME_H

namespace Kv {
namespace Page {

// Call before the engine starts its first process.
void lendSanitizerToEngine();

}  // namespace Page
}  // namespace Kv

#endif
