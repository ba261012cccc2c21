// Every file operation of every scenario that works on files fails: the old file stays, byte for byte.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "FaultTest.h"
#include "FileFaults.h"

namespace faults {
namespace {

namespace fs = std::filesystem;

struct Tally {
    int64_t failed = 0;  // operations
    int64_t runs = 0;
};
Tally tally;

constexpr int kRestLeft = -6534;
constexpr int kOutOfMemory = -5622;
// Opening to read, to write; reading; writing; appending.
constexpr int kFileErrors[] = {-4030, -4031, -4032, -4035, -4114, -6533};

std::map<std::string, std::string> FilesIn(const fs::path& folder)
{
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(folder))
        files[entry.path().filename().string()] = FileText(entry.path());
    return files;
}

size_t OpenFiles()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/fd")) ++count;
    return count;
}

class DiskFaults : public FaultTest {
protected:
    static void TearDownTestSuite()
    {
        printf("%lld file operations failed in %lld runs\n", static_cast<long long>(tally.failed),
               static_cast<long long>(tally.runs));
    }

    void Open(World& w, const Scenario& scenario)
    {
        Empty();
        OpenWorld(w, folder_);
        scenario.prepare(w);
        ClearErrors_vx(w.env, INTERNAL_SEVERITY);
    }

    // One record, of a number about files (or of memory where that was out too).
    void CheckRecords(const World& w, bool with_memory_fault)
    {
        int errors = 0;
        for (report_vx* e = GetError_vx(w.env, ERROR_SEVERITY, 0, nullptr); e;
             e = GetError_vx(w.env, ERROR_SEVERITY, 0, e)) {
            ++errors;
            if (with_memory_fault && ErrorNumber_vx(e) == kOutOfMemory) continue;
            EXPECT_NE(std::find(kFileErrors, std::end(kFileErrors), ErrorNumber_vx(e)), std::end(kFileErrors))
                << ErrorNumber_vx(e) << ": " << ErrorMessage_vx(e);
            EXPECT_TRUE(ErrorCategory_vx(FILE_CONDITION, e));
        }
        EXPECT_EQ(errors, 1);
    }

    void CheckFiles(World& w, const Scenario& scenario, const std::map<std::string, std::string>& before,
                    bool done, bool told_of_rest)
    {
        auto after = FilesIn(folder_);
        // A file that keeps failing can neither be written to nor cut to what it was.
        if (!done && told_of_rest) {
            for (auto& [name, text] : after)
                if (text.starts_with(before.at(name))) text = before.at(name);
        }
        if (!done || !(scenario.flags & (WRITES | APPENDS))) {
            EXPECT_EQ(after, before);
            return;
        }
        EXPECT_LE(after.size(), before.size() + 1);
        for (const auto& [name, text] : after) {
            EXPECT_EQ(name.find(".tmp"), std::string::npos) << name;
            if (name.starts_with("target") && (scenario.flags & APPENDS)) {
                EXPECT_TRUE(text.starts_with(before.at(name)) && text.ends_with("\n")) << text;
            }
        }
        if (scenario.check) {
            EXPECT_TRUE(scenario.check(w));
        }
    }

    // @return whether there was such an operation
    bool RunOnce(const Scenario& scenario, int64_t n, Trouble trouble, Repeat repeat,
                 int64_t allocations = -1)
    {
        World w;
        Open(w, scenario);
        const auto before = FilesIn(folder_);
        const std::string text = TextOf(w.net);
        const size_t open_files = OpenFiles();
        bool done = false;
        int64_t count = 0;
        {
            FileFaults faults;
            faults.Arm(n, trouble, repeat);
            faults.RunOutOfMemoryAfter(allocations);
            done = scenario.act(w);
            faults.Disarm();
            count = faults.Count();
            tally.failed += faults.Failed();
            ++tally.runs;
        }
        if (!done) CheckRecords(w, allocations >= 0);
        const bool told_of_rest =
            GetError_vx(w.env, WARNING_SEVERITY, kRestLeft, nullptr) != nullptr || allocations >= 0;
        if (trouble == Trouble::SHORT || trouble == Trouble::INTERRUPTED) {
            EXPECT_TRUE(done) << "only slower";
        }
        ClearErrors_vx(w.env, INTERNAL_SEVERITY);
        CheckFiles(w, scenario, before, done, repeat == Repeat::FROM_THEN_ON && told_of_rest);
        if (!done) {
            EXPECT_EQ(TextOf(w.net), text);
        }
        EXPECT_EQ(OpenFiles(), open_files);
        CloseWorld(w);
        return count >= n;
    }

