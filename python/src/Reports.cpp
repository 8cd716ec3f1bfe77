#include "Reports.h"

#include "libfilter/Siblings.h"

namespace pylf {

namespace {

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

CReportSink::CReportSink() : previous_(liblog_SetGException(this)) {}

CReportSink::~CReportSink() {
    liblog_SetGException(previous_);
}

std::optional<std::string> CReportSink::TakeReport() {
    if (!t_error.reported) return std::nullopt;
    t_error.reported = false;
    return t_error.message.empty() ? std::string("the library reported a failure")
                                   : t_error.message;
}

const char* CReportSink::GetMessage() {
    return t_error.message.c_str();
}

const char* CReportSink::GetFile() {
    return t_error.file.c_str();
}

unsigned CReportSink::GetLine() {
    return t_error.line;
}

void CReportSink::SetError(const char* msg, unsigned line, const char* file) {
    SetErrorCode(0, msg, line, file);
}

bool CReportSink::HasError() {
    return t_error.set;
}

void CReportSink::Report(IException* error) {
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

void CReportSink::Clear() {
    t_error = ThreadError{};
}

void CReportSink::SetErrorCode(int code, const char* msg, unsigned line, const char* file) {
    if (msg == nullptr) return;
    t_error.message = msg;
    t_error.line = line;
    if (file != nullptr) t_error.file = file;
    t_error.code = code;
    t_error.set = true;
}

int CReportSink::GetCode() {
    return t_error.code;
}

}  // namespace pylf
