// The failure lfx reports to a person: one line on standard error and a non-zero exit.
#pragma once

#include <stdexcept>
#include <string>

namespace lfx {

class UserError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A command line that asks for something impossible or unknown: exit code 2.
class UsageError : public UserError {
public:
    using UserError::UserError;
};

// Exit codes: 0 done, 1 the work failed, 2 the command line is wrong, 128 + N stopped by signal N.
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// Throws a UsageError made of `what`.
[[noreturn]] void FailUsage(const std::string& what);

// Throws a UserError made of `what` and, for a negative FFmpeg code, FFmpeg's text for it.
[[noreturn]] void Fail(const std::string& what, int code = 0);

}  // namespace lfx
