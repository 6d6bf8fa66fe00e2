// One chaos trial: what it does (a conversation of the chaos apps with one
// link fault, drawn from a seed) and how it is judged from what the apps and
// the devices say afterwards. Both are pure, so the judge is tested on
// accounts written by hand as well as on real trials.
#ifndef KV_TESTS_E2E_CHAOS_TRIAL_H
#define KV_TESTS_E2E_CHAOS_TRIAL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KvE2e {

// A fault of the link: its kind ("drop", "stall" for 1 s, "long-stall" for
// 7 s, past the link's supervision, "detach" and attach 1 s later), the
// device whose service makes it ("watch" or "phone"), and when: "moment"
// (`value` ms after the phone app started), "messages" (after `value`
// messages on `channel`, either way) or "file-bytes" (after `value` bytes
// of the file).
struct ChaosFault {
    std::string kind;
    std::string side;
    std::string trigger;
    std::uint64_t value = 0;
    std::uint32_t channel = 0;

    // How long the fault lasts once fired, in milliseconds.
    int durationMs() const;
    // Whether it takes the link down (everything but the short stall).
    bool losesTheLink() const;
    std::string describe() const;
};

struct ChaosPlan {
    unsigned seed = 0;
    ChaosFault fault;
    int messages = 0;           // per channel
    std::size_t fileBytes = 0;  // 0: no file

    std::string describe() const;
};

// Draws a trial from its seed; a file is at most about a second of the
// link's `bandwidth` (bytes per second; 0 for an unshaped link).
ChaosPlan drawChaosPlan(unsigned seed, std::uint64_t bandwidth);

// What a trial left behind.
struct ChaosAccount {
    ChaosPlan plan;
    std::vector<std::string> phone;  // the phone app's lines, "phone: " taken off
    std::vector<std::string> watch;
    int phoneExit = -1;
    int watchExit = -1;  // 143: stopped by the trial, as planned
    bool fired = false;
    std::vector<long long> phoneLinkDowns;    // when each service took the link
    std::vector<long long> watchLinkDowns;    // down (ms since the epoch)
    std::optional<long long> phoneSessionAt;  // when the phone app's session opened
    std::optional<long long> linkedAgainMs;   // after the fault was over
    std::string source;                       // the file the phone sent
    std::optional<std::string> received;      // the watch's file, if it kept one
    std::vector<std::string> partialFiles;    // left on either device
};

// Every promise the trial broke, one sentence each; empty when it kept all:
// both apps lived to the end; every request was answered; every message
// arrived once and in order, and any that did not was preceded by a loss
// told to both; both sides agree on how each connection ended; the file
// arrived whole on both sides' word or failed on both (but for a link lost
// between the receiver storing it and its word reaching the sender: then
// the receiver has it whole and the sender says the link was lost); no
// partial file; every loss was told to each app that had a session with its
// service, and no app was told of a loss that did not happen; the link came
// back within `linkBoundMs`.
std::vector<std::string> judgeChaosTrial(const ChaosAccount& account, long long linkBoundMs);

}  // namespace KvE2e

#endif
