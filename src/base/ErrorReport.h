// Raising errors inside the library and reporting them at the host boundary.
//
// Inside the library every failure is a GException thrown by value. Every operation a host can
// call runs its body through GuardedCall, which turns whatever escapes into one report to the
// engine's error sink and the operation's failure value, so nothing crosses the boundary.
#pragma once

#include <string>
#include <type_traits>
#include <utility>

#include "libfilter/IException.h"

namespace MediaCore {

// Module names carried by errors, so a report names the module that raised or caught it.
namespace ErrorFile {
constexpr const char kCommonEffects[] = "CommonEffects";
constexpr const char kVideoEffectBase[] = "CVideoEffectBase";
constexpr const char k2DTo3D[] = "2DTo3D";
constexpr const char kRender3D[] = "Render3D";
constexpr const char kRotate90X[] = "Rotate90X";
constexpr const char kProcessor[] = "../libcore/libcore_srcutils/CProcessor";
constexpr const char kVideoFrame[] = "../libcore/libcore_srcutils/CVideoFrame";
constexpr const char kGString[] = "../MyBase/GString";
constexpr const char kGUtils[] = "../MyBase/GUtils";
}  // namespace ErrorFile

// Texts shared by several modules.
namespace ErrorText {
constexpr const char kNullPointer[] = "fatal error:null pointer";
constexpr const char kMallocFailed[] = "malloc memory failed";
constexpr const char kUnknownException[] = "catch unknown all exception";
}  // namespace ErrorText

[[noreturn]] void Raise(const char* file, unsigned line, const std::string& message, int code = 0);

// Hands the exception being handled to the error sink by its kind. Call only inside a catch.
void ReportCurrentException(const char* file, unsigned line) noexcept;

template <class R, class Body>
R GuardedCallOr(const char* file, unsigned line, R failure, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        ReportCurrentException(file, line);
    }
    return failure;
}

template <class Body>
auto GuardedCall(const char* file, unsigned line, Body&& body) noexcept {
    using R = decltype(body());
    if constexpr (std::is_void_v<R>) {
        try {
            body();
        } catch (...) {
            ReportCurrentException(file, line);
        }
    } else {
        return GuardedCallOr(file, line, R{}, std::forward<Body>(body));
    }
}

}  // namespace MediaCore

#define LF_RAISE(file, message) ::MediaCore::Raise(file, __LINE__, message)
#define LF_REQUIRE(file, pointer) \
    ((pointer) ? void() : ::MediaCore::Raise(file, __LINE__, ::MediaCore::ErrorText::kNullPointer))
// Runs `body` (a lambda) and answers its result, or its type's zero value after a report.
#define LF_GUARDED(file, ...) ::MediaCore::GuardedCall(file, __LINE__, __VA_ARGS__)
// The same with an explicit failure value.
#define LF_GUARDED_OR(file, failure, ...) \
    ::MediaCore::GuardedCallOr(file, __LINE__, failure, __VA_ARGS__)
