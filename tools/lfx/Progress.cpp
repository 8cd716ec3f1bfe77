#include "Progress.h"

#include <unistd.h>

#include <cstdio>

namespace lfx {

Progress::Progress(int64_t total, bool enabled)
    : total_(total), shown_(enabled && isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
    Finish();
}

double Progress::Seconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::Update(int64_t done) {
    if (!shown_) return;
    const Clock::time_point now = Clock::now();
    if (drawn_ && now - lastDraw_ < std::chrono::milliseconds(100)) return;
    lastDraw_ = now;
    drawn_ = true;
    const double seconds = Seconds();
    const double fps = seconds > 0 ? done / seconds : 0;
    char line[128];
    if (total_ > 0) {
        const int64_t left = total_ > done ? total_ - done : 0;
        const double eta = fps > 0 ? left / fps : 0;
        std::snprintf(line, sizeof line, "frame %lld/%lld  %.1f fps  %d:%02d left",
                      static_cast<long long>(done), static_cast<long long>(total_), fps,
                      static_cast<int>(eta) / 60, static_cast<int>(eta) % 60);
    } else {
        std::snprintf(line, sizeof line, "frame %lld  %.1f fps", static_cast<long long>(done), fps);
    }
    std::fprintf(stderr, "\r\033[K%s", line);
    std::fflush(stderr);
}

void Progress::Finish() {
    if (!drawn_) return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    drawn_ = false;
}

}  // namespace lfx
