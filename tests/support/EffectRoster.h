// Every effect this build serves, as the library describes them, so the tests, fuzzers and peer
// benchmarks pick up each effect as it lands without a list of their own.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "catalogue/Catalogue.h"
#include "libfilter/GController.h"
#include "libfilter/GVideoProcessor.h"
#include "libfilter/IException.h"

namespace testing_support {

struct ServedEffect {
    unsigned id;
    const char* name;  // lfx's short name
    const MediaCore::EffectDescription* description;

    // A new instance (released with its Free); null when the library refuses.
    MediaCore::GVideoProcessor* Create() const;
};

// Effects of this build in id order: those the library describes, less those that need a
// converter library the build lacks.
const std::vector<ServedEffect>& ServedEffects();
// The effect with this id, or null when the build does not serve it.
const ServedEffect* FindServedEffect(unsigned id);

using catalogue::PropertyList;

// Whether a property repeats an effect's whole work ("..._count" passes): its texts must stay
// small where a run has to end soon, as in tests and fuzzing.
bool RepeatsWork(const std::string& property);

// Property texts at the edges of what the parsers take: signs, 32-bit limits and beyond, NaN
// and infinities, fractions, leading blanks, trailing junk and words.
const std::vector<std::string>& EdgeTexts();

// An error sink that keeps only a count and is safe to report to from any thread. Installed
// for its lifetime in place of the current sink.
class SilentSink final : public IException {
public:
    SilentSink();
    ~SilentSink();
    SilentSink(const SilentSink&) = delete;
    SilentSink& operator=(const SilentSink&) = delete;

    unsigned Reports() const { return reports_.load(); }

    const char* GetMessage() override { return ""; }
    const char* GetFile() override { return ""; }
    unsigned GetLine() override { return 0; }
    void SetError(const char*, unsigned, const char*) override {}
    bool HasError() override { return false; }
    void Report(IException*) override { ++reports_; }
    void Clear() override {}
    void SetErrorCode(int, const char*, unsigned, const char*) override {}
    int GetCode() override { return 0; }

private:
    IException* previous_;
    std::atomic<unsigned> reports_{0};
};

}  // namespace testing_support
