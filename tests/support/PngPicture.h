// A PNG file (a screenshot of a device's screen) read into ARGB pixels, for
// tests that look at what a page showed.
#ifndef KV_TEST_PNG_PICTURE_H
#define KV_TEST_PNG_PICTURE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KvTest {

struct PngPicture {
    int width = 0;
    int height = 0;
    std::vector<std::uint32_t> pixels;  // ARGB, premultiplied, row by row

    std::uint32_t at(int x, int y) const {
        return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                      static_cast<std::size_t>(x)];
    }
    unsigned alpha(int x, int y) const { return at(x, y) >> 24; }
};

// The picture of the file at `path`; 0 by 0 when it is not a PNG.
PngPicture readPng(const std::string& path);

}  // namespace KvTest

#endif
