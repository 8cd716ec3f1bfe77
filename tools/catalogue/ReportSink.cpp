#include "catalogue/ReportSink.h"

#include "libfilter/Siblings.h"

namespace catalogue {

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

ReportSink::ReportSink() : previous_(liblog_SetGException(this)) {}

ReportSink::~ReportSink() {
    liblog_SetGException(previous_);
}

std::optional<std::string> ReportSink::TakeReport() {
    if (!t_error.reported) return std::nullopt;
    t_error.reported = false;
    return t_error.message;
}

const char* ReportSink::GetMessage() {
    return t_error.message.c_str();
}

const char* ReportSink::GetFile() {
    return t_error.file.c_str();
}

unsigned ReportSink::GetLine() {
    return t_error.line;
}

void ReportSink::SetError(const char* msg, unsigned line, const char* file) {
    SetErrorCode(0, msg, line, file);
}

bool ReportSink::HasError() {
    return t_error.set;
}

void ReportSink::Report(IException* error) {
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

void ReportSink::Clear() {
    t_error = ThreadError{};
}

void ReportSink::SetErrorCode(int code, const char* msg, unsigned line, const char* file) {
    if (msg == nullptr) return;
    t_error.message = msg;
    t_error.line = line;
    if (file != nullptr) t_error.file = file;
    t_error.code = code;
    t_error.set = true;
}

int ReportSink::GetCode() {
    return t_error.code;
}

}  // namespace catalogue
