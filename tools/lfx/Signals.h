// Stopping cleanly on the signals a person, a closed terminal or a job runner sends (SIGINT,
// SIGTERM, SIGHUP, SIGQUIT). The first asks the work to stop at the next frame or effect, so
// the unfinished output is removed on the way out; a second removes it at once and exits.
#pragma once

#include "Errors.h"

namespace lfx {

// Thrown where work notices a stop request.
class Interrupted : public UserError {
public:
    explicit Interrupted(int signal);
    int Signal() const { return signal_; }

private:
    int signal_;
};

// Catches the stopping signals while alive, except those ignored when lfx started (nohup).
class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
};

// Throws Interrupted once a stopping signal has arrived.
void CheckStop();

// The unfinished file a second signal removes (null: none). The text must outlive the watch.
void WatchPartialFile(const char* path);

}  // namespace lfx
