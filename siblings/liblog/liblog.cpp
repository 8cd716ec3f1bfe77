// liblog: the engine-wide error sink and logger that libfilter reports to when it runs
// outside its engine. An engine with its own liblog replaces this library at load time.
#include <atomic>
#include <cstdio>
#include <string>

#include "libfilter/Siblings.h"

namespace {

const char* LevelName(int level) {
    switch (level) {
        case LOG_LEVEL_DEBUG:
            return "debug";
        case LOG_LEVEL_INFO:
            return "info";
        case LOG_LEVEL_NOTICE:
            return "notice";
        case LOG_LEVEL_WARNING:
            return "warning";
        case LOG_LEVEL_ERROR:
            return "error";
        case LOG_LEVEL_FATAL:
            return "fatal";
        default:
            return nullptr;
    }
}

// Writes "level file:line text" lines to standard error, dropping those below its level.
class StderrLogger final : public GLogger {
public:
    void SetLevel(int level) override { level_.store(level); }
    int GetLevel() override { return level_.load(); }
    void Flush() override { std::fflush(stderr); }
    void Log(int level, const char* file, int line, const char* text) override {
        if (level < level_.load()) return;
        const char* name = LevelName(level);
        std::string levelText = name != nullptr ? name : std::to_string(level);
        std::fprintf(stderr, "%s %s:%d %s\n", levelText.c_str(), file != nullptr ? file : "?", line,
                     text != nullptr ? text : "");
    }

private:
    std::atomic<int> level_{LOG_LEVEL_DEBUG};
};

// Keeps the last reported error and counts reports; each report is one logged line.
class ErrorSink final : public IException {
public:
    const char* GetMessage() override { return message_.c_str(); }
    const char* GetFile() override { return file_.c_str(); }
    unsigned GetLine() override { return line_; }
    void SetError(const char* msg, unsigned line, const char* file) override {
        SetErrorCode(0, msg, line, file);
    }
    bool HasError() override { return set_; }
    void Report(IException* error) override {
        if (error != nullptr && error != this) {
            const char* msg = error->GetMessage();
            const char* file = error->GetFile();
            message_ = msg != nullptr ? msg : "";
            file_ = file != nullptr ? file : "";
            line_ = error->GetLine();
            code_ = error->GetCode();
            set_ = true;
        }
        ++reports_;
        GetLogger()->Log(LOG_LEVEL_ERROR, file_.c_str(), static_cast<int>(line_), message_.c_str());
    }
    void Clear() override {
        message_.clear();
        file_.clear();
        line_ = 0;
        set_ = false;
        code_ = 0;
    }
    void SetErrorCode(int code, const char* msg, unsigned line, const char* file) override {
        if (msg == nullptr) return;
        message_ = msg;
        line_ = line;
        if (file != nullptr) file_ = file;
        set_ = true;
        code_ = code;
    }
    int GetCode() override { return code_; }

    unsigned ReportCount() const { return reports_.load(); }

private:
    std::string message_;
    std::string file_;
    unsigned line_ = 0;
    bool set_ = false;
    int code_ = 0;
    std::atomic<unsigned> reports_{0};
};

StderrLogger g_logger;
ErrorSink g_sink;
std::atomic<IException*> g_installed{nullptr};

}  // namespace

extern "C" IException* GetGException() {
    IException* installed = g_installed.load();
    return installed != nullptr ? installed : &g_sink;
}

extern "C" GLogger* GetLogger() {
    return &g_logger;
}

extern "C" IException* liblog_SetGException(IException* sink) {
    IException* previous = g_installed.exchange(sink);
    return previous != nullptr ? previous : &g_sink;
}

extern "C" unsigned liblog_GetReportCount() {
    return g_sink.ReportCount();
}
