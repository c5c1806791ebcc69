// The portal's own cost per design, as portal-run pays it: everything of a
// design but the solver (a fresh run folder with the input copied in,
// processInputs, runCheck, processOutputs, finishRun), through the runner's
// own host classes and the loaded plug-in. The baseline, measured in the
// same run, copies the same files into a fresh folder, so the ratio says how
// much the portal adds over the file handling no runner can avoid.
//
//   portal_bench [designs, default 1000]
//
// The study: 10 parameters bound by mark tags on a text input, 10 responses
// bound by portal tags on an SDF output written once with the SDF library.
// Two portal rows: one portal object for all designs (its tag caches warm),
// and a new portal per design, as each design of portal-run gets in its own
// worker process. The runner's own run folder and input copy is a row of its
// own. Each side runs three times, interleaved; the best counts. The first
// pass reads outputs without SDF read locks, as portal-run does (its solver
// has ended before the outputs are read); the program then runs itself again
// with read locks, as `portal-run --read-locks` does: every such open waits
// 10 ms before it takes its lock file, which no portal work can beat.
//
// Exit status: 0 when every design came out right, 1 otherwise. The target is
// under 1 ms per design; a slower machine is reported, not failed.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <unistd.h>

#include "design_run.h"
#include "host.h"
#include "plugin.h"
#include "sdf.h"

