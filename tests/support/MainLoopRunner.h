// Runs the process's main loop from a test until a condition holds.
#ifndef KV_TESTS_MAIN_LOOP_RUNNER_H
#define KV_TESTS_MAIN_LOOP_RUNNER_H

#include <chrono>
#include <functional>

namespace KvTest {

// Iterates the ecore main loop until `done()` is true or `timeout` has passed;
// returns `done()`. Call on the main loop's thread.
bool runMainLoopUntil(const std::function<bool()>& done,
                      std::chrono::milliseconds timeout = std::chrono::seconds(5));

// Iterates the main loop for `duration`, whatever happens.
void runMainLoopFor(std::chrono::milliseconds duration);

}  // namespace KvTest

#endif
