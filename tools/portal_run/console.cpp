// Console output. Errors and warnings go to standard error, notes and solver
// output to standard output; each line of a multi-line text gets the design
// and level in front, so grep finds every line of a design.
#include "console.h"

#include <sstream>

namespace portalrun {

void Console::logLine(int level, int design, const std::string& text) {
    const bool problem = level == 2 || level == 4;
    if (quiet_ && !problem) return;
    clearBar();
    FILE* out = problem ? stderr : stdout;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        // The runner's own lines, about no design, say whose they are.
        if (design > 0) std::fprintf(out, "design %d: ", design);
        else std::fputs("portal-run: ", out);
        std::fprintf(out, "%s: %s\n", levelName(level), line.c_str());
    }
    std::fflush(out);
    drawBar();
}

void Console::say(const std::string& text) {
    clearBar();
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
    drawBar();
}

void Console::progress(int done, int total, int failed, int running, const std::string& left) {
    done_ = done;
    left_ = left;
    total_ = total;
    failed_ = failed;
    running_ = running;
    drawBar();
}

void Console::clearBar() {
    if (!shown_) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    shown_ = false;
}

void Console::drawBar() {
    if (!bar_ || total_ <= 0) return;
    constexpr int kWidth = 30;
    const int filled = static_cast<int>(static_cast<long long>(done_) * kWidth / total_);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.resize(kWidth, '.');
    std::fprintf(stderr, "\r\033[K[%s] %d/%d design%s", bar.c_str(), done_, total_,
                 total_ == 1 ? "" : "s");
    if (failed_) std::fprintf(stderr, ", %d failed", failed_);
    if (running_) std::fprintf(stderr, ", %d running", running_);
    if (!left_.empty()) std::fprintf(stderr, ", %s", left_.c_str());
    std::fflush(stderr);
    shown_ = true;
}

}  // namespace portalrun
