// The error interface shared by the library, the engine's error sink and hosts.
#pragma once

#include <string>

// Slot order is part of the binary interface; there is deliberately no virtual destructor.
class IException {
public:
    virtual const char* GetMessage() = 0;
    virtual const char* GetFile() = 0;
    virtual unsigned GetLine() = 0;
    virtual void SetError(const char* msg, unsigned line, const char* file) = 0;
    virtual bool HasError() = 0;
    virtual void Report(IException* error) = 0;
    virtual void Clear() = 0;
    virtual void SetErrorCode(int code, const char* msg, unsigned line, const char* file) = 0;
    virtual int GetCode() = 0;

protected:
    IException() = default;
    IException(const IException&) = default;
    IException& operator=(const IException&) = default;
    ~IException() = default;
};

// The one error type the library throws (by value). Hosts that link these headers may catch it.
class GException : public IException {
public:
    GException() = default;
    GException(std::string message, unsigned line, std::string file, int code = 0);

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
    std::string message_;
    unsigned line_ = 0;
    std::string file_;
    bool set_ = false;
    int code_ = 0;
};
