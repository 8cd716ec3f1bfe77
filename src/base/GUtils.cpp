// Thin wrappers over the operating system. The clock's start time is the only state kept.
#include <dlfcn.h>
#include <sys/time.h>
#include <unistd.h>
#include <uuid/uuid.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <thread>

#if defined(__APPLE__)
#include <mach/mach_time.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/sysctl.h>
#else
#include <sys/vfs.h>
#include <time.h>
#endif

#include "base/ErrorReport.h"
#include "libfilter/Siblings.h"
#include "libfilter/SystemBase.h"

namespace SystemBase {

namespace {

constexpr const char* kFile = MediaCore::ErrorFile::kGUtils;
constexpr const char kLibraryPath[] = "LD_LIBRARY_PATH";

// One line to the engine logger; texts beyond the buffer are cut.
__attribute__((format(printf, 2, 3))) void LogLine(int line, const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (GLogger* logger = GetLogger()) logger->Log(LOG_LEVEL_ERROR, kFile, line, text);
}

// Ticks of the monotonic clock convert to nanoseconds as ticks * numer / denom.
struct Timebase {
    uint32_t numer = 0;
    uint32_t denom = 0;
};

#if defined(__APPLE__)
uint64_t ReadTicks() {
    return mach_absolute_time();
}

bool ReadTimebase(Timebase& timebase) {
    mach_timebase_info_data_t info{};
    if (mach_timebase_info(&info) != KERN_SUCCESS) return false;
    timebase = {info.numer, info.denom};
    return true;
}
#else
// Ticks are nanoseconds here, so the timebase is 1/1 once the clock is known to work.
uint64_t ReadTicks() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return uint64_t(now.tv_sec) * 1000000000u + uint64_t(now.tv_nsec);
}

bool ReadTimebase(Timebase& timebase) {
    timespec resolution{};
    if (clock_getres(CLOCK_MONOTONIC, &resolution) != 0) return false;
    timebase = {1, 1};
    return true;
}
#endif

uint64_t WallClockMilliseconds() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return uint64_t(now.tv_sec) * 1000 + uint64_t(now.tv_usec) / 1000;
}

// Set once by whichever thread reads the clock first; the timebase is published before the
// start time, so a thread that sees the start also sees the timebase.
std::atomic<uint64_t> g_clockStart{0};
std::atomic<uint64_t> g_clockTimebase{0};  // numer << 32 | denom

}  // namespace

bool set_environment_variable(const std::string& name, const std::string& value) {
    return setenv(name.c_str(), value.c_str(), 1) == 0;
}

bool get_environment_variable(const std::string& name, std::string& value) {
    const char* text = std::getenv(name.c_str());
    if (text == nullptr) return false;
    value = text;
    return true;
}

bool delete_environment_variable(const std::string& name) {
    unsetenv(name.c_str());
    return true;
}

std::string get_home_path() {
    std::string home;
    get_environment_variable("HOME", home);
    return home;
}

uint64_t get_system_time() {
    const uint64_t now = ReadTicks();
    uint64_t start = g_clockStart.load(std::memory_order_acquire);
    if (start == 0) {
        Timebase timebase;
        if (!ReadTimebase(timebase) || timebase.denom == 0) {
            // Worded after the Mach call on every platform, so the logs read alike.
            LogLine(__LINE__, "%s", "mach_timebase_info failed");
            return WallClockMilliseconds();
        }
        g_clockTimebase.store(uint64_t{timebase.numer} << 32 | timebase.denom,
                              std::memory_order_relaxed);
        uint64_t expected = 0;
        start = g_clockStart.compare_exchange_strong(expected, now, std::memory_order_acq_rel)
                    ? now
                    : expected;
    }
    // A thread that read the clock just before another one fixed the start is at time 0.
    if (now < start) return 0;
    const uint64_t packed = g_clockTimebase.load(std::memory_order_relaxed);
    const uint64_t numer = packed >> 32;
    const uint64_t denom = packed & 0xFFFFFFFFu;
    // Divided in this order so that large tick counts do not overflow.
    return numer * ((now - start) / 1000) / (denom * 1000);
}

unsigned get_cpu_count() {
#if defined(__APPLE__)
    int count = 0;
    size_t size = sizeof count;
    if (sysctlbyname("hw.ncpu", &count, &size, nullptr, 0) != 0 || count <= 0) return 1;
    return static_cast<unsigned>(count);
#else
    const long count = sysconf(_SC_NPROCESSORS_ONLN);
    return count > 0 ? static_cast<unsigned>(count) : 1;
#endif
}

std::string generate_guid(bool braces) {
    uuid_t id;
    uuid_generate(id);
    char text[37];
    uuid_unparse(id, text);
    return braces ? "{" + std::string(text) + "}" : std::string(text);
}

void system_sleep(unsigned ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

double angle_to_radian(double degrees) {
    return degrees * 0.017453292519943295;
}

void* load_dll(const char* path) {
    return path != nullptr ? dlopen(path, RTLD_LAZY) : nullptr;
}

void* get_proc_addr(void* handle, const char* name) {
    return handle != nullptr && name != nullptr ? dlsym(handle, name) : nullptr;
}

void free_dll(void* handle) {
    if (handle != nullptr) dlclose(handle);
}

void set_dll_load_path(const std::string& directory) {
    std::string paths;
    get_environment_variable(kLibraryPath, paths);
    for (const std::string& entry : GStringFormat::Split(paths, ":", false)) {
        if (entry == directory) return;
    }
    set_environment_variable(kLibraryPath, paths + ":" + directory);
}

bool SystemUtils::OSIs64Bit() {
    return false;
}

uint64_t SystemUtils::GetDiskFreeSpaceByPath(const std::string& path) {
    struct statfs info {};
    if (statfs(path.c_str(), &info) != 0) return 0;
#if defined(__APPLE__)
    const uint64_t blockSize = info.f_bsize;
#else
    // Linux counts blocks in fragment units, which differ from f_bsize on some file systems.
    const uint64_t blockSize = info.f_frsize != 0 ? info.f_frsize : info.f_bsize;
#endif
    return (blockSize * uint64_t(info.f_bfree)) >> 10;
}

}  // namespace SystemBase
