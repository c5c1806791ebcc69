// Time left for a study. With every design taking the same mean time m and
// each slot free after at most m, handing designs to the earliest free slot
// is a plain round robin over the slots sorted by when they are free: the
// slots keep their order, since a slot's next free time is its last plus m.
// So the end of the last design follows without a simulation, which keeps
// the estimate cheap for a million designs.
#include "estimate.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace portalrun {

std::optional<double> secondsLeft(const Workload& w) {
    if (w.pending <= 0 && w.runningSeconds.empty()) return 0.0;
    double sum = 0.0;
    long long n = 0;
    for (double s : w.doneSeconds) {
        if (!std::isfinite(s) || s < 0) continue;
        sum += s;
        ++n;
    }
    if (n == 0) return std::nullopt;
    const double mean = sum / static_cast<double>(n);
    const std::size_t slots =
        std::max<std::size_t>({static_cast<std::size_t>(std::max(w.jobs, 1)), w.runningSeconds.size()});
    // When each slot is free again; a slot without a design is free now.
    std::vector<double> freeAt(slots, 0.0);
    for (std::size_t i = 0; i < w.runningSeconds.size(); ++i)
        freeAt[i] = std::max(mean - std::max(w.runningSeconds[i], 0.0), 0.0);
    std::sort(freeAt.begin(), freeAt.end());
    const long long pending = std::max(w.pending, 0LL);
    const long long rounds = pending / static_cast<long long>(slots);
    const long long extra = pending % static_cast<long long>(slots);
    double end = 0.0;
    for (std::size_t i = 0; i < slots; ++i) {
        const long long count = rounds + (static_cast<long long>(i) < extra ? 1 : 0);
        end = std::max(end, freeAt[i] + mean * static_cast<double>(count));
    }
    return end;
}

std::string durationText(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0) seconds = 0;
    const long long s = std::llround(seconds);
    char buf[64];
    if (s < 60) std::snprintf(buf, sizeof buf, "%lld s", s);
    else if (s < 3600) std::snprintf(buf, sizeof buf, "%lld min %02lld s", s / 60, s % 60);
    else if (s < 86400 * 2) std::snprintf(buf, sizeof buf, "%lld h %02lld min", s / 3600, s % 3600 / 60);
    else std::snprintf(buf, sizeof buf, "%lld d %02lld h", s / 86400, s % 86400 / 3600);
    return buf;
}

}  // namespace portalrun
