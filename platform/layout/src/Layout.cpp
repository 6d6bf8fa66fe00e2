#include <kv-layout/Layout.h>

#include <dlfcn.h>
#include <link.h>

#include <system_error>

namespace Kv {
namespace Layout {

namespace fs = std::filesystem;

namespace {

// `folder`/`relative` when that exists, made canonical.
std::optional<fs::path> existing(const fs::path& folder, const char* relative) {
    std::error_code error;
    fs::path path = fs::canonical(folder / relative, error);
    if (error) {
        return std::nullopt;
    }
    return path;
}

}  // namespace

fs::path programFolder() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path() : self.parent_path();
}

fs::path moduleFolder(const void* address) {
    Dl_info info{};
    link_map* module = nullptr;
    if (dladdr1(address, &info, reinterpret_cast<void**>(&module), RTLD_DL_LINKMAP) == 0 ||
        module == nullptr) {
        return {};
    }
    // The program itself has no name in the loader's list: /proc knows it.
    if (module->l_name == nullptr || module->l_name[0] == '\0') {
        return programFolder();
    }
    std::error_code error;
    const fs::path file = fs::canonical(module->l_name, error);
    return error ? fs::path() : file.parent_path();
}

std::optional<fs::path> find(const fs::path& folder, const Place& place) {
    if (folder.empty()) {
        return std::nullopt;
    }
    if (std::optional<fs::path> installed = existing(folder, place.installed)) {
        return installed;
    }
    return existing(folder, place.inBuildTree);
}

}  // namespace Layout
}  // namespace Kv
