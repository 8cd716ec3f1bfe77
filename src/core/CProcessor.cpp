#include "libfilter/CProcessor.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/ErrorReport.h"
#include "base/GStringList.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace MediaCore {

constexpr const char* kFile = ErrorFile::kProcessor;

namespace {

// Out of line, so the comparison is not folded away at the call.
__attribute__((noinline)) bool IsNull(const void* p) {
    return p == nullptr;
}

[[noreturn]] void RaiseNoProperty(const std::string& name) {
    LF_RAISE(kFile, "Property with name(" + name + ") does not exist");
}

}  // namespace

CProcessor::PropertyNode CProcessor::PropertyNode::Int32(int32_t v) {
    PropertyNode node;
    node.value = std::to_string(v);
    node.type = PROPERTY_INT32;
    node.parsed.i32 = v;
    return node;
}

CProcessor::PropertyNode CProcessor::PropertyNode::Double(double v, const char* text) {
    PropertyNode node;
    node.value = text;
    node.type = PROPERTY_DOUBLE;
    node.parsed.d = v;
    return node;
}

CProcessor::CProcessor(AVProcessorID id, unsigned type, unsigned subtype)
    : type_(type), subtype_(subtype), id_(id) {}

CProcessor::~CProcessor() = default;

// Hosts may call Free through a null processor pointer and expect nothing to happen. The
// compiler assumes `this` is never null, so this file is built with
// -fno-delete-null-pointer-checks to keep the test.
void CProcessor::Free() {
    if (IsNull(this)) return;
    delete this;
}
unsigned CProcessor::GetType() {
    return type_;
}
unsigned CProcessor::GetSubType() {
    return subtype_;
}
unsigned CProcessor::GetID() {
    return id_;
}

void CProcessor::AddProperty(const std::string& name, const PropertyNode& node) {
    auto [it, inserted] = properties_.emplace(name, node);
    // A text property's parsed form points at its own stored text, never the caller's.
    if (inserted && it->second.type == PROPERTY_TEXT) {
        it->second.parsed.text = it->second.value.c_str();
    }
}

void CProcessor::AddInterface(const std::string& name, void* pointer) {
    interfaces_.emplace(name, pointer);
}

CProcessor::PropertyNode* CProcessor::GetProperty(const std::string& name) {
    auto it = properties_.find(name);
    return it == properties_.end() ? nullptr : &it->second;
}

void* CProcessor::GetInterface(const char* name) {
    return LF_GUARDED(kFile, [&] {
        LF_REQUIRE(kFile, name);
        auto it = interfaces_.find(name);
        if (it == interfaces_.end()) LF_RAISE(kFile, std::string("No the interface:") + name);
        return it->second;
    });
}

bool CProcessor::SetProperty(const char* name, const char* value) {
    return LF_GUARDED(kFile, [&] {
        LF_REQUIRE(kFile, value);
        const std::string key = name != nullptr ? name : "";
        PropertyNode* node = GetProperty(key);
        if (node == nullptr) RaiseNoProperty(key);
        node->value = value;
        switch (node->type) {
            case PROPERTY_TEXT: {
                // The quick copy is superseded by OnSetProperty and dropped without being
                // freed, as engines built against this library expect.
                char* copy = strdup(value);
#if defined(__SANITIZE_ADDRESS__)
                __lsan_ignore_object(copy);
#endif
                node->parsed.text = copy;
                break;
            }
            case PROPERTY_INT64:
                node->parsed.i64 = std::atoi(value);
                break;
            case PROPERTY_INT32:
                node->parsed.i32 = std::atoi(value);
                break;
            case PROPERTY_INT16:
                node->parsed.i16 = static_cast<int16_t>(std::atoi(value));
                break;
            default:
                break;
        }
        OnSetProperty(key, *node);
        return true;
    });
}

int CProcessor::OnSetProperty(const std::string&, PropertyNode& node) {
    const char* text = node.value.c_str();
    switch (node.type) {
        case PROPERTY_TEXT:
            node.parsed.text = text;
            return static_cast<int>(reinterpret_cast<intptr_t>(text));
        case PROPERTY_DOUBLE:
            return std::sscanf(text, "%lf", &node.parsed.d);
        case PROPERTY_INT64: {
            long long v = node.parsed.i64;
            const int read = std::sscanf(text, "%lld", &v);
            node.parsed.i64 = v;
            return read;
        }
        case PROPERTY_INT32:
            return std::sscanf(text, "%d", &node.parsed.i32);
        case PROPERTY_INT16:
            return std::sscanf(text, "%hd", &node.parsed.i16);
        default:
            return static_cast<int>(node.type);
    }
}

const char* CProcessor::GetProperty(const char* name, int* type) {
    return LF_GUARDED(kFile, [&]() -> const char* {
        LF_REQUIRE(kFile, name);
        const PropertyNode* node = GetProperty(std::string(name));
        if (node == nullptr) RaiseNoProperty(name);
        if (type != nullptr) *type = static_cast<int>(node->type);
        return node->value.c_str();
    });
}

GStringList* CProcessor::GetPropertyNames() {
    return LF_GUARDED(kFile, [&]() -> GStringList* {
        auto list = std::make_unique<CGStringList>();
        for (const auto& entry : properties_) {
            if (list->Append(entry.first.c_str()) == kNoPosition) {
                LF_RAISE(kFile, ErrorText::kMallocFailed);
            }
        }
        return list.release();
    });
}

}  // namespace MediaCore
