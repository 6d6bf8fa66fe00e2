#include "ChaosTrial.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <sstream>

namespace KvE2e {

namespace {

constexpr std::uint32_t kChannels[] = {120, 121};
constexpr std::size_t kSmallestFile = std::size_t{16} * 1024;
constexpr std::size_t kLargestFile = std::size_t{1024} * 1024;

// A line's words.
std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> out;
    for (std::string word; in >> word;) {
        out.push_back(word);
    }
    return out;
}

bool startsWith(const std::string& line, const std::string& prefix) {
    return line.rfind(prefix, 0) == 0;
}

int countStarting(const std::vector<std::string>& lines, const std::string& prefix) {
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
        return startsWith(line, prefix);
    }));
}

// What one side's account says, read once.
struct Side {
    std::map<std::string, int> asks;
    std::map<std::string, int> answers;
    std::map<std::uint32_t, std::vector<long>> sent;  // the phone's, by channel
    std::map<std::string, std::map<std::uint32_t, std::vector<long>>> got;  // by connection
    std::map<std::string, std::string> ends;  // connection to "closed" or "lost REASON"
    std::vector<std::string> hellos;
    std::optional<std::string> conversation;
    std::optional<long long> doneAt;
    std::optional<std::string> fileAnswer;
    int refusals = 0;
    bool lossTold = false;
};

// The phone says "got CH SEQ" of its one conversation; the watch says
// "got N CH SEQ" with the connection it came on.
Side readSide(const std::vector<std::string>& lines, const std::string& phoneConversation) {
    Side side;
    for (const std::string& line : lines) {
        const std::vector<std::string> w = words(line);
        if (w.empty()) {
            continue;
        }
        const std::string& verb = w[0];
        if (verb == "ask" && w.size() >= 2) {
            side.asks[w[1]]++;
        } else if (verb == "answer" && w.size() >= 3) {
            side.answers[w[1]]++;
            if (w[1] == "file") {
                side.fileAnswer = w[2];
            }
        } else if (verb == "sent" && w.size() == 3) {
            side.sent[std::stoul(w[1])].push_back(std::stol(w[2]));
        } else if (verb == "got" && w.size() == 3) {
            side.got[phoneConversation][std::stoul(w[1])].push_back(std::stol(w[2]));
        } else if (verb == "got" && w.size() == 4) {
            side.got[w[1]][std::stoul(w[2])].push_back(std::stol(w[3]));
        } else if (verb == "hello" && w.size() == 2) {
            side.hellos.push_back(w[1]);
        } else if (verb == "conversation" && w.size() == 3 && w[1] == "on") {
            side.conversation = w[2];
        } else if (verb == "end" && w.size() >= 3) {
            side.ends[w[1]] = w[2] == "closed" ? "closed" : "lost " + (w.size() > 3 ? w[3] : "");
            side.lossTold =
                side.lossTold || (w[2] == "lost" && w.size() > 3 && w[3] == "DEVICE_DETACHED");
        } else if (verb == "loss") {
            side.lossTold = true;
        } else if (verb == "refused") {
            side.refusals++;
        } else if (verb == "done" && w.size() == 2) {
            side.doneAt = std::stoll(w[1]);
        }
    }
    return side;
}

std::string phoneConversationOf(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        if (startsWith(line, "conversation on ")) {
            return line.substr(16);
        }
    }
    return "";
}

// Whether `seqs` is 0, 1, ... without a gap or a repeat.
bool countsFromZero(const std::vector<long>& seqs) {
    for (std::size_t i = 0; i < seqs.size(); ++i) {
        if (seqs[i] != static_cast<long>(i)) {
            return false;
        }
    }
    return true;
}

