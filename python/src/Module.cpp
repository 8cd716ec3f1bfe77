// The `_libfilter` extension: effects made from the library's own descriptions, their
// properties as attributes, and frames processed with the interpreter released. The package's
// __init__.py adds the description records around it.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Frames.h"
#include "catalogue/Catalogue.h"
#include "catalogue/ReportSink.h"
#include "libfilter/CVideoFrame.h"

namespace pylf {

namespace {

using catalogue::EffectDescription;
using catalogue::PropertyDescription;
using catalogue::PropertyKind;
using catalogue::RangeBound;
using catalogue::ReportSink;

// A failure the library reported; Python sees it as libfilter.Error with the report's text.
class CLibraryFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

std::string PropertyNames(const EffectDescription& effect) {
    std::string names;
    for (unsigned i = 0; i < effect.propertyCount; ++i)
        names += (i ? ", " : "") + std::string(effect.properties[i].name);
    return names.empty() ? "it has none" : "its properties: " + names;
}

// The effects this build can make.
std::vector<const EffectDescription*> Available() {
    std::vector<const EffectDescription*> effects;
    for (const EffectDescription* effect : catalogue::Effects()) {
        if (catalogue::BuildGap(*effect) == nullptr) effects.push_back(effect);
    }
    return effects;
}

const EffectDescription& FindEffect(const std::string& name) {
    const EffectDescription* effect = catalogue::FindEffect(name);
    if (effect != nullptr && catalogue::BuildGap(*effect) != nullptr)
        throw py::value_error("effect " + Quoted(name) +
                              " is not available: " + catalogue::BuildGap(*effect));
    if (effect != nullptr) return *effect;
    std::string names;
    for (const EffectDescription* known : Available())
        names += (names.empty() ? "" : ", ") + std::string(known->name);
    throw py::value_error("unknown effect " + Quoted(name) + " (effects: " + names + ")");
}

// --- property values: Python numbers to the texts the effects parse, and back ---------------

std::string Decimal(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

// A whole number, clamped to the 32-bit range the effects parse into (they clamp further).
std::optional<long long> WholeNumber(py::handle value) {
    if (!PyIndex_Check(value.ptr())) return std::nullopt;
    py::int_ number = py::reinterpret_steal<py::int_>(PyNumber_Index(value.ptr()));
    int overflow = 0;
    const long long whole = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
    if (overflow != 0) return overflow > 0 ? INT_MAX : INT_MIN;
    return std::min<long long>(std::max<long long>(whole, INT_MIN), INT_MAX);
}

std::optional<long long> ColourNumber(const std::string& text) {
    const bool hex = text.size() == 7 && text[0] == '#';
    const bool prefixed =
        text.size() == 8 && (text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0);
    if (!hex && !prefixed) return std::nullopt;
    const std::string digits = text.substr(hex ? 1 : 2);
    char* end = nullptr;
    const long long value = std::strtoll(digits.c_str(), &end, 16);
    if (*end != '\0' || !std::isxdigit(static_cast<unsigned char>(digits[0]))) return std::nullopt;
    return value;
}

[[noreturn]] void RefuseValue(const EffectDescription& effect, const PropertyDescription& property,
                              const std::string& takes, py::handle value, bool wrongType) {
    const std::string text = "effect " + Quoted(effect.name) + ": " + property.name + " takes " +
                             takes + ", not " + std::string(py::repr(value));
    if (wrongType) throw py::type_error(text);
    throw py::value_error(text);
}

// Within the range the effect describes. Some effects clamp for themselves and some take any
// count (a blur of a billion passes), so the module clamps every value the same way. A top set
// by the frame's size is left to the effect, which clamps to the frame it gets.
double Clamped(const PropertyDescription& property, double value) {
    if (std::isnan(value)) return value;
    const double top = property.upper == RangeBound::Fixed ? property.max : INT_MAX;
    return std::min(std::max(value, property.min), top);
}

std::string ValueText(const EffectDescription& effect, const PropertyDescription& property,
                      py::handle value) {
    const bool text = py::isinstance<py::str>(value) || py::isinstance<py::bytes>(value);
    switch (property.kind) {
        case PropertyKind::Real: {
            if (text || !(PyFloat_Check(value.ptr()) || PyIndex_Check(value.ptr()) ||
                          py::hasattr(value, "__float__")))
                RefuseValue(effect, property, "a number", value, true);
            return Decimal(Clamped(property, value.cast<double>()));
        }
        case PropertyKind::Flag: {
            const std::optional<long long> flag = WholeNumber(value);
            if (!flag) RefuseValue(effect, property, "True, False, 1 or 0", value, true);
            if (*flag != 0 && *flag != 1)
                RefuseValue(effect, property, "True, False, 1 or 0", value, false);
            return std::to_string(*flag);
        }
        case PropertyKind::Color: {
            std::optional<long long> colour = py::isinstance<py::str>(value)
                                                  ? ColourNumber(value.cast<std::string>())
                                                  : WholeNumber(value);
            if (!colour || *colour < 0 || *colour > 0xFFFFFF)
                RefuseValue(effect, property, "a colour 0xRRGGBB (an integer, or '#RRGGBB')", value,
                            !text && !PyIndex_Check(value.ptr()));
            return std::to_string(*colour);
        }
        default: {
            const std::optional<long long> whole = WholeNumber(value);
            if (!whole) RefuseValue(effect, property, "an integer", value, true);
            return std::to_string(static_cast<long long>(Clamped(property, *whole)));
        }
    }
}

py::object TypedValue(const PropertyDescription& property, const char* text) {
    if (text == nullptr) return py::none();
    switch (property.kind) {
        case PropertyKind::Real:
            return py::float_(std::strtod(text, nullptr));
        case PropertyKind::Flag:
            return py::bool_(std::strtoll(text, nullptr, 10) == 1);
        default:
            return py::int_(std::strtoll(text, nullptr, 10));
    }
}

// --- effects and chains ------------------------------------------------------------------

// One instance of an effect. The library's effects are single-threaded; the lock keeps two
// Python threads that share an instance from running it at once.
class CEffect {
public:
    explicit CEffect(const EffectDescription& description) : description_(description) {
        ReportSink::TakeReport();
        processor_ = catalogue::Create(description);
        if (!processor_) {
            throw CLibraryFailure("the library refused to make effect " + Quoted(description.name) +
                                  ": " + ReportSink::TakeReport().value_or("no reason given"));
        }
    }

    const EffectDescription& Description() const { return description_; }

    const PropertyDescription* Find(const std::string& name) const {
        return catalogue::FindProperty(description_, name);
    }

    void Set(const PropertyDescription& property, py::handle value) {
        const std::string text = ValueText(description_, property, value);
        std::lock_guard<std::mutex> lock(mutex_);
        ReportSink::TakeReport();
        if (!processor_->SetProperty(property.name, text.c_str())) {
            throw CLibraryFailure("effect " + Quoted(description_.name) + " refused " +
                                  property.name + "=" + text + ": " +
                                  ReportSink::TakeReport().value_or("no reason given"));
        }
    }

    py::object Get(const PropertyDescription& property) {
        std::lock_guard<std::mutex> lock(mutex_);
        int type = 0;
        return TypedValue(property, processor_->GetProperty(property.name, &type));
    }

    // Runs the effect in place on the planes; the library's report on failure. Called with the
    // interpreter released.
    std::optional<std::string> Process(const Planes& planes) {
        std::lock_guard<std::mutex> lock(mutex_);
        ReportSink::TakeReport();
        try {
            MediaCore::CVideoFrame frame(false, planes.format, planes.width, planes.height, true);
            unsigned char* data[3] = {planes.data[0], planes.data[1], planes.data[2]};
            int pitch[3] = {planes.pitch[0], planes.pitch[1], planes.pitch[2]};
            frame.SetBuffer(data, pitch, nullptr);
            frame.SetTimeStamp(frames_);
            MediaCore::ImagePostion position{};
            processor_->ProcFrameInPlace(&position, frames_++, &frame);
        } catch (GException& error) {
            return std::string(error.GetMessage());
        } catch (const std::exception& error) {
            return std::string(error.what());
        }
        std::optional<std::string> report = ReportSink::TakeReport();
        if (report && report->empty()) report = "the library reported a failure";
        return report;
    }

private:
    const EffectDescription& description_;
    catalogue::EffectPtr processor_;
    std::mutex mutex_;
    int frames_ = 0;
};

using EffectHandle = std::shared_ptr<CEffect>;

// Runs the effects in turn on one frame: in place (answering the frame) or on a new copy
// (answering the copy). The interpreter is released from the first pixel to the last.
py::object Run(const std::vector<EffectHandle>& effects, py::handle frame, py::handle order,
               bool inPlace) {
    py::object result;
    CFrameJob job(frame, order, inPlace, &result);
    std::string failure;
    {
        py::gil_scoped_release released;
        job.Before();
        for (const EffectHandle& effect : effects) {
            if (std::optional<std::string> report = effect->Process(job.Work())) {
                failure = "effect " + Quoted(effect->Description().name) + " failed: " + *report;
                break;
            }
        }
        job.After();
    }
    if (!failure.empty()) throw CLibraryFailure(failure);
    return inPlace ? py::reinterpret_borrow<py::object>(frame) : result;
}

const PropertyDescription& PropertyOf(const CEffect& effect, const std::string& name) {
    if (const PropertyDescription* property = effect.Find(name)) return *property;
    throw py::attribute_error("effect " + Quoted(effect.Description().name) + " has no property " +
                              Quoted(name) + " (" + PropertyNames(effect.Description()) + ")");
}

EffectHandle MakeEffect(const std::string& name, const py::kwargs& properties) {
    auto effect = std::make_shared<CEffect>(FindEffect(name));
    for (const auto& [key, value] : properties) {
        const std::string property = key.cast<std::string>();
        const PropertyDescription* described = effect->Find(property);
        if (described == nullptr) {
            throw py::type_error("effect " + Quoted(name) + " has no property " + Quoted(property) +
                                 " (" + PropertyNames(effect->Description()) + ")");
        }
        effect->Set(*described, value);
    }
    return effect;
}

py::dict Properties(CEffect& effect) {
    py::dict values;
    const EffectDescription& description = effect.Description();
    for (unsigned i = 0; i < description.propertyCount; ++i)
        values[description.properties[i].name] = effect.Get(description.properties[i]);
    return values;
}

std::string Repr(CEffect& effect) {
    std::string text = "libfilter.Effect(" + Quoted(effect.Description().name);
    for (const auto& [name, value] : Properties(effect))
        text += ", " + name.cast<std::string>() + "=" + std::string(py::repr(value));
    return text + ")";
}

class CChain {
public:
    explicit CChain(const py::iterable& effects) {
        for (py::handle effect : effects) {
            if (!py::isinstance<CEffect>(effect))
                throw py::type_error("a Chain is made of libfilter.Effect objects, not " +
                                     std::string(Py_TYPE(effect.ptr())->tp_name));
            effects_.push_back(effect.cast<EffectHandle>());
        }
    }
    const std::vector<EffectHandle>& Effects() const { return effects_; }

private:
    std::vector<EffectHandle> effects_;
};

// --- the descriptions, as plain records for __init__.py -------------------------------------

const char* BoundName(RangeBound bound) {
    switch (bound) {
        case RangeBound::FrameWidth:
            return "width";
        case RangeBound::FrameHeight:
            return "height";
        default:
            return "fixed";
    }
}

py::dict DescribeProperty(const PropertyDescription& property) {
    py::dict record;
    record["name"] = property.name;
    record["kind"] = catalogue::KindName(property.kind);
    record["minimum"] = property.min;
    record["maximum"] = property.max;
    record["upper"] = BoundName(property.upper);
    record["range"] = catalogue::RangeText(property);
    record["default"] = TypedValue(property, property.defaultText);
    record["explanation"] = property.explanation;
    return record;
}

py::list Descriptions() {
    py::list effects;
    for (const EffectDescription* effect : Available()) {
        py::dict record;
        record["id"] = effect->id;
        record["name"] = effect->name;
        record["description"] = effect->summary;
        record["making"] = catalogue::MakingText(*effect);
        record["needs_converters"] = effect->needsConverters;
        py::list properties;
        for (unsigned i = 0; i < effect->propertyCount; ++i)
            properties.append(DescribeProperty(effect->properties[i]));
        record["properties"] = properties;
        effects.append(record);
    }
    return effects;
}

py::dict Showcase(const std::string& name, unsigned width, unsigned height) {
    const EffectDescription& effect = FindEffect(name);
    py::dict settings;
    for (const auto& [property, text] : catalogue::Showcase(effect, width, height)) {
        const PropertyDescription* described = catalogue::FindProperty(effect, property);
        settings[property.c_str()] =
            described ? TypedValue(*described, text.c_str()) : py::str(text);
    }
    return settings;
}

}  // namespace

}  // namespace pylf

using namespace pylf;

PYBIND11_MODULE(_libfilter, m) {
    m.doc() = "libfilter's effects on NumPy arrays (the binding under the libfilter package)";
    // Reports become exceptions on the thread that caused them; the sink stays for the process.
    static ReportSink* const sink = new ReportSink();
    (void)sink;
    py::register_exception<CLibraryFailure>(m, "Error", PyExc_RuntimeError);

    m.def("_descriptions", &Descriptions);
    m.def("_showcase", &Showcase, py::arg("name"), py::arg("width"), py::arg("height"));
    m.attr("_frame_contract") = kFrameContract;

    py::class_<CEffect, EffectHandle>(m, "Effect", R"(Effect(name, **properties)

One effect, by the name `lfx list` prints, its properties given as keyword arguments and
readable and settable as attributes afterwards. effect(frame) changes the frame in place and
returns it; effect.apply(frame) returns a changed copy. See help(libfilter) for frames.)")
        .def(py::init(&MakeEffect), py::arg("name"))
        .def_property_readonly("name", [](const CEffect& e) { return e.Description().name; })
        .def_property_readonly("properties", &Properties)
        .def(
            "__call__",
            [](const EffectHandle& e, py::handle frame, py::handle order) {
                return Run({e}, frame, order, true);
            },
            py::arg("frame"), py::arg("order") = py::none(),
            "Changes the frame in place and returns it; order='bgr' or 'rgb' for H x W x 3.")
        .def(
            "apply",
            [](const EffectHandle& e, py::handle frame, py::handle order) {
                return Run({e}, frame, order, false);
            },
            py::arg("frame"), py::arg("order") = py::none(),
            "Returns a changed copy of the frame and leaves the frame alone.")
        .def("__getattr__",
             [](CEffect& e, const std::string& name) { return e.Get(PropertyOf(e, name)); })
        .def("__setattr__", [](CEffect& e, const std::string& name,
                               py::handle value) { e.Set(PropertyOf(e, name), value); })
        .def("__dir__",
             [](py::object self) {
                 py::list names =
                     py::module_::import("builtins").attr("object").attr("__dir__")(self);
                 const EffectDescription& d = self.cast<CEffect&>().Description();
                 for (unsigned i = 0; i < d.propertyCount; ++i)
                     names.append(d.properties[i].name);
                 return names;
             })
        .def("__repr__", &Repr);

    py::class_<CChain, std::shared_ptr<CChain>>(
        m, "Chain", "Chain(effects): several effects run in turn on a frame in one call.")
        .def(py::init<const py::iterable&>(), py::arg("effects"))
        .def_property_readonly("effects", &CChain::Effects)
        .def("__len__", [](const CChain& c) { return c.Effects().size(); })
        .def(
            "__call__",
            [](const CChain& c, py::handle frame, py::handle order) {
                return Run(c.Effects(), frame, order, true);
            },
            py::arg("frame"), py::arg("order") = py::none(),
            "Changes the frame in place and returns it; order='bgr' or 'rgb' for H x W x 3.")
        .def(
            "apply",
            [](const CChain& c, py::handle frame, py::handle order) {
                return Run(c.Effects(), frame, order, false);
            },
            py::arg("frame"), py::arg("order") = py::none(),
            "Returns a changed copy of the frame and leaves the frame alone.")
        .def("__repr__", [](const CChain& c) {
            std::string text = "libfilter.Chain([";
            for (size_t i = 0; i < c.Effects().size(); ++i)
                text += (i ? ", " : "") + Repr(*c.Effects()[i]);
            return text + "])";
        });
}
