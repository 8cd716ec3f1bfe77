// Property names and texts on every effect, through every operation of the processor face and
// of the name list it hands out; then a small frame of each kind, so that whatever the texts
// parsed to reaches the pixel code.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"

using namespace MediaCore;

namespace {

volatile size_t g_sink;  // keeps the length reads below from being optimised away

void Read(const char* text) {
    if (text != nullptr) g_sink = g_sink + std::strlen(text);
}

// A known name, a fuzzed one, or null.
const char* Name(FuzzedDataProvider& input, const std::vector<std::string>& names,
                 std::string& fuzzed) {
    switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0:
            return nullptr;
        case 1:
            fuzzed = input.ConsumeRandomLengthString(32);
            return fuzzed.c_str();
        default:
            return names[input.ConsumeIntegralInRange<size_t>(0, names.size() - 1)].c_str();
    }
}

// Every operation of a name list, at indexes in and around its range.
void WorkList(FuzzedDataProvider& input, GStringList& list) {
    const int operations = input.ConsumeIntegralInRange(0, 6);
    for (int i = 0; i < operations; ++i) {
        const int index = input.ConsumeIntegralInRange(-2, 20);
        const std::string text = input.ConsumeRandomLengthString(16);
        switch (input.ConsumeIntegralInRange(0, 6)) {
            case 0:
                list.Append(input.ConsumeBool() ? text.c_str() : nullptr);
                break;
            case 1:
                list.Insert(static_cast<unsigned>(index), text.c_str());
                break;
            case 2:
                list.Insert(index, list.GetAt(static_cast<unsigned>(index)));  // may be held
                break;
            case 3:
                list.Remove(index);
                break;
            case 4:
                list.Find(input.ConsumeBool() ? text.c_str() : nullptr);
                break;
            case 5:
                if (GString* s = list.GetAt(static_cast<unsigned>(index))) Read(s->GetString());
                break;
            default:
                list.Find(list.GetAt(static_cast<unsigned>(index)));
                break;
        }
    }
    for (unsigned i = 0; i < list.GetCount(); ++i)
        Read(list.GetAt(i)->GetString());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const fuzzing::EffectPtr effect = fuzzing::CreateEffect(input);
    if (!effect) return 0;
    const std::vector<std::string> names = fuzzing::PropertyNames(*effect);
    while (input.remaining_bytes() > 8) {
        std::string fuzzedName;
        const char* name = Name(input, names, fuzzedName);
        switch (input.ConsumeIntegralInRange(0, 4)) {
            case 0: {
                const std::string value = input.ConsumeBool()
                                              ? input.ConsumeRandomLengthString(48)
                                              : fuzzing::FuzzValue(input, name ? name : "");
                effect->SetProperty(name,
                                    input.ConsumeIntegralInRange(0, 15) ? value.c_str() : nullptr);
                break;
            }
            case 1: {
                int type = -1;
                Read(effect->GetProperty(name, input.ConsumeBool() ? &type : nullptr));
                break;
            }
            case 2:
                if (GStringList* list = effect->GetPropertyNames()) {
                    WorkList(input, *list);
                    list->Free();
                }
                break;
            case 3:
                effect->GetInterface(name);
                break;
            default:
                effect->Seek(input.ConsumeIntegral<unsigned>());
                g_sink = effect->GetDuration() + effect->GetType() + effect->GetSubType() +
                         effect->GetID();
                break;
        }
    }
    // A small frame of each kind the effects understand, shaped by what input is left.
    fuzzing::BoundPassCounts(input, *effect);
    for (int format : {PIXFMT_BGRA32, PIXFMT_YUV420P, PIXFMT_YUVA420P}) {
        if (auto frame = fuzzing::FuzzFrame::MakeShaped(input, format, 9, 5)) {
            ImagePostion position{};
            effect->ProcFrameInPlace(&position, 0, &frame->Frame());
        }
    }
    return 0;
}
