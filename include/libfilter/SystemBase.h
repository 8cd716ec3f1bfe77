// General utilities: text formatting and parsing, encodings and system services.
#pragma once

#include <string>

namespace SystemBase {

class GStringFormat {
public:
    // printf-style formatting; a text that does not fit 4096 bytes (or a formatting error)
    // gives "<formatting error or buffer exceeded>" instead of a silently cut text.
    static std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
};

}  // namespace SystemBase
