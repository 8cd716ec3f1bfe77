#include "base/ErrorReport.h"

#include <exception>

#include "libfilter/Siblings.h"

namespace MediaCore {

void Raise(const char* file, unsigned line, const std::string& message, int code) {
    throw GException(message, line, file, code);
}

void ReportCurrentException(const char* file, unsigned line) noexcept {
    try {
        IException* sink = GetGException();
        if (sink == nullptr) return;
        try {
            throw;
        } catch (GException& error) {
            sink->Report(&error);
        } catch (const std::exception& error) {
            sink->SetError(error.what(), line, file);
            sink->Report(nullptr);
        } catch (...) {
            sink->SetError(ErrorText::kUnknownException, line, file);
            sink->Report(nullptr);
        }
    } catch (...) {
        // A sink that throws is the host's fault; it must still not unwind through us.
    }
}

}  // namespace MediaCore

GException::GException(std::string message, unsigned line, std::string file, int code)
    : message_(std::move(message)), line_(line), file_(std::move(file)), set_(true), code_(code) {}

const char* GException::GetMessage() {
    return message_.c_str();
}
const char* GException::GetFile() {
    return file_.c_str();
}
unsigned GException::GetLine() {
    return line_;
}
bool GException::HasError() {
    return set_;
}
void GException::Report(IException*) {}
int GException::GetCode() {
    return code_;
}

void GException::SetError(const char* msg, unsigned line, const char* file) {
    SetErrorCode(0, msg, line, file);
}

void GException::SetErrorCode(int code, const char* msg, unsigned line, const char* file) {
    if (msg == nullptr) return;
    message_ = msg;
    line_ = line;
    if (file != nullptr) file_ = file;
    set_ = true;
    code_ = code;
}

void GException::Clear() {
    message_.clear();
    file_.clear();
    line_ = 0;
    set_ = false;
    code_ = 0;
}
