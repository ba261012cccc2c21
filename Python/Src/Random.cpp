// RandomGenerator: numbers that are the same for the same seed on every machine.
#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

GeneratorPtr MakeGenerator(const AppPtr& app, const py::object& seed)
{
    const Text digits = py::str(seed).cast<Text>();
    auto generator = std::make_shared<Generator>();
    generator->app = app;
    generator->handle = Run(app, [&] { return NewRandomGenerator_vx(digits.c_str(), app->env, nullptr); });
    return generator;
}

template <class Body>
auto RunGenerator(const GeneratorPtr& generator, Body&& body)
{
    return Run(generator->app, [&] {
        std::lock_guard lock(generator->lock);
        return body(generator->handle);
    });
}

constexpr size_t kMostNumbers = size_t(1) << 40;

size_t CountArg(py::ssize_t count)
{
    if (count < 0 || size_t(count) > kMostNumbers)
        throw std::invalid_argument("count is negative or too large");
    return size_t(count);
}

}  // namespace

void BindRandom(py::module_& module)
{
    py::class_<Generator, GeneratorPtr> cls(
        module, "RandomGenerator",
        "A source of random numbers.\n\nseed: a whole number, or -1 to start from the clock; the same seed gives "
        "the\nsame numbers on every machine.");
    cls.def(py::init(&MakeGenerator), "app"_a, "seed"_a = 0);
    cls.def_property_readonly(
        "State",
        [](const GeneratorPtr& generator) {
            return RunGenerator(generator,
                                [](randgen_vx* handle) { return Text(GetRandomGenState_vx(handle)); });
        },
        "The state as text: index, then sixteen words in hexadecimal.");
    cls.def(
        "DrawInteger",
        [](const GeneratorPtr& generator) { return RunGenerator(generator, DrawRandomInteger_vx); },
        "Draws 32 random bits.");
    cls.def(
        "DrawUniform",
        [](const GeneratorPtr& generator, const std::optional<py::ssize_t>& count) -> py::object {
            if (!count) return py::float_(RunGenerator(generator, DrawRandomUniform_vx));
            std::vector<double> numbers(CountArg(*count));
            RunGenerator(generator, [&](randgen_vx* handle) {
                for (double& number : numbers) number = DrawRandomUniform_vx(handle);
            });
            return ToArray(std::move(numbers));
        },
        "count"_a = py::none(), "Draws a number from [0, 1), or an array of so many (float64).");
    cls.def("__repr__", [](const GeneratorPtr&) { return "<RandomGenerator>"; });

    auto application = py::reinterpret_borrow<py::object>(module.attr("Application"));
    application.attr("NewRandomGenerator") = py::cpp_function(
        MakeGenerator, py::is_method(application), py::name("NewRandomGenerator"), "seed"_a = 0,
        "Makes a RandomGenerator.\n\nseed: a whole number, or -1 to start from the clock.");
}

}  // namespace talora_py
