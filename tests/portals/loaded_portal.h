// A test fixture for whole studies: the built plug-in loaded with dlopen as a
// host loads it, the "ZeltraSDF" portal created through portalFactory on a
// fake host, and two scratch folders (the study's and a design's run folder).
// The portal is deleted before the plug-in is unloaded.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>

#include "fake_host.h"
#include "zeltra/interfaces.h"

class LoadedPortal : public ::testing::Test {
protected:
    void SetUp() override {
        handle = ::dlopen(ZELTRA_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << ::dlerror();
        auto factory = reinterpret_cast<PortalFactoryFn>(::dlsym(handle, "portalFactory"));
        ASSERT_NE(factory, nullptr);
        portal.reset(factory(&host, "ZeltraSDF", nullptr));
        ASSERT_NE(portal, nullptr);
    }
    void TearDown() override {
        portal.reset();
        if (handle) ::dlclose(handle);
    }

    void* handle = nullptr;
    fakehost::FakeHost host;
    std::unique_ptr<MOSAQ::Portals::IPortal> portal;
    fakehost::TempDir study;
    fakehost::TempDir run;
};
