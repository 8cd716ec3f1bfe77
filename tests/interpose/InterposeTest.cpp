// A host process that defines the sibling entry points itself takes them over: libfilter must
// reach these definitions, not liblog's or libcore's.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "libfilter/CVideoFrame.h"
#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"

namespace {

class HostSink : public IException {
public:
    const char* GetMessage() override { return message.c_str(); }
    const char* GetFile() override { return file.c_str(); }
    unsigned GetLine() override { return 0; }
    void SetError(const char* msg, unsigned, const char* f) override {
        message = msg;
        file = f;
    }
    bool HasError() override { return false; }
    void Report(IException* e) override {
        ++reports;
        if (e != nullptr) SetError(e->GetMessage(), 0, e->GetFile());
    }
    void Clear() override {}
    void SetErrorCode(int, const char* msg, unsigned l, const char* f) override {
        SetError(msg, l, f);
    }
    int GetCode() override { return 0; }

    std::string message, file;
    int reports = 0;
};

HostSink g_hostSink;
int g_copies = 0;

}  // namespace

extern "C" IException* GetGException() {
    return &g_hostSink;
}

extern "C" void* libcore_memcpy(void* destination, const void* source, size_t count) {
    ++g_copies;
    return std::memcpy(destination, source, count);
}

TEST(Interposition, HostDefinitionsTakeOver) {
    EXPECT_EQ(libfilter_GetFilter(nullptr, 0), nullptr);
    EXPECT_EQ(g_hostSink.reports, 1);
    EXPECT_EQ(g_hostSink.message, "No the effect=0");
    EXPECT_EQ(g_hostSink.file, "CommonEffects");

    std::vector<unsigned char> pixels(64, 1);
    unsigned char* data[] = {pixels.data()};
    int pitches[] = {16};
    MediaCore::CVideoFrame frame(false, MediaCore::PIXFMT_BGRA32, 4, 4, true);
    frame.SetBuffer(data, pitches, nullptr);
    MediaCore::GVideoFrame* copy = frame.Clone();
    ASSERT_NE(copy, nullptr);
    copy->Free();
    EXPECT_EQ(g_copies, 1);
}
