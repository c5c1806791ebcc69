// The stop flag every scheduler watches. Only the flag is set in the
// handler; whoever runs the designs looks at it between its steps.
#include "scheduler.h"

namespace portalrun {

namespace {

volatile std::sig_atomic_t gStop = 0;

void onStop(int) { gStop = 1; }

}  // namespace

volatile std::sig_atomic_t& stopFlag() { return gStop; }

void installStopHandlers() {
    gStop = 0;
    struct sigaction sa {};
    sa.sa_handler = onStop;
    sigemptyset(&sa.sa_mask);
    ::sigaction(SIGINT, &sa, nullptr);
    ::sigaction(SIGTERM, &sa, nullptr);
}

}  // namespace portalrun
