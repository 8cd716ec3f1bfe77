// The library's string list, handed to hosts by GetPropertyNames.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "libfilter/GProcessor.h"

namespace MediaCore {

class CGString final : public GString {
public:
    explicit CGString(std::string text) : text_(std::move(text)) {}
    const char* GetString() override { return text_.c_str(); }
    void Free() override { delete this; }

private:
    std::string text_;
};

class CGStringList final : public GStringList {
public:
    void Free() override { delete this; }
    unsigned GetCount() override { return static_cast<unsigned>(items_.size()); }
    unsigned Append(GString* s) override;
    unsigned Append(const char* text) override;
    unsigned Insert(int index, GString* s) override;
    unsigned Insert(unsigned index, const char* text) override;
    bool Remove(int index) override;
    unsigned Find(GString* s) override;
    unsigned Find(const char* text) override;
    GString* GetAt(unsigned index) override;
    void Clear() override { items_.clear(); }

private:
    struct FreeString {
        void operator()(GString* s) const { s->Free(); }
    };
    using Item = std::unique_ptr<GString, FreeString>;

    unsigned InsertOwned(int index, GString* s);

    std::vector<Item> items_;
};

}  // namespace MediaCore
