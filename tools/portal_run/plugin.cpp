// Finding and loading the plug-in. The default one lies at a fixed relative
// path from the running program, so a moved or installed tree still finds
// its own. The factory is looked up by its plain exported name; a library
// without it is refused at once rather than at the first design.
#include "plugin.h"

#include <dlfcn.h>

#include <filesystem>

namespace portalrun {

std::string pluginBesideProgram(const std::string& relative) {
    std::error_code ec;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec || self.empty()) return relative;
    return (self.parent_path() / relative).lexically_normal().string();
}

Plugin::~Plugin() {
    if (handle_) ::dlclose(handle_);
}

bool Plugin::open(const std::string& path, std::string& error) {
    handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) {
        const char* why = ::dlerror();
        error = "cannot load the plug-in " + path + ": " + (why ? why : "unknown reason");
        return false;
    }
    factory_ = reinterpret_cast<PortalFactoryFn>(::dlsym(handle_, "portalFactory"));
    if (!factory_) {
        error = "the plug-in " + path + " exports no portalFactory";
        ::dlclose(handle_);
        handle_ = nullptr;
        return false;
    }
    std::error_code ec;
    folder_ = std::filesystem::absolute(path, ec).parent_path().string();
    return true;
}

std::unique_ptr<MOSAQ::Portals::IPortal> Plugin::create(MOSAQ::Portals::IPortalHost& host,
                                                        const std::string& name) const {
    if (!factory_) return nullptr;
    return std::unique_ptr<MOSAQ::Portals::IPortal>(factory_(&host, name, nullptr));
}

}  // namespace portalrun
