// Where a program or library of the project finds the other pieces it needs
// (a sibling program, the plug-in folder, the page extension), in the build
// tree and in an installed tree alike. No path of either tree is compiled
// in: each piece is known by its path from the folder of the file that looks
// for it, once as the build lays the files out and once as they are
// installed (kv_place() in cmake/KvPlaces.cmake writes both).
#ifndef KV_LAYOUT_LAYOUT_H
#define KV_LAYOUT_LAYOUT_H

#include <filesystem>
#include <optional>

namespace Kv {
namespace Layout {

// A piece's path from the folder of the file that looks for it: as the
// files lie in the build tree, and as they lie once installed. Both are
// relative; "." is the folder itself.
struct Place {
    const char* inBuildTree;
    const char* installed;
};

// The folder of the running program (the target of /proc/self/exe), or an
// empty path when it cannot be read.
std::filesystem::path programFolder();

// The folder of the loaded file (a program or a shared library) whose code
// holds `address`: the program's folder for the program's own code, an empty
// path when the loader does not know the address.
std::filesystem::path moduleFolder(const void* address);

// The piece at `place`, taken from `folder`: its installed path when that
// exists, else its build-tree path when that exists, else nothing (also for
// an empty `folder`).
std::optional<std::filesystem::path> find(const std::filesystem::path& folder, const Place& place);

}  // namespace Layout
}  // namespace Kv

// The Place that kv_place(target NAME ...) defined for a target's sources.
#define KV_LAYOUT_PLACE(NAME) (Kv::Layout::Place{NAME##_IN_BUILD_TREE, NAME##_INSTALLED})

#endif
