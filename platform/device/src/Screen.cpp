#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <kv-device/Screen.h>

#include <regex>
#include <stdexcept>

namespace Kv {
namespace Device {

namespace {

constexpr int kSmallestSide = 64;
constexpr int kLargestSide = 4096;

std::string screenFile() { return root() + "/" + kScreenFile; }

bool sideFits(int side) { return side >= kSmallestSide && side <= kLargestSide; }

}  // namespace

std::optional<Screen> parseScreen(const std::string& text) {
    const std::string trimmed = std::regex_replace(text, std::regex("^\\s+|\\s+$"), "");
    if (trimmed == "watch") {
        return kWatchScreen;
    }
    if (trimmed == "phone") {
        return kPhoneScreen;
    }
    static const std::regex form("([0-9]{1,4})x([0-9]{1,4})( round)?");
    std::smatch match;
    if (!std::regex_match(trimmed, match, form)) {
        return std::nullopt;
    }
    const Screen screen{std::stoi(match[1]), std::stoi(match[2]), match[3].matched};
    if (!sideFits(screen.width) || !sideFits(screen.height)) {
        return std::nullopt;
    }
    return screen;
}

std::string describeScreen(const Screen& screen) {
    return std::to_string(screen.width) + "x" + std::to_string(screen.height) +
           (screen.round ? " round" : "");
}

Screen screen() {
    const std::optional<std::string> text = readFile(screenFile());
    if (!text) {
        return kPhoneScreen;
    }
    const std::optional<Screen> parsed = parseScreen(*text);
    if (!parsed) {
        throw std::runtime_error(screenFile() + ": not a screen: \"" + *text +
                                 "\" (write e.g. \"360x360 round\" or \"412x892\")");
    }
    return *parsed;
}

void setScreen(const Screen& screen) {
    writeFileAtomically(screenFile(), describeScreen(screen) + "\n");
}

}  // namespace Device
}  // namespace Kv