// About how long the phone app takes for the whole trial without a fault,
// from its start: its start and search, a message every 10 ms on each
// channel, and the file at the link's speed (about 200 MB/s unshaped).
std::uint64_t expectedDurationMs(const ChaosPlan& plan, std::uint64_t bandwidth) {
    const std::uint64_t fileMs = plan.fileBytes * 1000 / (bandwidth == 0 ? 200'000'000 : bandwidth);
    return 400 + 15 * static_cast<std::uint64_t>(plan.messages) + fileMs;
}

std::string list(const std::vector<long>& seqs) {
    std::string text;
    for (long seq : seqs) {
        text += (text.empty() ? "" : ",") + std::to_string(seq);
    }
    return "[" + text + "]";
}

class Judge {
public:
    Judge(const ChaosAccount& account, long long linkBoundMs)
        : a(account),
          bound(linkBoundMs),
          phone(readSide(account.phone, phoneConversationOf(account.phone))),
          watch(readSide(account.watch, "")) {}

    std::vector<std::string> verdict() {
        apps();
        requests();
        messages();
        ends();
        file();
        losses();
        recovery();
        return problems;
    }

private:
    void problem(const std::string& text) { problems.push_back(text); }

    void apps() {
        if (a.phoneExit != 0) {
            problem("the phone app ended with " + std::to_string(a.phoneExit));
        }
        if (a.watchExit != 143) {
            problem("the watch app did not run until the trial stopped it (it ended with " +
                    std::to_string(a.watchExit) + ")");
        }
        if (a.phoneExit == 0 && !phone.doneAt) {
            problem("the phone app ended without saying done");
        }
    }

    void requests() {
        for (const auto& [kind, count] : phone.asks) {
            const int answered = phone.answers[kind];
            if (answered != count) {
                problem("the phone asked " + kind + " " + std::to_string(count) +
                        " times and got " + std::to_string(answered) + " answers");
            }
        }
        const int offered = countStarting(a.watch, "file offered ");
        // An offer that ended before the app took it ends in receiveFile's
        // exception: the plug-in tells nothing more of a file it did not take.
        const int ended = countStarting(a.watch, "file received ") +
                          countStarting(a.watch, "file error ") +
                          countStarting(a.watch, "file not taken ");
        if (offered != ended) {
            problem("the watch was offered " + std::to_string(offered) +
                    " files and heard the end of " + std::to_string(ended));
        }
    }

    // Per channel of the conversation: what the watch got is what the phone
    // sent, from the first on, in order and once each, and what came back
    // is what the watch got; anything short of it needs a loss told to both.
    void messages() {
        if (!phone.conversation) {
            if (a.phoneExit == 0) {
                problem("the phone ended without a conversation");
            }
            return;
        }
        const std::string& conversation = *phone.conversation;
        for (const auto& [connection, channels] : watch.got) {
            if (connection != conversation) {
                problem("the watch got messages on connection " + connection +
                        ", which is not the conversation's");
            }
        }
        for (std::uint32_t channel : kChannels) {
            channelMessages(channel, phone.sent[channel], watch.got[conversation][channel],
                            phone.got[conversation][channel]);
        }
        if (phone.refusals > 0 && !phone.lossTold) {
            problem("the phone had a send refused without being told of a loss");
        }
        if (watch.refusals > 0 && !watch.lossTold) {
            problem("the watch had an echo refused without being told of a loss");
        }
    }

    void channelMessages(std::uint32_t channel, const std::vector<long>& sent,
                         const std::vector<long>& arrived, const std::vector<long>& echoed) {
        const std::string name = "channel " + std::to_string(channel) + ": ";
        if (!countsFromZero(arrived) || arrived.size() > sent.size()) {
            problem(name + "the watch got " + list(arrived) + " of " + list(sent));
        }
        if (!countsFromZero(echoed) || echoed.size() > arrived.size()) {
            problem(name + "the phone got back " + list(echoed) + " of " + list(arrived));
        }
        const bool whole = arrived.size() == sent.size() && echoed.size() == arrived.size();
        if (!whole && !(phone.lossTold && watch.lossTold)) {
            problem(name + "messages went missing without a loss told to both apps (sent " +
                    std::to_string(sent.size()) + ", arrived " + std::to_string(arrived.size()) +
                    ", back " + std::to_string(echoed.size()) + ")");
        }
        if (!whole && a.plan.fault.kind == "stall") {
            problem(name + "a short stall lost messages");
        }
    }

