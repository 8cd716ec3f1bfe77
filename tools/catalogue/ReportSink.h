// An error sink a host installs in place of liblog's: it keeps each report for the thread that
// made it instead of logging it, so probing for effects is silent and a failed call can be told
// to the person (lfx) or raised (the Python module) with the library's own words.
#pragma once

#include <optional>
#include <string>

#include "libfilter/IException.h"

namespace catalogue {

class ReportSink final : public IException {
public:
    // Installs the sink for the lifetime of the object and puts the previous one back after.
    ReportSink();
    ~ReportSink();
    ReportSink(const ReportSink&) = delete;
    ReportSink& operator=(const ReportSink&) = delete;

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

}  // namespace catalogue
