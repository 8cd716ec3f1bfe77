// The failure lfx reports to a person: one line on standard error and a non-zero exit.
#pragma once

#include <stdexcept>
#include <string>

namespace lfx {

class UserError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws a UserError made of `what` and, for a negative FFmpeg code, FFmpeg's text for it.
[[noreturn]] void Fail(const std::string& what, int code = 0);

}  // namespace lfx
