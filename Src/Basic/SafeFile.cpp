// Files written beside their target and renamed when complete, and files read as bytes.
#include "Basic/SafeFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "Basic/Error.h"
#include "Basic/Text.h"

namespace talora {

FileOps file_ops = {
    [](const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); },
    ::read,
    ::write,
    ::fsync,
    ::close,
    ::rename,
    ::unlink,
    ::ftruncate,
};

namespace {

constexpr int kMaxLinks = 40;
constexpr int kMaxTemporaryNames = 100;
constexpr int kNamesLookedAt = 4;          // for what killed saves have left
constexpr size_t kMaxBaseName = 200;       // of a file system's 255 bytes
constexpr size_t kMaxCallBytes = 1 << 30;  // systems refuse or cut longer calls

std::string FolderOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The file that a chain of symbolic links ends at, whether it exists or not; "" for a circle.
std::string FollowLinks(std::string path)
{
    char target[PATH_MAX];
    for (int i = 0; i < kMaxLinks; ++i) {
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0) return path;
        const std::string_view link(target, static_cast<size_t>(length));
        if (link.empty() || link[0] == '/')
            path = link;
        else
            path = FolderOf(path) + "/" + std::string(link);
    }
    return "";
}

// The system may write less than asked, or be interrupted.
void WriteFully(int file, std::string_view bytes, bool& failed)
{
    while (!bytes.empty() && !failed) {
        const ssize_t count = file_ops.write(file, bytes.data(), std::min(bytes.size(), kMaxCallBytes));
        if (count > 0)
            bytes.remove_prefix(static_cast<size_t>(count));
        else if (count == 0 || errno != EINTR)
            failed = true;
    }
}

[[noreturn]] void FailOpening(const std::string& path)
{
    FailWith<4031>(FILE_CND, path.c_str());
}

int OpenFile(const std::string& path, int flags)
{
    int file;
    do {
        file = file_ops.open(path.c_str(), flags | O_CLOEXEC, 0);
    } while (file < 0 && errno == EINTR);
    return file;
}

// Removes a temporary of ours that no process holds.
void RemoveIfLeft(const std::string& path)
{
    const int file = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return;
    struct stat info;
    const bool is_ours = ::fstat(file, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid();
    if (is_ours && ::flock(file, LOCK_EX | LOCK_NB) == 0) file_ops.unlink(path.c_str());
    ::close(file);
}

// False if closing reported an error.  A call that was interrupted has closed the file all the same.
bool CloseFile(int file)
{
    return file_ops.close(file) == 0 || errno == EINTR;
}

}  // namespace

// Opens the temporary file, with the mode and owner of the file it is to replace. What is no regular file (a
// pipe, a terminal) is written in place.
SafeFile::SafeFile(std::string path, bool keep_private) : path_(std::move(path)), target_(FollowLinks(path_))
{
    if (target_.empty()) FailOpening(path_);
    struct stat old;
    const bool exists = ::stat(target_.c_str(), &old) == 0;
    if (exists && S_ISDIR(old.st_mode)) FailOpening(path_);
    if (exists && ::access(target_.c_str(), W_OK) != 0) FailOpening(path_);
    if (exists && !S_ISREG(old.st_mode)) {
        file_ = OpenFile(target_, O_WRONLY);
        if (file_ < 0) FailOpening(path_);
        return;
    }
    OpenTemporary(keep_private || exists);
    if (!exists || keep_private) return;
    // Another owner's file can be replaced where the folder allows it; then the special bits go.
    const bool owned = ::fchown(file_, old.st_uid, old.st_gid) == 0;
    if (::fchmod(file_, old.st_mode & (owned ? 07777 : 0777)) != 0) FailWriting();
}