    // Both sides say the same of each connection that both knew.
    void ends() {
        for (const std::string& connection : phone.hellos) {
            auto phoneEnd = phone.ends.find(connection);
            if (phoneEnd == phone.ends.end()) {
                problem("the phone never said how its connection " + connection + " ended");
                continue;
            }
            if (phoneEnd->second != "closed" && phoneEnd->second != "lost DEVICE_DETACHED") {
                problem("the phone's connection " + connection + " ended " + phoneEnd->second +
                        ", but the watch never closes one");
            }
            if (std::find(watch.hellos.begin(), watch.hellos.end(), connection) ==
                watch.hellos.end()) {
                continue;  // its hello was lost with the link
            }
            auto watchEnd = watch.ends.find(connection);
            if (watchEnd == watch.ends.end()) {
                problem("the watch never heard that connection " + connection + " ended");
                continue;
            }
            const std::string expected =
                phoneEnd->second == "closed" ? "lost PEER_DISCONNECTED" : phoneEnd->second;
            const bool lostAfterClose = phoneEnd->second == "closed" &&
                                        watchEnd->second == "lost DEVICE_DETACHED" && a.fired &&
                                        a.plan.fault.losesTheLink();
            if (watchEnd->second != expected && !lostAfterClose) {
                problem("connection " + connection + " ended differently: the phone says " +
                        phoneEnd->second + ", the watch " + watchEnd->second);
            }
        }
    }

    void file() {
        if (!a.partialFiles.empty()) {
            std::string names;
            for (const std::string& name : a.partialFiles) {
                names += " " + name;
            }
            problem("partial files were left:" + names);
        }
        if (a.plan.fileBytes == 0) {
            return;
        }
        const bool sentWhole = phone.fileAnswer == std::optional<std::string>("complete");
        const bool receivedWhole = countStarting(a.watch, "file received ") > 0;
        // The receiver's word that the file is whole can be lost with the
        // link; the sender then can't know, and says the link went.
        const bool wordLost = !sentWhole && receivedWhole && a.fired &&
                              a.plan.fault.losesTheLink() &&
                              countStarting(a.phone, "answer file error PEER_CONN_LOST") > 0;
        if (sentWhole != receivedWhole && !wordLost) {
            problem(
                std::string("the two sides were told different outcomes of the file: the phone ") +
                (sentWhole ? "that it went" : "that it failed") + ", the watch " +
                (receivedWhole ? "that it arrived" : "that it did not"));
        }
        if (receivedWhole && a.received != a.source) {
            problem("the file the watch received is not the phone's");
        }
        if (!receivedWhole && a.received) {
            problem("the watch kept a file it was told failed");
        }
        if (!sentWhole && a.plan.fault.kind == "stall") {
            problem("a short stall failed the file");
        }
    }

    // Every loss reaches each app that was running when its service took the
    // link down; no app hears of one that did not happen.
    void losses() {
        const bool phoneHeldASession =
            std::any_of(a.phoneLinkDowns.begin(), a.phoneLinkDowns.end(), [this](long long down) {
                return a.phoneSessionAt && *a.phoneSessionAt < down &&
                       (!phone.doneAt || down < *phone.doneAt);
            });
        if (phoneHeldASession && !phone.lossTold) {
            problem(
                "the phone's service took the link down while the app had a session with "
                "it, and the app was not told");
        }
        if (!a.watchLinkDowns.empty() && !watch.lossTold) {
            problem("the watch's service took the link down, and the app was not told");
        }
        if (a.phoneLinkDowns.empty() && phone.lossTold) {
            problem("the phone was told of a loss, but its service never took the link down");
        }
        if (a.watchLinkDowns.empty() && watch.lossTold) {
            problem("the watch was told of a loss, but its service never took the link down");
        }
        if (a.fired && a.plan.fault.losesTheLink() &&
            (a.phoneLinkDowns.empty() || a.watchLinkDowns.empty())) {
            problem("the " + a.plan.fault.kind + " fired, but a service kept the link up");
        }
        if (a.plan.fault.kind == "stall" &&
            (!a.phoneLinkDowns.empty() || !a.watchLinkDowns.empty())) {
            problem("a short stall took the link down");
        }
    }

