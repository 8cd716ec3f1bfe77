// What libfilter needs from the engine's two sibling libraries, liblog and libcore.
// Both are resolved at load time and stay interposable: a host process that defines these
// symbols itself takes them over.
#pragma once

#include <cstddef>

#include "libfilter/IException.h"

// The engine logger. Slot order is ABI; no virtual destructor.
class GLogger {
public:
    virtual void SetLevel(int level) = 0;
    virtual int GetLevel() = 0;
    virtual void Flush() = 0;
    virtual void Log(int level, const char* file, int line, const char* text) = 0;

protected:
    ~GLogger() = default;
};

// Log levels: a line is written when its level is at least the logger's level.
enum LogLevel : int {
    LOG_LEVEL_DEBUG = 0,
    LOG_LEVEL_INFO = 1,
    LOG_LEVEL_NOTICE = 2,
    LOG_LEVEL_WARNING = 3,
    LOG_LEVEL_ERROR = 4,
    LOG_LEVEL_FATAL = 5,
    LOG_LEVEL_OFF = 6,
};

// CPU capability bits answered by libcore_GetCpuCapability.
enum CpuCapability : unsigned {
    CPU_CAP_SSE2 = 1u << 0,
    CPU_CAP_SSSE3 = 1u << 1,
    CPU_CAP_SSE41 = 1u << 2,
    CPU_CAP_AVX2 = 1u << 3,
    CPU_CAP_AVX512BW = 1u << 4,
};

extern "C" {
// liblog: the process-wide error sink and the logger.
IException* GetGException();
GLogger* GetLogger();
// Installs a host sink in place of liblog's own (null puts liblog's back); returns the previous.
IException* liblog_SetGException(IException* sink);
// Number of Report calls liblog's own sink has taken since load.
unsigned liblog_GetReportCount();

// libcore: a memcpy that the engine may route elsewhere, and the CPU capability mask.
void* libcore_memcpy(void* destination, const void* source, size_t count);
unsigned libcore_GetCpuCapability();
}