// Temporaries of a file are called .NAME.0.tmp, .NAME.1.tmp and so on, the lowest that is free.  Whoever
// writes one holds its lock.  A file without a lock was left by a process that was killed, and goes.
void SafeFile::OpenTemporary(bool keep_private)
{
    const size_t slash = target_.rfind('/');
    const std::string base = slash == std::string::npos ? target_ : target_.substr(slash + 1);
    const std::string stem = FolderOf(target_) + "/." + base.substr(0, kMaxBaseName) + ".";
    for (int i = 0; i < kMaxTemporaryNames; ++i) {
        if (file_ >= 0 && i >= kNamesLookedAt) break;
        const std::string path = stem + std::to_string(i) + ".tmp";
        RemoveIfLeft(path);
        if (file_ >= 0) continue;
        file_ =
            file_ops.open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, keep_private ? 0600 : 0666);
        if (file_ < 0 && errno != EEXIST && errno != EINTR) break;
        if (file_ < 0) continue;
        temporary_ = path;
        if (::flock(file_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) continue;
        // Another save took it for one that was left, before it was locked, and removes it.
        file_ops.close(file_);
        file_ = -1;
    }
    if (file_ >= 0) return;
    temporary_.clear();
    FailOpening(path_);
}

SafeFile::~SafeFile()
{
    if (file_ >= 0) file_ops.close(file_);
    if (!temporary_.empty()) file_ops.unlink(temporary_.c_str());
}

void SafeFile::FailWriting()
{
    if (file_ >= 0) file_ops.close(file_);
    file_ = -1;
    if (!temporary_.empty()) file_ops.unlink(temporary_.c_str());
    temporary_.clear();
    FailWith<4032>(FILE_CND, path_.c_str());
}

void SafeFile::Write(std::string_view bytes)
{
    bool failed = false;
    WriteFully(file_, bytes, failed);
    if (failed) FailWriting();
}

// Sync, close, rename, sync the folder: after each step the target has either its old or its new contents.
void SafeFile::Commit()
{
    // A failed sync is never tried again: the system may have dropped the data and forgotten it.
    if (!temporary_.empty() && file_ops.fsync(file_) != 0) FailWriting();
    // A copy keeps the lock until the temporary has got its name.
    const int lock = temporary_.empty() ? -1 : ::fcntl(file_, F_DUPFD_CLOEXEC, 0);
    const bool closed = CloseFile(file_);
    file_ = -1;
    const bool renamed =
        closed && (temporary_.empty() || file_ops.rename(temporary_.c_str(), target_.c_str()) == 0);
    if (lock >= 0) ::close(lock);
    if (!renamed) FailWriting();
    if (temporary_.empty()) return;
    temporary_.clear();
    SyncFolder();
}

// A rename is only sure to last once its folder is synced.  Some file systems cannot sync a folder.
void SafeFile::SyncFolder()
{
    const int folder = OpenFile(FolderOf(target_), O_RDONLY | O_DIRECTORY);
    const bool synced = folder >= 0 && (file_ops.fsync(folder) == 0 || errno == EINVAL || errno == ENOTSUP);
    const int reason = errno;
    if (folder >= 0) file_ops.close(folder);
    if (!synced) Warn<4036>(path_.c_str(), reason);
}

InputFile::InputFile(const std::string& path) : path_(path)
{
    file_ = OpenFile(path, O_RDONLY);
    if (file_ < 0) FailWith<4030>(FILE_CND, path.c_str());
    struct stat info;
    if (::fstat(file_, &info) == 0 && S_ISREG(info.st_mode)) size_hint_ = info.st_size;
}

InputFile::~InputFile()
{
    file_ops.close(file_);
}

size_t InputFile::Read(char* bytes, size_t count)
{
    for (;;) {
        const ssize_t got = file_ops.read(file_, bytes, std::min(count, kMaxCallBytes));
        if (got >= 0) return static_cast<size_t>(got);
        if (errno == EINTR) continue;
        if (errno == EIO) FailWith<4035>(FILE_CND, path_.c_str());
        FailWith<4114>(FILE_CND, path_.c_str(), errno);
    }
}

void InputFile::GoTo(int64_t position)
{
    if (::lseek(file_, position, SEEK_SET) < 0)
        FailWith<6502>(FILE_CND, static_cast<long long>(position), path_.c_str(), errno);
}

}  // namespace talora
