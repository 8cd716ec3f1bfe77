#include "Signals.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <iterator>
#include <string>

namespace lfx {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
std::atomic<int> g_signal{0};
std::atomic<const char*> g_partial{nullptr};
struct sigaction g_previous[sizeof kSignals / sizeof kSignals[0]];

// Async-signal-safe: an atomic store, or unlink and _exit.
void OnSignal(int signal) {
    int expected = 0;
    if (g_signal.compare_exchange_strong(expected, signal)) return;
    if (const char* path = g_partial.load()) unlink(path);
    _exit(128 + signal);
}

std::string SignalName(int signal) {
    const char* name = sigabbrev_np(signal);
    return name != nullptr ? std::string("SIG") + name : "signal " + std::to_string(signal);
}

}  // namespace

Interrupted::Interrupted(int signal)
    : UserError("stopped by " + SignalName(signal)), signal_(signal) {}

StopSignals::StopSignals() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < std::size(kSignals); ++i) {
        sigaction(kSignals[i], nullptr, &g_previous[i]);
        if (g_previous[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
    }
}

StopSignals::~StopSignals() {
    for (size_t i = 0; i < std::size(kSignals); ++i)
        sigaction(kSignals[i], &g_previous[i], nullptr);
}

void CheckStop() {
    if (const int signal = g_signal.load()) throw Interrupted(signal);
}

void WatchPartialFile(const char* path) {
    g_partial.store(path);
}

}  // namespace lfx
