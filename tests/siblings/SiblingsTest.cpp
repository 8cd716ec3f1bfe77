// The shipped siblings: error sink, logger and libcore.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "libfilter/IException.h"
#include "libfilter/Siblings.h"
#include "support/EffectRoster.h"

TEST(Siblings, SinkKeepsLastErrorLogsOneLinePerReportAndGivesWayToAHostSink) {
    IException* sink = GetGException();
    GLogger* logger = GetLogger();
    const int level = logger->GetLevel();
    logger->SetLevel(LOG_LEVEL_ERROR);
    const unsigned before = liblog_GetReportCount();

    testing::internal::CaptureStderr();
    GException error("disk on fire", 42, "Module");
    sink->Report(&error);
    sink->SetError("second", 7, "Other");
    sink->Report(nullptr);
    logger->Log(LOG_LEVEL_WARNING, "Quiet", 1, "filtered out");
    const std::string log = testing::internal::GetCapturedStderr();
    logger->SetLevel(level);

    EXPECT_EQ(liblog_GetReportCount() - before, 2u);
    EXPECT_EQ(log, "error Module:42 disk on fire\nerror Other:7 second\n");
    EXPECT_EQ(std::make_pair(sink->HasError(), std::string(sink->GetMessage())),
              std::make_pair(true, std::string("second")));
    sink->Clear();
    EXPECT_EQ(std::make_pair(sink->HasError(), sink->GetLine()), std::make_pair(false, 0u));
    // A host's sink takes over until null puts liblog's back.
    testing_support::SilentSink host;
    EXPECT_EQ(GetGException(), &host);
    GetGException()->Report(&error);
    EXPECT_EQ(host.Reports(), 1u);
    EXPECT_EQ(liblog_SetGException(nullptr), &host);
    EXPECT_EQ(GetGException(), sink);
}

TEST(Siblings, GExceptionFields) {
    GException e;
    // Whether it holds an error, its code, file, line and message.
    auto fields = [&] {
        return std::make_tuple(e.HasError(), e.GetCode(), std::string(e.GetFile()), e.GetLine(),
                               std::string(e.GetMessage()));
    };
    e.SetError(nullptr, 5, "ignored");
    EXPECT_EQ(fields(), std::make_tuple(false, 0, std::string(), 0u, std::string()));
    e.SetErrorCode(9, "msg", 5, nullptr);
    EXPECT_EQ(fields(), std::make_tuple(true, 9, std::string(), 5u, std::string("msg")));
    e.SetError("again", 6, "file");
    EXPECT_EQ(fields(), std::make_tuple(true, 0, std::string("file"), 6u, std::string("again")));
    e.Clear();
    EXPECT_EQ(fields(), std::make_tuple(false, 0, std::string(), 0u, std::string()));
}

TEST(Siblings, CoreCopiesAndKnowsTheProcessor) {
    std::vector<unsigned char> from(1000, 7), to(1000);
    EXPECT_EQ(libcore_memcpy(to.data(), from.data(), from.size()), to.data());
    EXPECT_EQ(from, to);
    EXPECT_EQ(libcore_memcpy(nullptr, nullptr, 0), nullptr);

    const unsigned caps = libcore_GetCpuCapability();
#if defined(__x86_64__)
    __builtin_cpu_init();
    EXPECT_EQ((caps & CPU_CAP_SSE2) != 0, __builtin_cpu_supports("sse2") != 0);
    EXPECT_EQ((caps & CPU_CAP_SSSE3) != 0, __builtin_cpu_supports("ssse3") != 0);
    EXPECT_EQ((caps & CPU_CAP_SSE41) != 0, __builtin_cpu_supports("sse4.1") != 0);
    EXPECT_EQ((caps & CPU_CAP_AVX2) != 0, __builtin_cpu_supports("avx2") != 0);
    EXPECT_EQ((caps & CPU_CAP_AVX512BW) != 0, __builtin_cpu_supports("avx512bw") != 0);
#else
    EXPECT_EQ(caps, 0u);
#endif
}
