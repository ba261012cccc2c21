// Interface functions: streams, reading and writing of nets.
#include <string>

#include "BN/Files/BnParse.h"
#include "Basic/Stream.h"
#include "Basic/Text.h"
#include "Foreign/ForeignFiles.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

void CheckAccess(const char* access)
{
    if (access != nullptr && *access != 0) Fail<5170>(access);
}

void NeedMemoryStream(const Stream& stream)
{
    if (!stream.in_memory) Fail<5171>();
}

}  // namespace

stream_vx* NewFileStream_vx(const char* filename, environ_vx* env, const char* access)
{
    return CallEnviron(__func__, env, static_cast<stream_vx*>(nullptr), [&](environ_vx& the_env) {
        if (filename == nullptr) Fail<5173>("is NULL");
        const std::string path = NarrowText(filename);
        if (const char* problem = FileNameProblem(path)) Fail<5173>(problem);
        CheckAccess(access);
        return NewFileStream(the_env, path);
    });
}

stream_vx* NewMemoryStream_vx(const char* name, environ_vx* env, const char* access)
{
    return CallEnviron(__func__, env, static_cast<stream_vx*>(nullptr), [&](environ_vx& the_env) {
        CheckAccess(access);
        return NewMemoryStream(the_env, NarrowText(name));
    });
}

void DeleteStream_vx(stream_vx* stream)
{
    if (stream == nullptr) return;
    CallApi(__func__, stream, [&] { DeleteStream(stream); });
}

void SetStreamContents_vx(stream_vx* stream, const void* buffer, int64_t length)
{
    CallApi(__func__, stream, [&] {
        NeedMemoryStream(*stream);
        if (length < 0) Fail<5174>(static_cast<long long>(length));
        if (buffer == nullptr && length > 0) Fail<5175>();
        SetContents(*stream, std::string_view(static_cast<const char*>(buffer), static_cast<size_t>(length)));
    });
}

const char* GetStreamContents_vx(const stream_vx* stream, int64_t* length)
{
    return CallApi(__func__, stream, static_cast<const char*>(nullptr), [&] {
        NeedMemoryStream(*stream);
        if (length == nullptr && !IsPlainText(stream->contents)) Fail<5176>();
        if (length != nullptr) *length = static_cast<int64_t>(stream->contents.size());
        return stream->contents.c_str();
    });
}

const char* GetStreamName_vx(const stream_vx* stream)
{
    return CallApi(__func__, stream, static_cast<const char*>(nullptr), [&] { return stream->name.c_str(); });
}

void CopyStream_vx(const stream_vx* source, stream_vx* target)
{
    CallApi2(__func__, source, target, [&] {
        const StreamBytes bytes(*source, true);
        ByteSink sink(*target);
        sink.Write(bytes.View());
        sink.Commit();
    });
}

net_bn* ReadNet_bn(stream_vx* stream, int control)
{
    return CallApi(__func__, stream, static_cast<net_bn*>(nullptr), [&] {
        if (control != NO_VISUAL_INFO && control != NO_WINDOW && control != MINIMIZED_WINDOW &&
            control != REGULAR_WINDOW)
            Fail<5177>(control, NO_VISUAL_INFO, NO_WINDOW, MINIMIZED_WINDOW, REGULAR_WINDOW);
        ReadNetOptions options;
        options.keep_visual = control != NO_VISUAL_INFO;
        options.inherit_in_first_pass = stream->env->inherit_in_first_pass;
        return ReadNetOfAnyFormat(*stream, options);
    });
}

void WriteNet_bn(const net_bn* net, stream_vx* stream)
{
    CallApi2(__func__, net, stream, NoResult{}, [&] {
        WriteNetInFormat(*net, *stream, "", false);
        return NoResult{};
    });
}

void WriteNetAs_bn(const net_bn* net, stream_vx* stream, const char* format, const char* options)
{
    CallApi2(__func__, net, stream, NoResult{}, [&] {
        const std::string words = NarrowText(options);
        if (!words.empty() && words != "strict") Fail<7050>(words.c_str());
        WriteNetInFormat(*net, *stream, NarrowText(format), !words.empty());
        return NoResult{};
    });
}

const char* GetStreamFormat_vx(const stream_vx* stream)
{
    return CallApi(__func__, stream, static_cast<const char*>(nullptr),
                   [&] { return stream->format.empty() ? nullptr : stream->format.c_str(); });
}

bool_vx GetNthStreamLoss_vx(stream_vx* stream, int index, int* severity, const char** what,
                            const char** nodes, const char** instead)
{
    return CallApi(__func__, stream, bool_vx{0}, [&] {
        if (index < 0) Fail<7051>(index);
        if (static_cast<size_t>(index) >= stream->losses.size()) return bool_vx{0};
        const Loss& loss = stream->losses[static_cast<size_t>(index)];
        if (severity != nullptr) *severity = static_cast<int>(loss.severity);
        if (what != nullptr) *what = loss.what.c_str();
        if (nodes != nullptr) {
            stream->loss_nodes.clear();
            for (const std::string& node : loss.nodes)
                stream->loss_nodes += (stream->loss_nodes.empty() ? "" : ", ") + node;
            *nodes = stream->loss_nodes.c_str();
        }
        if (instead != nullptr) *instead = loss.instead.c_str();
        return bool_vx{1};
    });
}

bool_vx GetNthFileFormat_vx(int index, const char** name, const char** extensions, const char** about,
                            bool_vx* can_read, bool_vx* can_write)
{
    return CallEnviron(__func__, nullptr, bool_vx{0}, [&](environ_vx&) {
        FormatEntry entry;
        if (!NthFormat(index, entry)) return bool_vx{0};
        if (name != nullptr) *name = entry.name;
        if (extensions != nullptr) *extensions = entry.extensions;
        if (about != nullptr) *about = entry.about;
        if (can_read != nullptr) *can_read = entry.reads;
        if (can_write != nullptr) *can_write = entry.writes;
        return bool_vx{1};
    });
}
