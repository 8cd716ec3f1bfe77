#include <typeinfo>

#include "base/ErrorReport.h"

#include "core/Described.h"
#include "core/OnePass.h"
#include "libfilter/CVideoFrame.h"
#include "libfilter/EffectBase.h"
#include "libfilter/Siblings.h"

namespace MediaCore {

constexpr const char* kFile = ErrorFile::kVideoEffectBase;

namespace {

// The effect's result on `source`, written into `target` row by row as the effect walks it.
void RunOnePass(CImageEffectBase& effect, ImagePostion* position, int n, CVideoFrame& source,
                CVideoFrame& target) {
    OnePassCopy pass(source, target);
    effect.ProcFrameInner(position, n, &target);
    pass.Finish();
}

}  // namespace

CVideoEffectBase::CVideoEffectBase(AVProcessorID id, unsigned subtype)
    : CProcessor(id, 1, subtype), duration_(1) {
    AddInterface(kVideoProcessorInterface, static_cast<GVideoProcessor*>(this));
    AddProperty("duration", PropertyNode::Int32(1));
}

int CVideoEffectBase::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CProcessor::OnSetProperty(name, node);
    if (name == "duration") duration_ = static_cast<unsigned>(node.parsed.i32);
    return result;
}

bool CVideoEffectBase::Seek(unsigned int) {
    return true;
}
unsigned CVideoEffectBase::GetDuration() {
    return duration_;
}
GVideoFrame* CVideoEffectBase::ProcFrame(ImagePostion*, int, GVideoFrame*) {
    return nullptr;
}
void CVideoEffectBase::ProcFrameInPlace(ImagePostion*, int, GVideoFrame*) {}
void CVideoEffectBase::BlendFrame(const ImagePostion*, int, GVideoFrame*, GVideoFrame*) {}

// Every image effect has the properties its description lists, with their default texts.
CImageEffectBase::CImageEffectBase(AVProcessorID id) : CVideoEffectBase(id, 2) {
    if (const EffectDescription* description = FindDescription(id)) {
        for (unsigned i = 0; i < description->propertyCount; ++i) {
            const PropertyDescription& property = description->properties[i];
            AddProperty(property.name, DefaultNode(property));
        }
    }
}

CImageEffectBase::~CImageEffectBase() = default;

GVideoFrame* CImageEffectBase::ProcFrame(ImagePostion* position, int n, GVideoFrame* frame) {
    return LF_GUARDED(kFile, [&]() -> GVideoFrame* {
        LF_REQUIRE(kFile, position);
        LF_REQUIRE(kFile, frame);
        // The library's own frames are copied and changed in one walk where the effect allows;
        // any other frame is copied by its own Clone.
        auto* own =
            typeid(*frame) == typeid(CVideoFrame) ? static_cast<CVideoFrame*>(frame) : nullptr;
        // One pass at a time on a thread: an effect working inside another's pass copies first.
        if (own != nullptr && RunsInOnePass(GetID()) && OnePassCopy::Active() == nullptr) {
            GVideoFrame* last = workFrame_.get();
            auto* donor = last != nullptr && typeid(*last) == typeid(CVideoFrame)
                              ? static_cast<CVideoFrame*>(last)
                              : nullptr;
            CVideoFrame* copy = CloneLayout(*own, donor);
            workFrame_.reset(copy);
            if (copy != nullptr) {
                RunOnePass(*this, position, n, *own, *copy);
                return copy;
            }
        } else {
            workFrame_.reset(frame->Clone());
        }
        if (!workFrame_) {
            // Clone reported its own failure; carry it on so the caller sees a null result.
            IException* sink = GetGException();
            if (sink != nullptr && sink->HasError()) {
                const char* message = sink->GetMessage();
                Raise(kFile, __LINE__, message != nullptr ? message : "", sink->GetCode());
            }
        }
        ProcFrameInner(position, n, workFrame_.get());
        return workFrame_.get();
    });
}

void CImageEffectBase::ProcFrameInPlace(ImagePostion* position, int n, GVideoFrame* frame) {
    LF_GUARDED(kFile, [&] {
        LF_REQUIRE(kFile, position);
        LF_REQUIRE(kFile, frame);
        ProcFrameInner(position, n, frame);
    });
}

}  // namespace MediaCore

extern "C" bool libfilter_ProcFrameInto(MediaCore::GVideoProcessor* effect,
                                        MediaCore::ImagePostion* position, int n,
                                        MediaCore::GVideoFrame* source,
                                        MediaCore::GVideoFrame* target) {
    using namespace MediaCore;
    return LF_GUARDED(kFile, [&] {
        LF_REQUIRE(kFile, effect);
        LF_REQUIRE(kFile, position);
        auto* image = dynamic_cast<CImageEffectBase*>(effect);
        const bool onePass = image != nullptr && source != nullptr && target != nullptr &&
                             RunsInOnePass(effect->GetID()) && OnePassCopy::Active() == nullptr &&
                             OnePassFits(*source, *target);
        // Checks the pair, and copies the pixels first unless the walk brings them over.
        CopyFrame(target, source, !onePass);
        if (onePass) {
            RunOnePass(*image, position, n, static_cast<CVideoFrame&>(*source),
                       static_cast<CVideoFrame&>(*target));
        } else {
            effect->ProcFrameInPlace(position, n, target);
        }
        return true;
    });
}
