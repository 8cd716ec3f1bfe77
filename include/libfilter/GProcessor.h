// The processor interface every effect shows to a host, and the string list it hands out.
#pragma once

namespace MediaCore {

// Processor ids; an effect's id is also the factory id that builds it.
enum AVProcessorID : unsigned {
    AVPROCESSOR_BRIGHTNESS_CONTRAST = 3,
    AVPROCESSOR_REVERSE = 4,
    AVPROCESSOR_2DTO3D = 5,
    AVPROCESSOR_GAUSS_BLUR = 6,
    AVPROCESSOR_LAPLACIAN_SHARPEN = 7,
    AVPROCESSOR_GRAY = 8,
    AVPROCESSOR_FLIP_COLOR = 9,
    AVPROCESSOR_INVERT = 10,
    AVPROCESSOR_AGED_FILM = 11,
    AVPROCESSOR_EMBOSS = 12,
    AVPROCESSOR_MOSAIC = 13,
    AVPROCESSOR_MIRAGE = 14,
    AVPROCESSOR_TRANSPARENCY = 15,
    AVPROCESSOR_COLOR_FILTER = 16,
    AVPROCESSOR_ADD_NOISE = 17,
    AVPROCESSOR_ROTATE90 = 19,
};

// A string object owned by a GStringList. Slot order is ABI.
class GString {
public:
    virtual const char* GetString() = 0;
    virtual void Free() = 0;

protected:
    ~GString() = default;
};

// An ordered list of owned strings; released with its own Free. Slot order is ABI.
class GStringList {
public:
    virtual void Free() = 0;
    virtual unsigned GetCount() = 0;
    virtual unsigned Append(GString* s) = 0;
    virtual unsigned Append(const char* text) = 0;
    virtual unsigned Insert(int index, GString* s) = 0;
    virtual unsigned Insert(unsigned index, const char* text) = 0;
    virtual bool Remove(int index) = 0;
    virtual unsigned Find(GString* s) = 0;
    virtual unsigned Find(const char* text) = 0;
    virtual GString* GetAt(unsigned index) = 0;
    virtual void Clear() = 0;

protected:
    ~GStringList() = default;
};

// Failure value of the list operations that answer a position.
constexpr unsigned kNoPosition = 0xFFFFFFFFu;

// What a host sees of any processor. Slot order is ABI; no virtual destructor here.
class GProcessor {
public:
    virtual void* GetInterface(const char* name) = 0;
    virtual void Free() = 0;
    virtual unsigned GetType() = 0;
    virtual unsigned GetSubType() = 0;
    virtual unsigned GetID() = 0;
    virtual bool SetProperty(const char* name, const char* value) = 0;
    virtual const char* GetProperty(const char* name, int* type) = 0;
    virtual GStringList* GetPropertyNames() = 0;

protected:
    ~GProcessor() = default;
};

}  // namespace MediaCore
