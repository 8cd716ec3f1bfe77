#include <cstdarg>
#include <cstdio>

#include "libfilter/SystemBase.h"

namespace SystemBase {

std::string GStringFormat::Format(const char* format, ...) {
    constexpr unsigned kBufferSize = 4096;
    char buffer[kBufferSize];
    if (format == nullptr) return std::string();
    va_list args;
    va_start(args, format);
    const int count = std::vsnprintf(buffer, kBufferSize, format, args);
    va_end(args);
    // A negative count (an error) also fails the unsigned comparison.
    if (static_cast<unsigned>(count) < kBufferSize) return std::string(buffer, count);
    return "<formatting error or buffer exceeded>";
}

}  // namespace SystemBase
