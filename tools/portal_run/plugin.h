// The portal plug-in, loaded with dlopen. The library stays loaded as long as
// the Plugin lives; portals it created must be gone before then.
#pragma once

#include <memory>
#include <string>

#include "zeltra/interfaces.h"

namespace portalrun {

// The path `relative` taken from the folder of the running program, or
// `relative` as it stands when that folder can't be found (the load then
// fails with the path in its message).
std::string pluginBesideProgram(const std::string& relative);

class Plugin {
public:
    Plugin() = default;
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    // Loads the library and finds portalFactory. False with a reason.
    bool open(const std::string& path, std::string& error);
    // A new portal by name, or null when the plug-in has none of that name.
    std::unique_ptr<MOSAQ::Portals::IPortal> create(MOSAQ::Portals::IPortalHost& host,
                                                    const std::string& name) const;
    // The folder the library lies in: the host's install folder for the portal.
    const std::string& folder() const { return folder_; }

private:
    void* handle_ = nullptr;
    PortalFactoryFn factory_ = nullptr;
    std::string folder_;
};

}  // namespace portalrun
