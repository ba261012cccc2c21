// Streams in memory from texts, and nets as the text of their file.
#pragma once

#include <string>
#include <string_view>

#include "Talora.h"

inline stream_vx* NewStreamOf(environ_vx* env, const char* name, std::string_view text)
{
    stream_vx* const stream = NewMemoryStream_vx(name, env, nullptr);
    SetStreamContents_vx(stream, text.data(), int64_t(text.size()));
    return stream;
}

inline std::string ContentsOf(stream_vx* stream)
{
    int64_t length = 0;
    const char* const contents = GetStreamContents_vx(stream, &length);
    return contents ? std::string(contents, size_t(length)) : std::string();
}

inline std::string TextOf(const net_bn* net, const char* name = "net.dne")
{
    stream_vx* const stream = NewMemoryStream_vx(name, GetNetEnviron_bn(net), nullptr);
    WriteNet_bn(net, stream);
    const std::string text = ContentsOf(stream);
    DeleteStream_vx(stream);
    return text;
}