    void Run(const Scenario& scenario, Trouble trouble, Repeat repeat, const char* label)
    {
        SCOPED_TRACE(std::string(scenario.label) + ", " + label +
                     (repeat == Repeat::ONCE ? ", once" : ", from then on"));
        for (int64_t n = 1; RunOnce(scenario, n, trouble, repeat) && !HasFailure(); ++n) {
        }
        EXPECT_FALSE(HasFailure());
    }
};

std::vector<Scenario> FileScenarios()
{
    std::vector<Scenario> found;
    for (const Scenario& scenario : AllScenarios())
        if (scenario.flags & FILES) found.push_back(scenario);
    return found;
}

class EveryOperation : public DiskFaults, public testing::WithParamInterface<Scenario> {};

TEST_P(EveryOperation, GivesARecordAndLeavesTheOldFile)
{
    const struct {
        const char* label;
        Trouble trouble;
        bool from_then_on;
    } kTroubles[] = {
        {"I/O error", Trouble::IO_ERROR, true},       {"no space", Trouble::NO_SPACE, true},
        {"no access", Trouble::NO_ACCESS, true},      {"interrupted", Trouble::INTERRUPTED, false},
        {"one byte at a time", Trouble::SHORT, true},
    };
    for (const auto& row : kTroubles) {
        Run(GetParam(), row.trouble, Repeat::ONCE, row.label);
        if (row.from_then_on) Run(GetParam(), row.trouble, Repeat::FROM_THEN_ON, row.label);
    }
}