namespace {

namespace fs = std::filesystem;
using namespace portalrun;

constexpr int kParams = 10;
constexpr int kRuns = 3;

void writeText(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string markTags(const char* file, const std::string& tagLines, int count) {
    return std::string("$ File type, version\nmarking, 1\n$ Tag definition file: ") + file +
           "\n$ Tag type, Num tags\nMARKING, " + std::to_string(count) +
           "\n$ delims\n\\s\n$ widths\n10\n"
           "$ Mode, Row, Delims, Col, Param type, Param name, Print Fmt\n" + tagLines;
}

bool writeSdf(const std::string& path) {
    int ch = 0;
    if (Sdf_Open(&ch, path.c_str(), "BINARY", "NEW", "WRITE") != 0) return false;
    for (int i = 0; i < kParams; ++i) {
        double v = 0.5 * i;
        if (Sdf_Write_Var(ch, ("r" + std::to_string(i)).c_str(), SDF_DBLE_T, &v, "m", nullptr) != 0)
            return false;
    }
    return Sdf_Close(ch, "KEEP") == 0;
}

// The study in `dir`, its output tag file written through the portal.
bool makeStudy(const fs::path& dir, const Plugin& plugin, Study& s) {
    std::string deck, tags;
    for (int i = 0; i < kParams; ++i) {
        deck += "p" + std::to_string(i) + " 0\n";
        tags += "free, " + std::to_string(i + 1) + ",\\s, 2, Double, p" + std::to_string(i) + ", %g\n";
    }
    writeText(dir / "deck.inp", deck);
    writeText(dir / "M_in_bench_deck.inp", markTags("deck.inp", tags, kParams));
    if (!writeSdf((dir / "results.sdf").string())) return false;

    s.name = "bench";
    s.dir = dir.string();
    s.version = "7.2";
    s.command = "true";
    for (int i = 0; i < kParams; ++i) {
        Parameter p;
        p.name = "p" + std::to_string(i);
        p.values = {Value::ofReal(1.25 + i)};
        s.parameters.push_back(p);
        s.responses.push_back({"r" + std::to_string(i), true});
    }
    s.inputs = {{(dir / "deck.inp").string(), (dir / "M_in_bench_deck.inp").string()}};
    s.outputs = {{(dir / "results.sdf").string(), (dir / "P_out_bench_results.sdf").string()}};

    RunHost host(s, {}, plugin.folder(), nullptr);
    auto portal = plugin.create(host, "ZeltraSDF");
    std::list<MOSAQ::Portals::TagData> responseTags;
    for (const Response& r : s.responses)
        responseTags.push_back({{"Variables", r.name}, r.name, "Response", {{"mode", "portal", ""}}});
    StringStringMap outputs;
    String errors;
    return portal && portal->writeOutputTagFile("results.sdf", responseTags,
                                                {{"mode", "portal"}, {"destDir", s.dir},
                                                 {"analysisName", s.name}, {"version", "7.2"}},
                                                outputs, errors);
}

struct Timing {
    double best = 1e300;
    void take(double seconds) { best = std::min(best, seconds); }
};

double timed(const std::function<void()>& work) {
    const auto t0 = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

}  // namespace

constexpr const char* kLockPassVar = "PORTAL_BENCH_LOCK_PASS";

int main(int argc, char** argv) {
    const int designs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1000;
    const bool lockPass = std::getenv(kLockPassVar) != nullptr;
    if (!lockPass) ::setenv("SDF_NO_READ_LOCK", "1", 1);
    const fs::path root = fs::temp_directory_path() / ("portal_bench." + std::to_string(::getpid()));
    fs::create_directories(root / "runs");
    Plugin plugin;
    std::string error;
    if (!plugin.open(ZELTRA_PLUGIN_PATH, error)) {
        std::fprintf(stderr, "portal_bench: %s\n", error.c_str());
        return 1;
    }
    Study study;
    if (!makeStudy(root, plugin, study)) {
        std::fprintf(stderr, "portal_bench: cannot set the study up in %s\n", root.c_str());
        return 1;
    }
    Design design{1, {}};
    for (const Parameter& p : study.parameters) design.values.push_back(p.values[0]);
    const std::string runDir = (root / "runs" / "design").string();
    int wrong = 0;

    // One design: the runner's folder work and the portal's calls, timed
    // apart; the portal's share is what the target is about.
    auto oneDesign = [&](MOSAQ::Portals::IPortal& portal, RunHost& host, double& folder,
                         double& calls) {
        DesignRun run(portal, host, study, design, runDir);
        auto t0 = std::chrono::steady_clock::now();
        bool ok = run.makeFolder();
        auto t1 = std::chrono::steady_clock::now();
        if (ok && run.tagInputs() && run.check()) run.collect();
        run.finish();
        auto t2 = std::chrono::steady_clock::now();
        folder += std::chrono::duration<double>(t1 - t0).count();
        calls += std::chrono::duration<double>(t2 - t1).count();
        wrong += run.failed() || host.context().responses().size() != kParams;
    };
    Timing warm, fresh, folders, copy;
    for (int r = 0; r < kRuns; ++r) {
        double folder = 0, calls = 0;
        {
            RunHost host(study, {}, plugin.folder(), nullptr);
            auto portal = plugin.create(host, study.portal);
            for (int d = 0; d < designs; ++d) oneDesign(*portal, host, folder, calls);
        }
        warm.take(calls);
        folders.take(folder);
        folder = calls = 0;
        for (int d = 0; d < designs; ++d) {
            // The portal object's making counts: portal-run makes one a design.
            auto t0 = std::chrono::steady_clock::now();
            RunHost own(study, {}, plugin.folder(), nullptr);
            auto p = plugin.create(own, study.portal);
            calls += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            oneDesign(*p, own, folder, calls);
        }
        fresh.take(calls);
        copy.take(timed([&] {
            for (int d = 0; d < designs; ++d) {
                std::error_code ec;
                fs::remove_all(runDir, ec);
                fs::create_directories(runDir, ec);
                for (const FileSpec* f : {&study.inputs[0], &study.outputs[0]}) {
                    for (const std::string& file : {f->file, f->tags})
                        fs::copy_file(file, fs::path(runDir) / fs::path(file).filename(), ec);
                }
            }
        }));
    }
    auto ms = [&](const Timing& t) { return t.best / designs * 1e3; };
    const bool noReadLock = !lockPass;
    std::printf("portal_bench: %d designs, %d parameters, %d responses, best of %d%s\n", designs,
                kParams, kParams, kRuns,
                noReadLock ? ", outputs read as portal-run reads them (no read locks)"
                           : ", with SDF read locks (portal-run --read-locks)");
    std::printf("  portal calls, one portal       %8.3f ms/design  %6.2fx the copy\n", ms(warm),
                ms(warm) / ms(copy));
    std::printf("  portal calls, new portal each  %8.3f ms/design  %6.2fx the copy\n", ms(fresh),
                ms(fresh) / ms(copy));
    std::printf("  run folder and input copy      %8.3f ms/design\n", ms(folders));
    std::printf("  copying the same files         %8.3f ms/design (inputs, outputs, tag files)\n",
                ms(copy));
    std::printf("  target, portal under 1 ms/design: %s\n", ms(fresh) < 1.0 ? "met" : "missed");
    std::error_code ec;
    fs::remove_all(root, ec);
    if (wrong) {
        std::fprintf(stderr, "portal_bench: %d designs came out wrong\n", wrong);
        return 1;
    }
    if (noReadLock) {
        std::fflush(stdout);
        ::unsetenv("SDF_NO_READ_LOCK");
        ::setenv(kLockPassVar, "1", 1);
        ::execv("/proc/self/exe", argv);
    }
    return 0;
}
