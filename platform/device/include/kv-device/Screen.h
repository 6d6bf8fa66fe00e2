// The screen of the current device, which a page app's window takes: its
// size in pixels and whether it is round (a watch's face). The device folder
// holds it in kScreenFile as one line, "<width>x<height>" followed by
// " round" for a round screen; a device without the file has a phone's.
#ifndef KV_PLATFORM_DEVICE_SCREEN_H
#define KV_PLATFORM_DEVICE_SCREEN_H

#include <optional>
#include <string>

namespace Kv {
namespace Device {

struct Screen {
    int width = 412;
    int height = 892;
    bool round = false;

    bool operator==(const Screen&) const = default;
};

// The screens of the two kinds of device the emulator knows.
inline constexpr Screen kWatchScreen{360, 360, true};
inline constexpr Screen kPhoneScreen{412, 892, false};

// Reads a screen as written: "watch", "phone", or "<width>x<height>" with an
// optional " round" (sizes from 64 to 4096). Nothing when the text is none.
std::optional<Screen> parseScreen(const std::string& text);

// The screen as the device folder holds it: "360x360 round".
std::string describeScreen(const Screen& screen);

// The current device's screen; a phone's when the device says none. Throws
// std::runtime_error when the device's screen file is not a screen.
Screen screen();

// Makes `screen` the current device's.
void setScreen(const Screen& screen);

}  // namespace Device
}  // namespace Kv

#endif
