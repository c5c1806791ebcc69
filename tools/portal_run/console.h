// The terminal side of a study: log lines at their levels and the progress
// bar. Only the runner's main process writes to the terminal; the bar is
// drawn on standard error only when that is a terminal, and it is cleared
// before any line is printed, so lines and bar never mix.
#pragma once

#include <cstdio>
#include <string>

#include "host.h"

namespace portalrun {

class Console : public LogSink {
public:
    // quiet: only errors and warnings. bar: draw the progress bar.
    Console(bool quiet, bool bar) : quiet_(quiet), bar_(bar) {}
    ~Console() override { clearBar(); }

    void logLine(int level, int design, const std::string& text) override;
    // A line of the runner's own on standard output.
    void say(const std::string& text);
    // left: the time-left estimate as text, or empty (see estimate.h).
    void progress(int done, int total, int failed, int running, const std::string& left = "");
    void clearBar();
    // Clears the bar for good: the study is over.
    void stopBar() {
        clearBar();
        bar_ = false;
    }

private:
    void drawBar();

    bool quiet_;
    bool bar_;
    bool shown_ = false;
    int done_ = 0, total_ = 0, failed_ = 0, running_ = 0;
    std::string left_;
};

}  // namespace portalrun
