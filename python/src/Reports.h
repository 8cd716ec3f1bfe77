// The error sink the Python module installs in place of liblog's: each report is kept for the
// thread that made it, so a failed call can raise with the library's own words instead of the
// report going to the log. Effects run on several Python threads at once.
#pragma once

#include <optional>
#include <string>

#include "libfilter/IException.h"

namespace pylf {

class CReportSink final : public IException {
public:
    // Installs the sink for the lifetime of the object and puts the previous one back after.
    CReportSink();
    ~CReportSink();
    CReportSink(const CReportSink&) = delete;
    CReportSink& operator=(const CReportSink&) = delete;

    // The latest report made on the calling thread since the last call, if any.
    static std::optional<std::string> TakeReport();

    const char* GetMessage() override;
    const char* GetFile() override;
    unsigned GetLine() override;
    void SetError(const char* msg, unsigned line, const char* file) override;
    bool HasError() override;
    void Report(IException* error) override;
    void Clear() override;
    void SetErrorCode(int code, const char* msg, unsigned line, const char* file) override;
    int GetCode() override;

private:
    IException* previous_;
};

}  // namespace pylf
