// Streams: files on disk and contents in memory, read and written as bytes.
#include "Basic/Stream.h"

#include <algorithm>
#include <cstring>

#include "Basic/Progress.h"

namespace talora {

namespace {

constexpr size_t kBlock = 1 << 20;

HandlePool<Stream, STREAM_TYPE>& Pool()
{
    static auto* pool = new HandlePool<Stream, STREAM_TYPE>;  // never freed: handles may be looked at late
    return *pool;
}

Stream* NewStream(environ_vx& env, std::string_view name, bool in_memory)
{
    const std::lock_guard guard(env.mutex);
    env.streams.reserve(env.streams.size() + 1);
    Stream* stream = Pool().NewWithLock();
    try {
        stream->name = name;
    } catch (...) {
        Pool().ReleaseWithLock(stream);
        throw;
    }
    stream->env = &env;
    stream->in_memory = in_memory;
    env.streams.push_back(stream);
    return stream;
}

}  // namespace

Stream* NewFileStream(environ_vx& env, std::string_view path)
{
    return NewStream(env, path, false);
}

Stream* NewMemoryStream(environ_vx& env, std::string_view name)
{
    return NewStream(env, name, true);
}

void DeleteStream(Stream* stream) noexcept
{
    if (stream == nullptr) return;
    stream->password.Remove();
    {
        const std::lock_guard guard(stream->env->mutex);
        std::erase(stream->env->streams, stream);
    }
    Pool().ReleaseWithLock(stream);
}

// From the back, where taking one out of the list is cheap.
void DeleteStreams(environ_vx& env) noexcept
{
    while (!env.streams.empty()) DeleteStream(env.streams.back());
}

const char* FileNameProblem(std::string_view path)
{
    if (path.empty()) return "is empty";
    if (path.size() >= 4096) return "is too long";
    if (path.back() == '/') return "names a folder";
    return nullptr;
}

void SetContents(Stream& stream, std::string_view bytes)
{
    CheckMemory(static_cast<double>(bytes.size()), "to set the contents of >-FileSpec %s",
                stream.name.c_str());
    stream.contents.assign(bytes);
    stream.has_contents = true;
    stream.next_case = 0;
}

// UTF-8 without zero bytes, by the ranges of the Unicode Standard's table of well-formed byte sequences.
bool IsPlainText(std::string_view bytes)
{
    size_t i = 0;
    while (i < bytes.size()) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        if (lead == 0) return false;
        const size_t length = lead < 0x80   ? 1
                              : lead < 0xC2 ? 0
                              : lead < 0xE0 ? 2
                              : lead < 0xF0 ? 3
                              : lead < 0xF5 ? 4
                                            : 0;
        if (length == 0 || i + length > bytes.size()) return false;
        // Behind some leads the second byte would make a surrogate, too large a code or too long a form.
        const unsigned least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        const unsigned most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        for (size_t k = 1; k < length; ++k) {
            const auto byte = static_cast<unsigned char>(bytes[i + k]);
            if (byte < (k == 1 ? least : 0x80) || byte > (k == 1 ? most : 0xBF)) return false;
        }
        i += length;
    }
    return true;
}

ByteSource::ByteSource(const Stream& stream)
{
    if (stream.in_memory)
        all_ = rest_ = stream.contents;
    else
        file_ = std::make_unique<InputFile>(stream.name);
}

ByteSource::ByteSource(const std::string& path) : file_(std::make_unique<InputFile>(path)) {}

// In small pieces for tests, which check that readers do not depend on where a block ends.
ByteSource ByteSource::OfBytes(std::string_view bytes, size_t most_at_once)
{
    ByteSource source;
    source.most_at_once_ = most_at_once;
    source.all_ = source.rest_ = bytes;
    return source;
}

void ByteSource::GoTo(int64_t position)
{
    if (file_)
        file_->GoTo(position);
    else
        rest_ = all_.substr(std::min(static_cast<size_t>(position), all_.size()));
}

size_t ByteSource::Read(char* bytes, size_t count)
{
    if (file_) return file_->Read(bytes, count);
    const size_t taken = std::min({count, rest_.size(), most_at_once_});
    std::memcpy(bytes, rest_.data(), taken);
    rest_.remove_prefix(taken);
    return taken;
}

int64_t ByteSource::SizeHint() const
{
    return file_ ? file_->SizeHint() : static_cast<int64_t>(rest_.size());
}

// The whole contents with a zero byte behind them: a view for memory, a copy for a file.
StreamBytes::StreamBytes(const Stream& stream, bool binary)
{
    if (stream.in_memory) {
        view_ = stream.contents;  // a std::string ends with a zero byte
        return;
    }
    ByteSource source(stream);
    const auto size = static_cast<double>(source.SizeHint());
    if (binary)
        CheckMemory(size, "to read binary file '%s'", stream.name.c_str());
    else
        CheckMemory(size, "to read file '%s'", stream.name.c_str());
    // Room for the size that the file has now, and one byte by which its end is seen without growing.
    size_t used = 0;
    bytes_.resize(std::max<size_t>(static_cast<size_t>(source.SizeHint()), kBlock) + 2);
    while (const size_t got = source.Read(bytes_.data() + used, bytes_.size() - used - 1)) {
        used += got;
        if (used > kBlock && IsHalted()) FailWith<3605>(ABORTED_CND);  // no end, perhaps
        if (bytes_.size() - used < 2) bytes_.resize(bytes_.size() * 2);
    }
    bytes_[used] = 0;
    view_ = std::string_view(bytes_.data(), used);
}

ByteSink::ByteSink(Stream& stream, bool keep_private) : stream_(stream)
{
    if (!stream.in_memory) file_ = std::make_unique<SafeFile>(stream.name, keep_private);
}

void ByteSink::Write(std::string_view bytes)
{
    if (file_)
        file_->Write(bytes);
    else
        contents_.append(bytes);
}

// A memory stream gets its new contents only here, as a file does.
void ByteSink::Commit()
{
    if (file_) {
        file_->Commit();
        return;
    }
    stream_.contents.swap(contents_);
    stream_.has_contents = true;
}

}  // namespace talora
