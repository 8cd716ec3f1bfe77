#include "QuietSink.h"

#include "libfilter/Siblings.h"

namespace lfx {

namespace {

// Effects run on several threads at once; each keeps its own error state.
struct ThreadError {
    std::string message;
    std::string file;
    unsigned line = 0;
    int code = 0;
    bool set = false;
    bool reported = false;
};

thread_local ThreadError t_error;

}  // namespace

QuietSink::QuietSink() : previous_(liblog_SetGException(this)) {}

QuietSink::~QuietSink() {
    liblog_SetGException(previous_);
}

std::optional<std::string> QuietSink::TakeReport() {
    if (!t_error.reported) return std::nullopt;
    t_error.reported = false;
    return t_error.message;
}

const char* QuietSink::GetMessage() {
    return t_error.message.c_str();
}

const char* QuietSink::GetFile() {
    return t_error.file.c_str();
}

unsigned QuietSink::GetLine() {
    return t_error.line;
}

void QuietSink::SetError(const char* msg, unsigned line, const char* file) {
    SetErrorCode(0, msg, line, file);
}

bool QuietSink::HasError() {
    return t_error.set;
}

void QuietSink::Report(IException* error) {
    if (error != nullptr && error != this) {
        const char* msg = error->GetMessage();
        const char* file = error->GetFile();
        t_error.message = msg != nullptr ? msg : "";
        t_error.file = file != nullptr ? file : "";
        t_error.line = error->GetLine();
        t_error.code = error->GetCode();
        t_error.set = true;
    }
    t_error.reported = true;
}

void QuietSink::Clear() {
    t_error = ThreadError{};
}

void QuietSink::SetErrorCode(int code, const char* msg, unsigned line, const char* file) {
    if (msg == nullptr) return;
    t_error.message = msg;
    t_error.line = line;
    if (file != nullptr) t_error.file = file;
    t_error.code = code;
    t_error.set = true;
}

int QuietSink::GetCode() {
    return t_error.code;
}

}  // namespace lfx
