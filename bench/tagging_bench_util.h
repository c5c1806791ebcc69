// Pieces the tagging benchmarks share: a host that offers one study context
// and nothing else, a context whose answers a benchmark overrides only where
// it needs them, writing an input tag file through a module's own writer, and
// one timed input tagging on a freshly restored file.
//
// A module under measurement is always built inside the timed part, so the
// tag file is read on every run; a module that reports an error fails the
// benchmark rather than give a figure for work it didn't do.
#pragma once

#include <filesystem>
#include <list>
#include <optional>
#include <utility>

#include "zeltra/tagging.h"

#include "bench_util.h"

namespace zeltra_bench {

// The host's vocabulary, for the header and the benchmarks that use it.
using MOSAQ::String;
using MOSAQ::StringList;
using MOSAQ::StringStringMap;
namespace Portals = MOSAQ::Portals;

// Answers "Portal" with the context it was given; everything else is quiet.
class BenchHost : public Portals::IPortalHost {
public:
    explicit BenchHost(Portals::IPortalContext& context) : context_(context) {}
    void logMessage(const String&, const String&, int, int) override {}
    void reportProgress(int, int, const String&, int) override {}
    void resolveFolder(const String&, StringList&, String&, const StringStringMap&) override {}
    String getInstallFolder() override { return {}; }
    String getSetting(const String&, const String& defaultValue) override { return defaultValue; }
    MOSAQ::IExtension* findExtension(const String& type) override {
        return type == "Portal" ? &context_ : nullptr;
    }

private:
    Portals::IPortalContext& context_;
};

// A study with no design values, no analysis properties, and no interest in
// responses.
class BenchContext : public Portals::IPortalContext {
public:
    explicit BenchContext(String name) : name_(std::move(name)) {}
    String getType() override { return "Portal"; }
    String getName() override { return name_; }
    MOSAQ::IProperties& getProperties() override { return properties_; }
    void* getInterface(int) override { return nullptr; }
    String getDesignValue(const String&, const String&, const String&, const String&,
                          String&) override {
        return {};
    }
    void getAnalysisProperties(const String&, const String&, StringStringMap&) override {}
    void reportResponse(const String&, const StringStringMap&,
                        const Portals::ResponseValues&) override {}

private:
    String name_;
    MOSAQ::IProperties properties_;
};

// Writes the input tag file for `fileName` into `folder` through a Module's
// own writer, as the framework would; answers its path.
template <class Module>
std::filesystem::path writeInputTagFile(Portals::IPortalHost& host, const String& fileName,
                                        const std::list<Portals::TagData>& tags,
                                        const std::filesystem::path& folder) {
    Module module(&host);
    StringStringMap outputs;
    String errors;
    const bool ok = module.writeInputTagging(
        fileName, tags, {{"analysisName", "bench"}, {"destDir", folder.string()}, {"version", "1"}},
        outputs, errors);
    const auto written = outputs.find(fileName + "_intagfile");
    if (!ok || written == outputs.end()) fail("cannot write the tag file:\n" + errors);
    return folder / written->second;
}

// Seconds that building a fresh Module on the host and `call` on it take;
// the module is destroyed after the clock stops.
template <class Module, class Call>
double timeFreshModule(Portals::IPortalHost& host, Call&& call) {
    std::optional<Module> module;
    return secondsOf([&] {
        module.emplace(&host);
        call(*module);
    });
}

// Seconds one input tagging takes on `input`, restored from `pristine`
// (untimed) first, through a fresh Module.
template <class Module>
double timeInputTagging(Portals::IPortalHost& host, const std::filesystem::path& pristine,
                        const std::filesystem::path& input, const std::filesystem::path& tagFile) {
    std::filesystem::copy_file(pristine, input,
                               std::filesystem::copy_options::overwrite_existing);
    const StringStringMap data{{"inputFilepaths", input.string()},
                               {"inputTagFilepaths", tagFile.string()}};
    String errors;
    bool ok = false;
    const double elapsed = timeFreshModule<Module>(
        host, [&](Module& module) { ok = module.tagInputs(data, nullptr, errors); });
    if (!ok || Module::hasError(errors)) fail("tagging failed:\n" + errors.substr(0, 2000));
    return elapsed;
}

}  // namespace zeltra_bench
