// portal-run: plays the host for a portal plug-in without the design
// exploration host. It loads the plug-in with dlopen, creates the portal by
// name and, for now, shows what the plug-in offers.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "zeltra/interfaces.h"

#ifndef ZELTRA_DEFAULT_PLUGIN
#define ZELTRA_DEFAULT_PLUGIN "libzeltrasdf.so"
#endif

namespace {

using MOSAQ::String;
using MOSAQ::StringList;
using MOSAQ::StringStringMap;

const char* levelWord(int level) {
    switch (level) {
        case 2: return "error";
        case 4: return "warning";
        case 16: return "output";
        default: return "note";
    }
}

// A host that prints what the portal tells it and answers settings from the
// command line.
class ConsoleHost : public MOSAQ::Portals::IPortalHost {
public:
    bool verbose = false;
    void logMessage(const String& text, const String&, int evalId, int level) override {
        std::fprintf(level == 2 ? stderr : stdout, "[%s] design %d: %s\n", levelWord(level),
                     evalId, text.c_str());
    }
    void reportProgress(int, int, const String&, int) override {}
    void resolveFolder(const String&, StringList&, String& folder,
                       const StringStringMap& substitutions) override {
        auto it = substitutions.find("sub");
        folder = it == substitutions.end() ? "." : it->second;
    }
    String getInstallFolder() override { return "."; }
    String getSetting(const String& key, const String& defaultValue) override {
        if (key == "verbose") return verbose ? "true" : "false";
        return defaultValue;
    }
    MOSAQ::IExtension* findExtension(const String&) override { return nullptr; }
};

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: portal-run [--plugin PATH] [--portal NAME] [--verbose]\n"
                 "\n"
                 "Loads a portal plug-in (by default the one built beside this tool),\n"
                 "creates the portal NAME (default ZeltraSDF) and shows what it offers.\n"
                 "\n"
                 "exit codes: 0 success, 1 the plug-in or the portal could not be had,\n"
                 "            2 bad command line\n");
}

}  // namespace

int main(int argc, char** argv) {
    String plugin = ZELTRA_DEFAULT_PLUGIN;
    String portalName = "ZeltraSDF";
    ConsoleHost host;
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        if (!std::strcmp(a, "--help") || !std::strcmp(a, "-h")) {
            usage(stdout);
            return 0;
        } else if (!std::strcmp(a, "--plugin") && i + 1 < argc) {
            plugin = argv[++i];
        } else if (!std::strcmp(a, "--portal") && i + 1 < argc) {
            portalName = argv[++i];
        } else if (!std::strcmp(a, "--verbose")) {
            host.verbose = true;
        } else {
            std::fprintf(stderr, "portal-run: unknown argument '%s'\n", a);
            usage(stderr);
            return 2;
        }
    }

    void* handle = ::dlopen(plugin.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::fprintf(stderr, "portal-run: cannot load plug-in: %s\n", ::dlerror());
        return 1;
    }
    auto factory = reinterpret_cast<PortalFactoryFn>(::dlsym(handle, "portalFactory"));
    if (!factory) {
        std::fprintf(stderr, "portal-run: %s exports no portalFactory\n", plugin.c_str());
        ::dlclose(handle);
        return 1;
    }
    int rc = 0;
    {
        std::unique_ptr<MOSAQ::Portals::IPortal> portal(factory(&host, portalName, nullptr));
        if (!portal) {
            std::fprintf(stderr, "portal-run: the plug-in has no portal named '%s'\n",
                         portalName.c_str());
            rc = 1;
        } else {
            std::printf("plug-in: %s\nportal:  %s\ntype:    %s\n", plugin.c_str(),
                        portal->getName().c_str(), portal->getType().c_str());
        }
    }
    ::dlclose(handle);
    return rc;
}
