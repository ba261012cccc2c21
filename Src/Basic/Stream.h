// Streams: where a net or a set of cases is read from or written to, a file or bytes in memory.
//
// A stream belongs to its environment and is deleted with it.  A file stream only holds a name:
// the file is opened when something is read or written.  A memory stream owns its contents; they
// stay until they are replaced or the stream is deleted.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Basic/Environ.h"
#include "Basic/Handle.h"
#include "Basic/Loss.h"
#include "Basic/Memory.h"
#include "Basic/SafeFile.h"
#include "Basic/Secret.h"

struct stream_vx {
    talora::HandleHeader header;
    environ_vx* env = nullptr;
    bool in_memory = false;
    std::string name;      // path of a file; of memory: a name for messages, and for the type when writing
    std::string contents;  // of a memory stream
    bool has_contents = false;
    talora::Secret password;     // for what is encrypted
    int64_t next_case = 0;       // where the next case begins, when cases are read one by one
    int64_t next_case_line = 0;  // and its line, 0 if not known
    // Of the net that was last read or written: its format, "" for none, and what that could not carry.
    std::string format;
    std::vector<talora::Loss> losses;
    std::string loss_nodes;  // given out last
};

namespace talora {

using Stream = stream_vx;

Stream* NewFileStream(environ_vx& env, std::string_view path);
Stream* NewMemoryStream(environ_vx& env, std::string_view name);
void DeleteStream(Stream* stream) noexcept;    // null does nothing
void DeleteStreams(environ_vx& env) noexcept;  // all of an environment

// What is wrong with a file name, as a phrase ("is empty"); null if nothing is.
const char* FileNameProblem(std::string_view path);

void SetContents(Stream& stream, std::string_view bytes);
bool IsPlainText(std::string_view bytes);  // ASCII or UTF-8 without zero bytes

// The bytes of a stream, block by block.  The stream outlives it and is not changed meanwhile.
class ByteSource {
public:
    explicit ByteSource(const Stream& stream);
    explicit ByteSource(const std::string& path);
    // Of bytes that outlive it.  A read gives at most so many of them, however many it asks for.
    static ByteSource OfBytes(std::string_view bytes, size_t most_at_once = SIZE_MAX);
    size_t Read(char* bytes, size_t count);  // 0 at the end
    void GoTo(int64_t position);             // counted in bytes from the beginning; behind the end: the end
    int64_t SizeHint() const;

private:
    ByteSource() = default;

    std::unique_ptr<InputFile> file_;  // null for memory
    std::string_view all_, rest_;
    size_t most_at_once_ = SIZE_MAX;
};

// The whole of a stream, followed by a zero byte.  A memory stream is not copied.
class StreamBytes {
public:
    // @param binary  only for the message when there is not enough memory
    explicit StreamBytes(const Stream& stream, bool binary = false);
    std::string_view View() const { return view_; }

private:
    TableVector<char> bytes_;
    std::string_view view_;
};

// Bytes on their way into a stream.  A file is replaced, and memory filled, only by Commit.
class ByteSink {
public:
    explicit ByteSink(Stream& stream, bool keep_private = false);
    void Write(std::string_view bytes);
    void Commit();

private:
    Stream& stream_;
    std::unique_ptr<SafeFile> file_;  // null for memory
    std::string contents_;
};

}  // namespace talora
