// The module talora._core, which the package talora is made of: exceptions and indexed properties here, the
// classes in a file each.
#include "Core.h"

namespace talora_py {

void RememberMainThread();

namespace {

py::object ItemOf(const Indexed& indexed, const py::object& key)
{
    if (py::isinstance<py::tuple>(key)) return indexed.get(indexed.owner, *key.cast<py::tuple>());
    return indexed.get(indexed.owner, key);
}

void SetItemOf(const Indexed& indexed, const py::object& key, const py::object& value)
{
    if (indexed.set.is_none()) throw py::type_error("this property cannot be set");
    if (py::isinstance<py::tuple>(key))
        indexed.set(indexed.owner, *key.cast<py::tuple>(), value);
    else
        indexed.set(indexed.owner, key, value);
}

void BindIndexed(py::module_& module)
{
    py::class_<Indexed>(module, "Indexed",
                        "A property with arguments: x.Name[key], x.Name(key), x.Name[key] = value.")
        .def("__getitem__", ItemOf)
        .def("__setitem__", SetItemOf)
        .def("__iter__",
             [](const py::object&) -> py::object {
                 throw py::type_error("a property with arguments; say which: x.Name[key]");
             })
        .def("__call__", [](const Indexed& indexed, const py::args& args,
                            const py::kwargs& named) { return indexed.get(indexed.owner, *args, **named); })
        .def("__repr__", [](const Indexed& indexed) {
            return "<property of " + py::repr(indexed.owner).cast<std::string>() + " with arguments>";
        });
}

struct Constant {
    const char* name;
    int value;
};

constexpr Constant kConstants[] = {
    {"UNDEF_STATE", UNDEF_STATE},
    {"IMPOSS_STATE", IMPOSS_STATE},
    {"EVERY_STATE", EVERY_STATE},
    {"UNIFORM_STATE", UNIFORM_STATE},
    {"NATURE_NODE", NATURE_NODE},
    {"CONSTANT_NODE", CONSTANT_NODE},
    {"DECISION_NODE", DECISION_NODE},
    {"UTILITY_NODE", UTILITY_NODE},
    {"DISCONNECTED_NODE", DISCONNECTED_NODE},
    {"ADVERSARY_NODE", ADVERSARY_NODE},
    {"CONTINUOUS_TYPE", CONTINUOUS_TYPE},
    {"DISCRETE_TYPE", DISCRETE_TYPE},
    {"NULL_SEVERITY", NULL_SEVERITY},
    {"FALSE_ALERT_SEVERITY", FALSE_ALERT_SEVERITY},
    {"REPORT_SEVERITY", REPORT_SEVERITY},
    {"NOTICE_SEVERITY", NOTICE_SEVERITY},
    {"WARNING_SEVERITY", WARNING_SEVERITY},
    {"ERROR_SEVERITY", ERROR_SEVERITY},
    {"INTERNAL_SEVERITY", INTERNAL_SEVERITY},
    {"MEMORY_CONDITION", MEMORY_CONDITION},
    {"ABORTED_CONDITION", ABORTED_CONDITION},
    {"FRONT_END_CONDITION", FRONT_END_CONDITION},
    {"FILE_CONDITION", FILE_CONDITION},
    {"FINDING_CONDITION", FINDING_CONDITION},
    {"BELIEF_UPDATE", BELIEF_UPDATE},
    {"NO_VISUAL_INFO", NO_VISUAL_INFO},
    {"NO_WINDOW", NO_WINDOW},
    {"MINIMIZED_WINDOW", MINIMIZED_WINDOW},
    {"REGULAR_WINDOW", REGULAR_WINDOW},
    {"NO_UNDO_GROUP", NO_UNDO_GROUP},
    {"OPEN_UNDO_GROUP", OPEN_UNDO_GROUP},
    {"ABORTED_UNDO_GROUP", ABORTED_UNDO_GROUP},
    {"AUTO_SAMPLING", AUTO_SAMPLING},
    {"FORWARD_SAMPLING", FORWARD_SAMPLING},
    {"TREE_SAMPLING", TREE_SAMPLING},
    {"DONT_ADD_NEW", DONT_ADD_NEW},
    {"QUERY_ADD_NEW", QUERY_ADD_NEW},
    {"PRINT_AND_ADD_NEW", PRINT_AND_ADD_NEW},
    {"QUIETLY_ADD_NEW", QUIETLY_ADD_NEW},
    {"FINE_TEST_BINS", FINE_TEST_BINS},
    {"TENTHS_TEST_BINS", TENTHS_TEST_BINS},
    {"TAILS_TEST_BINS", TAILS_TEST_BINS},
    {"GIVEN_TEST_BINS", GIVEN_TEST_BINS},
    {"BELIEF_SENSV", BELIEF_SENSV},
    {"ENTROPY_SENSV", ENTROPY_SENSV},
    {"REAL_SENSV", REAL_SENSV},
    {"NODEVAR_SENSV", NODEVAR_SENSV},
    {"RATIO_SENSV", RATIO_SENSV},
    {"VARIANCE_SENSV", VARIANCE_SENSV},
    {"RANGE_SENSV", RANGE_SENSV},
};

// What went away under a Python object is an error of its own kind, a TaloraError too.
void TranslateDeleted(std::exception_ptr thrown)
{
    try {
        if (thrown) std::rethrow_exception(thrown);
    } catch (const DeletedNet& error) {
        PyErr_SetObject(FromPackage("talora._errors", "DeletedError").ptr(), py::str(error.what()).ptr());
    } catch (const DeletedNode& error) {
        PyErr_SetObject(FromPackage("talora._errors", "DeletedError").ptr(), py::str(error.what()).ptr());
    } catch (const ClosedApp& error) {
        PyErr_SetObject(FromPackage("talora._errors", "DeletedError").ptr(), py::str(error.what()).ptr());
    }
}

}  // namespace

}  // namespace talora_py

PYBIND11_MODULE(_core, module)
{
    using namespace talora_py;
    module.doc() = "The engine's objects; use the package talora.";
    RememberMainThread();
    py::register_exception_translator(TranslateDeleted);
    BindIndexed(module);
    for (const Constant& constant : kConstants) module.attr(constant.name) = constant.value;
    module.attr("FIRST_CASE_POSN") = FIRST_CASE_POSN;
    module.attr("NEXT_CASE_POSN") = NEXT_CASE_POSN;
    module.attr("NO_CASE_POSN") = NO_CASE_POSN;
    AppClass application = DeclareApplication(module);
    NetClass net = DeclareNets(module);
    NodeClass node = DeclareNodes(module);
    BindStreamer(module);
    BindApplication(application);
    BindRandom(module);
    BindNets(net);
    BindNodes(node);
    BindCases(module);
    BindLearner(module);
    BindNetTester(module);
    BindSensitivity(module);
}
