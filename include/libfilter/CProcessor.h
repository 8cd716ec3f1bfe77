// The one implementation of the processor property and interface machinery.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "libfilter/GProcessor.h"

namespace MediaCore {

// Property type tags: how the text is also kept in parsed form.
enum PropertyType : unsigned {
    PROPERTY_TEXT = 0,
    PROPERTY_DOUBLE = 1,
    PROPERTY_INT64 = 2,
    PROPERTY_INT32 = 3,
    PROPERTY_INT16 = 4,
};

class CProcessor : public GProcessor {
public:
    struct PropertyNode {
        std::string value;
        unsigned type = PROPERTY_TEXT;
        union {
            const char* text;
            double d;
            int64_t i64;
            int32_t i32;
            int16_t i16;
        } parsed = {nullptr};

        static PropertyNode Int32(int32_t v);
        static PropertyNode Double(double v, const char* text);
    };

    void* GetInterface(const char* name) override;
    void Free() override;
    unsigned GetType() override;
    unsigned GetSubType() override;
    unsigned GetID() override;
    bool SetProperty(const char* name, const char* value) override;
    const char* GetProperty(const char* name, int* type) override;
    GStringList* GetPropertyNames() override;

    virtual ~CProcessor();
    // Called after every successful SetProperty; effects call this base version first.
    virtual int OnSetProperty(const std::string& name, PropertyNode& node);

protected:
    CProcessor(AVProcessorID id, unsigned type, unsigned subtype);
    CProcessor(const CProcessor&) = delete;
    CProcessor& operator=(const CProcessor&) = delete;

    void AddProperty(const std::string& name, const PropertyNode& node);
    void AddInterface(const std::string& name, void* pointer);
    PropertyNode* GetProperty(const std::string& name);

private:
    unsigned type_;
    unsigned subtype_;
    AVProcessorID id_;
    std::map<std::string, PropertyNode> properties_;
    std::map<std::string, void*> interfaces_;
};

}  // namespace MediaCore
