#include "base/GStringList.h"

#include "base/ErrorReport.h"
#include "libfilter/SystemBase.h"

namespace MediaCore {

using SystemBase::GStringFormat;
constexpr const char* kFile = ErrorFile::kGString;

// Shared by both Insert forms: checks the position and takes ownership of `s`.
unsigned CGStringList::InsertOwned(int index, GString* s) {
    if (index < 0 || static_cast<size_t>(index) > items_.size()) LF_RAISE(kFile, "error index:");
    for (size_t i = 0; i < items_.size(); ++i) {
        if (items_[i].get() == s) {
            LF_RAISE(kFile, GStringFormat::Format("Insert the same string:%s, at the postion is %d",
                                                  s->GetString(), static_cast<int>(i)));
        }
    }
    items_.emplace(items_.begin() + index, s);
    return static_cast<unsigned>(index);
}

unsigned CGStringList::Append(GString* s) {
    return Insert(static_cast<int>(GetCount()), s);
}

unsigned CGStringList::Append(const char* text) {
    return Insert(GetCount(), text);
}

unsigned CGStringList::Insert(int index, GString* s) {
    return LF_GUARDED_OR(kFile, kNoPosition, [&] {
        LF_REQUIRE(kFile, s);
        return InsertOwned(index, s);
    });
}

unsigned CGStringList::Insert(unsigned index, const char* text) {
    return LF_GUARDED_OR(kFile, kNoPosition, [&] {
        LF_REQUIRE(kFile, text);
        auto owned = std::make_unique<CGString>(text);
        const unsigned at = InsertOwned(static_cast<int>(index), owned.get());
        owned.release();  // the list owns it now
        return at;
    });
}

bool CGStringList::Remove(int index) {
    return LF_GUARDED(kFile, [&] {
        if (index < 0 || static_cast<size_t>(index) >= items_.size()) {
            LF_RAISE(kFile, "error index:");
        }
        items_.erase(items_.begin() + index);
        return true;
    });
}

unsigned CGStringList::Find(GString* s) {
    return LF_GUARDED_OR(kFile, kNoPosition, [&] {
        LF_REQUIRE(kFile, s);
        const char* text = s->GetString();
        LF_REQUIRE(kFile, text);
        return Find(text);
    });
}

unsigned CGStringList::Find(const char* text) {
    return LF_GUARDED_OR(kFile, kNoPosition, [&] {
        LF_REQUIRE(kFile, text);
        for (size_t i = 0; i < items_.size(); ++i) {
            const char* item = items_[i]->GetString();
            if (item != nullptr && std::string(item) == text) return static_cast<unsigned>(i);
        }
        LF_RAISE(kFile, GStringFormat::Format("Cant't find string:%s", text));
    });
}

GString* CGStringList::GetAt(unsigned index) {
    return index < items_.size() ? items_[index].get() : nullptr;
}

}  // namespace MediaCore