    void recovery() {
        if (!a.fired) {
            return;
        }
        if (!a.linkedAgainMs) {
            problem("the link was not up again within " + std::to_string(bound) +
                    " ms after the fault was over");
        } else if (*a.linkedAgainMs > bound) {
            problem("the link took " + std::to_string(*a.linkedAgainMs) + " ms to come back");
        }
    }

    const ChaosAccount& a;
    long long bound;
    Side phone;
    Side watch;
    std::vector<std::string> problems;
};

}  // namespace

int ChaosFault::durationMs() const {
    if (kind == "stall" || kind == "detach") {
        return 1000;
    }
    return kind == "long-stall" ? 7000 : 0;
}

bool ChaosFault::losesTheLink() const { return kind != "stall"; }

std::string ChaosFault::describe() const {
    std::string text = kind + " " + side + " " + trigger + " " + std::to_string(value);
    return trigger == "messages" ? text + " " + std::to_string(channel) : text;
}

std::string ChaosPlan::describe() const {
    return "seed " + std::to_string(seed) + ", " + std::to_string(messages) +
           " messages a channel, " +
           (fileBytes > 0 ? "a file of " + std::to_string(fileBytes) + " bytes" : "no file") +
           ", fault: " + fault.describe();
}

ChaosPlan drawChaosPlan(unsigned seed, std::uint64_t bandwidth) {
    std::mt19937 random(seed);
    auto draw = [&random](std::uint64_t low, std::uint64_t high) {
        return std::uniform_int_distribution<std::uint64_t>(low, high)(random);
    };
    static const char* const kKinds[] = {"drop", "stall", "long-stall", "detach"};
    ChaosPlan plan;
    plan.seed = seed;
    plan.fault.kind = kKinds[draw(0, 3)];
    plan.fault.side = draw(0, 1) == 0 ? "watch" : "phone";
    plan.messages = static_cast<int>(draw(5, 20));
    const std::size_t largest =
        bandwidth == 0 ? kLargestFile
                       : std::clamp<std::size_t>(bandwidth, kSmallestFile, kLargestFile);
    const bool withFile = draw(0, 1) == 0;
    plan.fileBytes = withFile ? draw(kSmallestFile, largest) : 0;
    // Half the faults at a moment, a quarter after messages, a quarter
    // within the file (which the trial then has).
    switch (draw(0, 3)) {
        case 2:
            plan.fault.trigger = "messages";
            plan.fault.channel = kChannels[draw(0, 1)];
            plan.fault.value = draw(1, 2 * static_cast<std::uint64_t>(plan.messages));
            break;
        case 3:
            plan.fileBytes = plan.fileBytes > 0 ? plan.fileBytes : draw(kSmallestFile, largest);
            plan.fault.trigger = "file-bytes";
            plan.fault.value = draw(1, plan.fileBytes);
            break;
        default:
            plan.fault.trigger = "moment";
            plan.fault.value = draw(50, expectedDurationMs(plan, bandwidth));
            break;
    }
    return plan;
}

std::vector<std::string> judgeChaosTrial(const ChaosAccount& account, long long linkBoundMs) {
    return Judge(account, linkBoundMs).verdict();
}

}  // namespace KvE2e
