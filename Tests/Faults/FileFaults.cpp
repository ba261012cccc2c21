#include "FileFaults.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

namespace faults {

namespace {

FileFaults* active = nullptr;

// Sets errno for a trouble that is an error.  False for one that is none.
bool IsError(Trouble trouble)
{
    switch (trouble) {
        case Trouble::IO_ERROR:
            errno = EIO;
            return true;
        case Trouble::NO_SPACE:
            errno = ENOSPC;
            return true;
        case Trouble::NO_ACCESS:
            errno = EACCES;
            return true;
        case Trouble::INTERRUPTED:
            errno = EINTR;
            return true;
        default:
            return false;
    }
}

int Open(const char* path, int flags, mode_t mode)
{
    const Trouble trouble = active->Next(Operation::OPEN);
    if (IsError(trouble)) return -1;
    const int file = active->real.open(path, flags, mode);
    if (file >= 0 && active->Logs()) {
        active->paths[file] = path;
        active->Note({Operation::OPEN, path, "", "", (flags & O_CREAT) != 0});
    }
    return file;
}

ssize_t Read(int file, void* bytes, size_t count)
{
    const Trouble trouble = active->Next(Operation::READ);
    if (IsError(trouble)) return -1;
    return active->real.read(file, bytes, trouble == Trouble::SHORT && count > 0 ? 1 : count);
}

ssize_t Write(int file, const void* bytes, size_t count)
{
    const Trouble trouble = active->Next(Operation::WRITE);
    if (trouble == Trouble::SHORT && count > 0) count = 1;
    if (trouble == Trouble::NO_SPACE || trouble == Trouble::EXIT_HALFWAY) {
        if (count > 1 && active->real.write(file, bytes, count / 2) < 0) _exit(99);
        if (trouble == Trouble::EXIT_HALFWAY) _exit(9);
    }
    if (IsError(trouble)) return -1;
    const ssize_t done = active->real.write(file, bytes, count);
    if (done > 0 && active->Logs())
        active->Note({Operation::WRITE, active->paths[file], "",
                      std::string(static_cast<const char*>(bytes), static_cast<size_t>(done))});
    return done;
}

int Sync(int file)
{
    if (IsError(active->Next(Operation::SYNC))) return -1;
    if (active->Logs()) active->Note({Operation::SYNC, active->paths[file], "", ""});
    return active->real.fsync(file);
}

// A file is closed whatever closing returns.
int Close(int file)
{
    const Trouble trouble = active->Next(Operation::CLOSE);
    const int result = active->real.close(file);
    if (active->Logs()) active->paths.erase(file);
    return IsError(trouble) ? -1 : result;
}

int Rename(const char* from, const char* to)
{
    if (IsError(active->Next(Operation::RENAME))) return -1;
    if (active->Logs()) active->Note({Operation::RENAME, from, to, ""});
    return active->real.rename(from, to);
}

int Unlink(const char* path)
{
    active->Next(Operation::UNLINK);  // what has failed must be able to clean up
    if (active->Logs()) active->Note({Operation::UNLINK, path, "", ""});
    return active->real.unlink(path);
}

int Truncate(int file, off_t size)
{
    if (IsError(active->Next(Operation::TRUNCATE))) return -1;
    return active->real.ftruncate(file, size);
}

// Whether a trouble can befall an operation.
bool Fits(Trouble trouble, Operation kind)
{
    switch (trouble) {
        case Trouble::NO_SPACE:
            return kind != Operation::READ && kind != Operation::CLOSE && kind != Operation::UNLINK;
        case Trouble::NO_ACCESS:
            return kind == Operation::OPEN || kind == Operation::RENAME;
        case Trouble::SHORT:
            return kind == Operation::READ || kind == Operation::WRITE;
        case Trouble::INTERRUPTED:
            return kind != Operation::RENAME && kind != Operation::UNLINK && kind != Operation::TRUNCATE &&
                   kind != Operation::SYNC;
        case Trouble::EXIT_HALFWAY:
            return kind == Operation::WRITE;
        case Trouble::IO_ERROR:
            return kind != Operation::UNLINK;
        default:
            return true;
    }
}

}  // namespace

FileFaults::FileFaults() : real(talora::file_ops)
{
    active = this;
    talora::file_ops = {Open, Read, Write, Sync, Close, Rename, Unlink, Truncate};
}

FileFaults::~FileFaults()
{
    talora::file_ops = real;
    active = nullptr;
}

void FileFaults::Arm(int64_t n, Trouble trouble, Repeat repeat)
{
    n_ = n;
    trouble_ = trouble;
    repeat_ = repeat;
    count_ = failed_ = 0;
}

void FileFaults::Disarm()
{
    trouble_ = Trouble::NONE;
    EndFailing();
}

Trouble FileFaults::Next(Operation kind)
{
    ++count_;
    const bool is_now = count_ == n_ || (count_ > n_ && repeat_ == Repeat::FROM_THEN_ON);
    if (trouble_ == Trouble::NONE || !is_now || !Fits(trouble_, kind)) return Trouble::NONE;
    ++failed_;
    if (trouble_ == Trouble::EXIT) _exit(9);
    if (allocations_left_ >= 0 && failed_ == 1) FailAllocation(allocations_left_ + 1, Repeat::FROM_THEN_ON);
    return trouble_;
}

void FileFaults::StartLog()
{
    log_.clear();
    logs_ = true;
}

void FileFaults::Note(LoggedOperation operation)
{
    log_.push_back(std::move(operation));
}

// ---- Losing power ----

namespace {

struct Inode {
    std::string synced, written;
};
using Names = std::map<std::string, std::shared_ptr<Inode>>;

// The contents that an inode may have: as synced, all, or cut in between (with zeros, where the size got
// through but the data did not).
std::vector<std::string> Contents(const Inode& inode)
{
    if (inode.synced == inode.written) return {inode.synced};
    const size_t middle = inode.synced.size() + (inode.written.size() - inode.synced.size()) / 2;
    return {inode.synced, inode.written.substr(0, middle), inode.written,
            inode.synced + std::string(inode.written.size() - inode.synced.size(), '\0')};
}

void AddDisks(const Names& names, std::vector<Disk>& disks)
{
    for (size_t choice = 0; choice < 4; ++choice) {
        Disk disk;
        for (const auto& [path, inode] : names) {
            const std::vector<std::string> contents = Contents(*inode);
            disk.files[path] = contents[std::min(choice, contents.size() - 1)];
        }
        disks.push_back(std::move(disk));
    }
}

}  // namespace

std::vector<Disk> DisksAfter(const std::vector<LoggedOperation>& log, const Disk& before, size_t length)
{
    Names now, synced;
    for (const auto& [path, text] : before.files) now[path] = std::make_shared<Inode>(Inode{text, text});
    synced = now;
    std::vector<Names> stages = {synced};  // the names at each change since they were synced
    for (size_t i = 0; i < length; ++i) {
        const LoggedOperation& done = log[i];
        const auto found = now.find(done.path);
        switch (done.kind) {
            case Operation::OPEN:
                if (!done.creates || found != now.end()) continue;
                now[done.path] = std::make_shared<Inode>();
                break;
            case Operation::WRITE:
                if (found != now.end()) found->second->written += done.bytes;
                continue;
            case Operation::SYNC:
                if (found != now.end()) {
                    found->second->synced = found->second->written;
                    continue;
                }
                // A folder; all files of a test are in one.
                stages.clear();
                break;
            case Operation::RENAME:
                now[done.other] = now[done.path];
                now.erase(done.path);
                break;
            case Operation::UNLINK:
                now.erase(done.path);
                break;
            default:
                continue;
        }
        stages.push_back(now);
    }
    std::vector<Disk> disks;
    for (const Names& names : stages) AddDisks(names, disks);
    return disks;
}

}  // namespace faults
