// Interface functions: streams, reading and writing of nets.
#include <string>

#include "BN/Files/BnParse.h"
#include "BN/Files/BnPrintFile.h"
#include "Basic/Stream.h"
#include "Basic/Text.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

void CheckAccess(const char* access)
{
    if (access != nullptr && *access != 0)
        Fail(5170, "argument 'access' is '%.40s', but it should be NULL", access);
}

void NeedMemoryStream(const Stream& stream)
{
    if (!stream.in_memory)
        Fail(
            5171,
            "this function is only for a >-FileSpec created with >-NewMemoryStream_vx, but this >-FileSpec was created with >-NewFileStream_vx");
}

}  // namespace

stream_vx* NewFileStream_vx(const char* filename, environ_vx* env, const char* access)
{
    return CallEnviron(__func__, env, static_cast<stream_vx*>(nullptr), [&](environ_vx& the_env) {
        if (filename == nullptr) Fail(5173, "in argument 'filename', bad file name passed; it %s", "is NULL");
        const std::string path = NarrowText(filename);
        if (const char* problem = FileNameProblem(path))
            Fail(5173, "in argument 'filename', bad file name passed; it %s", problem);
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
        if (length < 0) Fail(5174, "argument 'length' is negative (%lld)", static_cast<long long>(length));
        if (buffer == nullptr && length > 0) Fail(5175, "argument 'buffer' is NULL, but 'length' is not 0");
        SetContents(*stream, std::string_view(static_cast<const char*>(buffer), static_cast<size_t>(length)));
    });
}

const char* GetStreamContents_vx(const stream_vx* stream, int64_t* length)
{
    return CallApi(__func__, stream, static_cast<const char*>(nullptr), [&] {
        NeedMemoryStream(*stream);
        if (length == nullptr && !IsPlainText(stream->contents))
            Fail(
                5176,
                "argument 'length' is NULL, but it must not be unless the contents are only an ascii or utf-8 string");
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
            Fail(
                5177,
                "argument 'control' is %d, but it should be NO_VISUAL_INFO (%d), NO_WINDOW (%d), MINIMIZED_WINDOW (%d) or REGULAR_WINDOW (%d)",
                control, NO_VISUAL_INFO, NO_WINDOW, MINIMIZED_WINDOW, REGULAR_WINDOW);
        ReadNetOptions options;
        options.keep_visual = control != NO_VISUAL_INFO;
        return ReadNet(*stream, options);
    });
}

void WriteNet_bn(const net_bn* net, stream_vx* stream)
{
    CallApi2(__func__, net, stream, NoResult{}, [&] {
        WriteNet(*net, *stream);
        return NoResult{};
    });
}
