// One updating line on a terminal: frames done of the total, speed and time left.
#pragma once

#include <chrono>
#include <cstdint>

namespace lfx {

class Progress {
public:
    // Shows nothing unless `enabled` and standard error is a terminal. `total` may be -1.
    Progress(int64_t total, bool enabled);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Update(int64_t done);
    // Clears the line.
    void Finish();

    double Seconds() const;

private:
    using Clock = std::chrono::steady_clock;
    int64_t total_;
    bool shown_;
    bool drawn_ = false;
    Clock::time_point start_ = Clock::now();
    Clock::time_point lastDraw_{};
};

}  // namespace lfx
