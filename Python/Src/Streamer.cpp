// Streamer: files and memory that nets and cases are read from and written to.
#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

StreamPtr Wrap(const AppPtr& app, stream_vx* handle)
{
    auto stream = std::make_shared<Stream>();
    stream->app = app;
    stream->handle = handle;
    return stream;
}

template <class Body>
auto RunStream(const StreamPtr& stream, Body&& body, Length length = SHORT_JOB)
{
    return Run(
        stream->app,
        [&] {
            std::lock_guard lock(stream->lock);
            return body(stream->handle);
        },
        length);
}

void SetContents(const StreamPtr& stream, const py::object& contents)
{
    if (py::isinstance<py::str>(contents)) {
        const Text text = contents.cast<Text>();
        RunStream(stream, [&](stream_vx* handle) {
            SetStreamContents_vx(handle, text.c_str(), int64_t(text.bytes.size()));
        });
        return;
    }
    const py::buffer_info buffer = py::reinterpret_borrow<py::buffer>(contents).request();
    RunStream(stream, [&](stream_vx* handle) {
        SetStreamContents_vx(handle, buffer.ptr, int64_t(buffer.size * buffer.itemsize));
    });
}

py::bytes Contents(const StreamPtr& stream)
{
    return py::bytes(RunStream(stream, [](stream_vx* handle) {
        int64_t length = 0;
        const char* start = GetStreamContents_vx(handle, &length);
        return start ? std::string(start, size_t(length)) : std::string();
    }));
}

}  // namespace

StreamPtr NewMemoryStream(const AppPtr& app, const OptionalText& name)
{
    return Wrap(app, Run(app, [&] { return NewMemoryStream_vx(OrNull(name), app->env, nullptr); }));
}

StreamPtr StreamArg(const AppPtr& app, const py::object& source)
{
    if (py::isinstance<Stream>(source)) return source.cast<StreamPtr>();
    if (py::isinstance<py::bytes>(source) || PyByteArray_Check(source.ptr()) ||
        PyMemoryView_Check(source.ptr())) {
        const StreamPtr stream = NewMemoryStream(app, std::nullopt);
        SetContents(stream, source);
        return stream;
    }
    const py::object path = py::module_::import("os").attr("fspath")(source);
    const Text name = py::isinstance<py::bytes>(path)
                          ? py::module_::import("os").attr("fsdecode")(path).cast<Text>()
                          : path.cast<Text>();
    return Wrap(app, Run(app, [&] { return NewFileStream_vx(name.c_str(), app->env, nullptr); }));
}

py::list StreamLosses(const StreamPtr& stream)
{
    py::list losses;
    for (int i = 0;; ++i) {
        int severity = 0;
        const char *what = nullptr, *nodes = nullptr, *instead = nullptr;
        const bool has_loss = RunStream(stream, [&](stream_vx* handle) {
            return GetNthStreamLoss_vx(handle, i, &severity, &what, &nodes, &instead) != 0;
        });
        if (!has_loss) return losses;
        const char* const word = severity == ANSWERS_LOSS       ? "changes answers"
                                 : severity == INFORMATION_LOSS ? "loses information"
                                                                : "only looks";
        py::list names;
        if (*nodes) names = py::str(nodes).attr("split")(", ");
        losses.append(
            py::dict("severity"_a = word, "what"_a = what, "nodes"_a = names, "instead"_a = instead));
    }
}

namespace {

py::list FileFormats()
{
    py::list formats;
    const char *name = nullptr, *extensions = nullptr, *about = nullptr;
    bool_vx reads = 0, writes = 0;
    for (int i = 0; GetNthFileFormat_vx(i, &name, &extensions, &about, &reads, &writes); ++i)
        formats.append(py::dict("name"_a = name, "extensions"_a = py::str(extensions).attr("split")(),
                                "about"_a = about, "read"_a = reads != 0, "written"_a = writes != 0));
    return formats;
}

}  // namespace

void BindStreamer(py::module_& module)
{
    module.def("_formats", FileFormats);
    py::class_<Stream, StreamPtr> cls(
        module, "Streamer",
        "A file or a piece of memory that nets and cases are read from and written to.\n\n"
        "Made by Application.NewStream and NewMemoryStream; wherever one is taken, a path does as well.");
    cls.def_property_readonly(
        "Name",
        [](const StreamPtr& stream) {
            return RunStream(stream, [](stream_vx* handle) { return Text(GetStreamName_vx(handle)); });
        },
        "The name of the file.");
    cls.def_property_readonly(
        "Format",
        [](const StreamPtr& stream) -> py::object {
            const Text format = RunStream(stream, [](stream_vx* handle) {
                const char* name = GetStreamFormat_vx(handle);
                return Text(name ? name : "");
            });
            if (format.bytes.empty()) return py::none();
            return py::cast(format);
        },
        "The format of the net that was last read or written, such as 'XMLBIF 0.3'; None before that.");
    cls.def_property_readonly(
        "Losses", StreamLosses,
        "What the net that was last read or written lost on the way: a list of dictionaries with severity\n"
        "('changes answers', 'loses information' or 'only looks'), what, nodes and instead.");
    cls.def_property("Contents", Contents, SetContents, "The bytes of a stream in memory.");
    cls.def_property(
        "Password", nullptr,
        [](const StreamPtr& stream, const OptionalText& password) {
            RunStream(stream, [&](stream_vx* handle) { SetStreamPassword_vx(handle, OrNull(password)); });
        },
        "Password that a binary net file is encrypted and decrypted with; it can be set, not read. None "
        "removes\nit.");
    cls.def_property_readonly(
        "HasPassword",
        [](const StreamPtr& stream) {
            return RunStream(stream, [](stream_vx* handle) { return HasStreamPassword_vx(handle) != 0; });
        },
        "Whether a password is set.");
    cls.def(
        "FindCasePosition",
        [](const StreamPtr& stream, int64_t number) {
            return RunStream(
                stream, [&](stream_vx* handle) { return FindCasePosition_cs(handle, number); }, LONG_JOB);
        },
        "number"_a,
        "The position of a case by its number in the file, from 1; NO_CASE_POSN if there are fewer.");
    cls.def(
        "CopyTo",
        [](const StreamPtr& stream, const py::object& target) {
            const StreamPtr to = StreamArg(stream->app, target);
            Run(
                stream->app, [&] { CopyStream_vx(stream->handle, to->handle); }, LONG_JOB);
        },
        "target"_a, "Writes the bytes into another stream, as a whole or not at all.");
    cls.def("__repr__", [](const StreamPtr& stream) {
        const Text name = RunStream(stream, [](stream_vx* handle) { return Text(GetStreamName_vx(handle)); });
        return Text("<Streamer '" + name.bytes + "'>");
    });
}

}  // namespace talora_py
