// Files: reading in blocks, and replacing a file as a whole or not at all.
//
// A SafeFile writes to a temporary file beside its target (a symbolic link is followed to the file
// that it names), made exclusively, with the mode of the old file; Commit syncs it, renames it over
// the target and syncs the folder.  A temporary that a killed process has left goes with the next save of its
// file.  Without a Commit, or after any failure, the temporary goes and
// the old file stays.  A folder that cannot be synced is only warned of: the new file is there, whole.
// What is no regular file (a pipe, a terminal) is written directly.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <string_view>

namespace talora {

// The calls through which files are changed; tests put failing ones in their place.
struct FileOps {
    int (*open)(const char* path, int flags, mode_t mode);
    ssize_t (*read)(int file, void* bytes, size_t count);
    ssize_t (*write)(int file, const void* bytes, size_t count);
    int (*fsync)(int file);
    int (*close)(int file);
    int (*rename)(const char* from, const char* to);
    int (*unlink)(const char* path);
    int (*ftruncate)(int file, off_t size);
};
extern FileOps file_ops;

class SafeFile {
public:
    // Opens for writing.  @param keep_private  readable by the owner only, whatever the old mode
    explicit SafeFile(std::string path, bool keep_private = false);
    ~SafeFile();
    SafeFile(const SafeFile&) = delete;
    SafeFile& operator=(const SafeFile&) = delete;

    void Write(std::string_view bytes);
    void Commit();

private:
    [[noreturn]] void FailWriting();
    void OpenTemporary(bool keep_private);

    void SyncFolder();

    std::string path_;       // as the caller named it, for messages
    std::string target_;     // behind symbolic links
    std::string temporary_;  // "" when writing directly
    int file_ = -1;
};

// An open file that is closed when it goes out of scope.
class InputFile {
public:
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    size_t Read(char* bytes, size_t count);          // 0 at the end
    void GoTo(int64_t position);                     // fails for what is no regular file
    int64_t SizeHint() const { return size_hint_; }  // 0 if not known; the file may change meanwhile

private:
    std::string path_;
    int file_ = -1;
    int64_t size_hint_ = 0;
};

}  // namespace talora
