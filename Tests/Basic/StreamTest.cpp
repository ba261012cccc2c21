#include "Basic/Stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Basic/SafeFile.h"
#include "Talora.h"

namespace talora {
namespace {

namespace fs = std::filesystem;

class StreamTest : public testing::Test {
protected:
    void SetUp() override
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
        folder_ = fs::temp_directory_path() / ("talora-stream-" + std::to_string(::getpid()));
        fs::create_directories(folder_);
    }
    void TearDown() override
    {
        ClearErrors_vx(env_, INTERNAL_SEVERITY);  // some belong to no environment
        CloseTalora_bn(env_, nullptr);
        fs::remove_all(folder_);
    }

    std::string Path(const char* name) const { return (folder_ / name).string(); }
    static std::string Contents(const std::string& path)
    {
        std::stringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    static void Put(const std::string& path, const std::string& text) { std::ofstream(path) << text; }
    size_t FilesThere() const
    {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
    }
    // Number of the newest error, 0 for none; clears all.
    int LastError()
    {
        const report_vx* error = GetError_vx(env_, ERROR_SEVERITY, 0, nullptr);
        const int number = error ? -ErrorNumber_vx(error) : 0;
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return number;
    }
    static int NumberOf(const Unwind& failure) { return -failure.record->number; }

    environ_vx* env_ = nullptr;
    fs::path folder_;
};

TEST_F(StreamTest, MemoryHoldsWhatItIsGiven)
{
    stream_vx* stream = NewMemoryStream_vx("bytes", env_, nullptr);
    SetStreamContents_vx(stream, "a\0b", 3);
    int64_t length = 0;
    const char* contents = GetStreamContents_vx(stream, &length);
    EXPECT_EQ(std::string(contents, static_cast<size_t>(length)), std::string("a\0b", 3));
    EXPECT_EQ(GetStreamContents_vx(stream, nullptr), nullptr);  // not text: the length is needed
    EXPECT_EQ(LastError(), 5176);
    SetStreamContents_vx(stream, "caf\xC3\xA9", 5);
    EXPECT_STREQ(GetStreamContents_vx(stream, nullptr), "caf\xC3\xA9");
    SetStreamContents_vx(stream, "x", -1);
    EXPECT_EQ(LastError(), 5174);
    EXPECT_STREQ(GetStreamContents_vx(stream, nullptr), "caf\xC3\xA9");
    DeleteStream_vx(stream);
    GetStreamName_vx(stream);
    EXPECT_EQ(LastError(), 5147);
}

TEST_F(StreamTest, ArgumentsAreChecked)
{
    EXPECT_EQ(NewFileStream_vx("", env_, nullptr), nullptr);
    EXPECT_EQ(LastError(), 5173);
    EXPECT_EQ(NewFileStream_vx(nullptr, env_, nullptr), nullptr);
    EXPECT_EQ(LastError(), 5173);
    EXPECT_EQ(NewMemoryStream_vx("m", env_, "r"), nullptr);
    EXPECT_EQ(LastError(), 5170);
    stream_vx* stream = NewFileStream_vx(Path("f").c_str(), env_, nullptr);
    SetStreamContents_vx(stream, "x", 1);
    EXPECT_EQ(LastError(), 5171);
    int64_t length;
    EXPECT_EQ(GetStreamContents_vx(stream, &length), nullptr);
    EXPECT_EQ(LastError(), 5171);
    EXPECT_FALSE(HasStreamPassword_vx(stream));
    SetStreamPassword_vx(stream, "secret");
    EXPECT_TRUE(HasStreamPassword_vx(stream));
    SetStreamEncryption_vx(stream, nullptr);
    EXPECT_FALSE(HasStreamPassword_vx(stream));
    DeleteStream_vx(nullptr);
    EXPECT_EQ(LastError(), 0);
}

TEST_F(StreamTest, BlocksJoinToTheWhole)
{
    std::string text;
    while (text.size() < 3000000) text += std::to_string(text.size()) + " ";
    Put(Path("big"), text);
    Stream* file = NewFileStream(*env_, Path("big"));
    EXPECT_EQ(StreamBytes(*file).View(), text);
    ByteSource source(*file);
    std::string blocks;
    char block[4097];
    while (const size_t got = source.Read(block, sizeof block)) blocks.append(block, got);
    EXPECT_EQ(blocks, text);
    Stream* device = NewFileStream(*env_, "/dev/null");  // its size says nothing
    EXPECT_EQ(StreamBytes(*device).View(), "");
}

TEST_F(StreamTest, ReadingFailsWithTheReason)
{
    const struct {
        const char* label;
        std::string path;
        int error;
    } cases[] = {{"missing", Path("none"), 4030}, {"a folder", folder_.string(), 4114}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Stream* stream = NewFileStream(*env_, c.path);
        try {
            StreamBytes bytes(*stream);
            ADD_FAILURE();
        } catch (const Unwind& failure) {
            EXPECT_EQ(NumberOf(failure), c.error);
        }
    }
    env_->halt = true;
    EXPECT_EQ(ReadNet_bn(NewFileStream(*env_, "/dev/zero"), NO_WINDOW), nullptr) << "has no end";
    EXPECT_EQ(LastError(), 3605);
}

TEST_F(StreamTest, ReplacingKeepsLinksAndModes)
{
    Put(Path("real"), "old");
    fs::permissions(Path("real"), fs::perms(0640));
    fs::create_symlink("real", Path("link"));
    fs::create_symlink("made", Path("dangling"));
    {
        SafeFile file(Path("link"));
        file.Write("new");
        EXPECT_EQ(Contents(Path("real")), "old");
        file.Commit();
    }
    EXPECT_EQ(Contents(Path("real")), "new");
    EXPECT_TRUE(fs::is_symlink(Path("link")));
    EXPECT_EQ(fs::status(Path("real")).permissions(), fs::perms(0640));
    SafeFile through(Path("dangling"));
    through.Write("x");
    through.Commit();
    EXPECT_EQ(Contents(Path("made")), "x");
    SafeFile secret(Path("real"), true);
    secret.Commit();
    EXPECT_EQ(fs::status(Path("real")).permissions(), fs::perms(0600));
    {
        SafeFile dropped(Path("real"));
    }
    EXPECT_EQ(FilesThere(), 4u);  // no temporary is left
    fs::create_symlink("circle", Path("circle"));
    try {
        SafeFile circle(Path("circle"));
        ADD_FAILURE();
    } catch (const Unwind& failure) {
        EXPECT_EQ(NumberOf(failure), 4031);
    }
}

TEST_F(StreamTest, CopiesGoToMemoryAndFiles)
{
    const std::string bytes("\0\xFF text", 7);
    stream_vx* memory = NewMemoryStream_vx("a", env_, nullptr);
    SetStreamContents_vx(memory, bytes.data(), int64_t(bytes.size()));
    stream_vx* file = NewFileStream_vx(Path("copy").c_str(), env_, nullptr);
    Put(Path("copy"), "something longer than the bytes");
    CopyStream_vx(memory, file);
    EXPECT_EQ(Contents(Path("copy")), bytes);
    stream_vx* other = NewMemoryStream_vx("b", env_, nullptr);
    for (stream_vx* target : {other, other, memory}) {
        CopyStream_vx(target == memory ? memory : file, target);
        int64_t length = 0;
        const char* contents = GetStreamContents_vx(target, &length);
        EXPECT_EQ(std::string(contents, size_t(length)), bytes);
    }
    EXPECT_EQ(LastError(), 0);
    // A target that cannot be written, and a source that is not there: what was there stays.
    CopyStream_vx(memory, NewFileStream_vx(Path("none/copy").c_str(), env_, nullptr));
    EXPECT_NE(LastError(), 0);
    CopyStream_vx(NewFileStream_vx(Path("none").c_str(), env_, nullptr), file);
    EXPECT_NE(LastError(), 0);
    EXPECT_EQ(Contents(Path("copy")), bytes);
    EXPECT_EQ(FilesThere(), 1u);
}

TEST_F(StreamTest, PipesAreWrittenDirectly)
{
    ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
    const int reader = ::open(Path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
    SafeFile file(Path("pipe"));
    file.Write("through");
    file.Commit();
    char bytes[16];
    EXPECT_EQ(::read(reader, bytes, sizeof bytes), 7);
    ::close(reader);
    EXPECT_TRUE(fs::is_fifo(Path("pipe")));
}

// ---- Every file operation fails once: the old file stays, no temporary is left. ----

int operations_left;

bool MustFail()
{
    if (--operations_left != 0) return false;
    errno = ENOSPC;
    return true;
}

TEST_F(StreamTest, FailedSavesLeaveTheOldFile)
{
    const FileOps real = file_ops;
    static FileOps inner;
    inner = real;
    file_ops.open = [](const char* p, int f, mode_t m) { return MustFail() ? -1 : inner.open(p, f, m); };
    file_ops.write = [](int f, const void* b, size_t n) -> ssize_t {
        return MustFail() ? -1 : inner.write(f, b, std::min<size_t>(n, 3));  // short writes go on
    };
    file_ops.fsync = [](int f) { return MustFail() ? -1 : inner.fsync(f); };
    file_ops.close = [](int f) { return MustFail() ? (inner.close(f), -1) : inner.close(f); };
    file_ops.rename = [](const char* a, const char* b) { return MustFail() ? -1 : inner.rename(a, b); };
    Put(Path("f"), "old text");
    int failures = 0;
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        operations_left = n;
        Stream* stream = NewFileStream(*env_, Path("f"));
        bool failed = false;
        try {
            ByteSink sink(*stream);
            sink.Write("new text");
            sink.Commit();
        } catch (const Unwind& failure) {
            failed = true;
            EXPECT_TRUE(NumberOf(failure) == 4031 || NumberOf(failure) == 4032);
        }
        EXPECT_EQ(FilesThere(), 1u);
        const std::string text = Contents(Path("f"));
        if (!failed) {
            EXPECT_EQ(text, "new text");
            break;
        }
        // Once renamed, the new file is there whole; what failed was making the rename last.
        EXPECT_TRUE(text == "old text" || text == "new text");
        if (text == "old text") ++failures;
        Put(Path("f"), "old text");
    }
    file_ops = real;
    EXPECT_GE(failures, 6);
}

}  // namespace
}  // namespace talora
