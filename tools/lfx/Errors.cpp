#include "Errors.h"

#include "Ffmpeg.h"

namespace lfx {

void Fail(const std::string& what, int code) {
    if (code < 0) throw UserError(what + ": " + ErrorText(code));
    throw UserError(what);
}

void FailUsage(const std::string& what) {
    throw UsageError(what);
}

}  // namespace lfx