// While the error is reported, memory runs out too, after so many allocations.
TEST_P(EveryOperation, MayFailWhileMemoryIsOut)
{
    for (const int64_t allocations : {0, 1, 2, 3, 5, 8}) {
        SCOPED_TRACE(allocations);
        for (int64_t n = 1;
             RunOnce(GetParam(), n, Trouble::IO_ERROR, Repeat::FROM_THEN_ON, allocations) && !HasFailure();
             ++n) {
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, EveryOperation, testing::ValuesIn(FileScenarios()), [](const auto& row) {
    std::string name;
    for (const char c : std::string(row.param.label)) name += isalnum(c) ? c : '_';
    return name;
});

// ---- Real trouble ----

// A file system of 1 MB while it lives, where mounting is permitted.
class SmallDisk {
public:
    explicit SmallDisk(const fs::path& folder) : folder_(folder)
    {
        fs::create_directory(folder);
        mounted_ = mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=1m") == 0;
    }
    ~SmallDisk()
    {
        if (mounted_) umount2(folder_.c_str(), MNT_DETACH);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    bool IsThere() const { return mounted_; }

private:
    const fs::path folder_;
    bool mounted_;
};

class RealDisk : public FaultTest {
protected:
    void SetUp() override { OpenWorld(w_, folder_); }
    void TearDown() override { CloseWorld(w_); }

    int SaveTo(const std::string& path)
    {
        stream_vx* stream = NewFileStream_vx(path.c_str(), w_.env, nullptr);
        WriteNet_bn(w_.net, stream);
        const report_vx* e = GetError_vx(w_.env, ERROR_SEVERITY, 0, nullptr);
        const int number = e ? ErrorNumber_vx(e) : 0;
        ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
        DeleteStream_vx(stream);
        return number;
    }

    World w_;
};

TEST_F(RealDisk, FullFileSystemKeepsTheOldFile)
{
    const fs::path mounted = folder_ / "disk";
    const SmallDisk disk(mounted);
    if (!disk.IsThere()) GTEST_SKIP() << "a small file system cannot be mounted here: " << strerror(errno);
    const std::string target = mounted / "target.dne";
    EXPECT_EQ(SaveTo(target), 0);
    const auto old = FilesIn(mounted);
    stream_vx* stream = NewMemoryStream_vx("large.dne", w_.env, nullptr);
    const std::string large = LargeNetText(8000);
    SetStreamContents_vx(stream, large.data(), static_cast<int64_t>(large.size()));
    w_.net = ReadNet_bn(stream, NO_WINDOW);
    ASSERT_NE(w_.net, nullptr);
    EXPECT_EQ(SaveTo(target), -4032);
    EXPECT_EQ(FilesIn(mounted), old);
    // Cases, until it is full: each is there whole or not at all.
    const std::string cases = mounted / "cases.cas";
    stream_vx* file = NewFileStream_vx(cases.c_str(), w_.env, nullptr);
    nodelist_bn* some = NewNodeList2_bn(0, w_.net);
    for (int i = 0; i < 2000; ++i) {
        node_bn* node = NthNode_bn(GetNetNodes2_bn(w_.net, nullptr), i);
        AddNodeToList_bn(node, some, -1);
        EnterFinding_bn(node, 0);
    }
    int written = 0;
    while (written < 1000 && WriteNetFindings_bn(some, file, written, -1) >= 0) ++written;
    const report_vx* e = GetError_vx(w_.env, ERROR_SEVERITY, 0, nullptr);
    EXPECT_EQ(e ? ErrorNumber_vx(e) : 0, -6533);
    ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
    EXPECT_EQ(FileText(cases).back(), '\n');
    caseset_cs* set = NewCaseset_cs("", w_.env);
    AddFileToCaseset_cs(set, file, 1, nullptr);
    EXPECT_EQ(CountCasesetCases_cs(set, nullptr), written);
}

TEST_F(RealDisk, FolderWithoutPermissionIsRefused)
{
    if (geteuid() == 0) {
        // The superuser may write anywhere; a file system mounted for reading only stops it too.
        const fs::path mounted = folder_ / "disk";
        const SmallDisk disk(mounted);
        if (!disk.IsThere())
            GTEST_SKIP() << "nothing is unwritable for this user, and nothing can be mounted";
        PutFile(mounted / "target.dne", "old");
        mount(nullptr, mounted.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
        EXPECT_EQ(SaveTo(mounted / "target.dne"), -4031);
        EXPECT_EQ(SaveTo(mounted / "new.dne"), -4031);
        EXPECT_EQ(FilesIn(mounted), (std::map<std::string, std::string>{{"target.dne", "old"}}));
        return;
    }
    PutFile(folder_ / "target.dne", "old");
    fs::permissions(folder_, fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(SaveTo(folder_ / "target.dne"), -4031);
    EXPECT_EQ(SaveTo(folder_ / "new.dne"), -4031);
    EXPECT_EQ(FilesIn(folder_), (std::map<std::string, std::string>{{"target.dne", "old"}}));
    fs::permissions(folder_, fs::perms::owner_all);
}

// Once renamed the new file is there; that its folder could not be synced is only worth a warning.
TEST_F(RealDisk, FolderThatCannotBeSyncedIsWarnedOf)
{
    const std::string target = folder_ / "target.dne";
    int warnings = 0, saved = 0;
    for (int64_t n = 1; saved < 4; ++n) {
        PutFile(target, "old");
        stream_vx* stream = NewFileStream_vx(target.c_str(), w_.env, nullptr);
        FileFaults faults;
        faults.Arm(n, Trouble::IO_ERROR, Repeat::ONCE);
        WriteNet_bn(w_.net, stream);
        faults.Disarm();
        if (NoErrors(w_.env)) ++saved;
        if (GetError_vx(w_.env, WARNING_SEVERITY, 4036, nullptr)) {
            ++warnings;
            EXPECT_TRUE(NoErrors(w_.env));
        }
        EXPECT_EQ(FileText(target) == "old", !NoErrors(w_.env));
        ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
        DeleteStream_vx(stream);
    }
    EXPECT_EQ(warnings, 2);  // opening the folder, syncing it
}

TEST_F(RealDisk, FullDeviceIsReported)
{
    EXPECT_EQ(SaveTo("/dev/full"), -4032);
    EXPECT_EQ(SaveTo("/dev/null"), 0);
}

}  // namespace
}  // namespace faults
