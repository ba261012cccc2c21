// What small or odd input could do to a process: memory on the strength of a declaration, jobs that grow
// beyond all measure, files that are none, links that lead nowhere.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "CountedMemory.h"
#include "FaultTest.h"

namespace faults {
namespace {

namespace fs = std::filesystem;

class WeakSpots : public FaultTest {
protected:
    void SetUp() override { OpenWorld(w_, folder_); }
    void TearDown() override
    {
        GiveRandomBytes(RandomBytes::REAL);
        CloseWorld(w_);
    }

    net_bn* Read(const std::string& text)
    {
        stream_vx* stream = NewMemoryStream_vx("a.dne", w_.env, nullptr);
        SetStreamContents_vx(stream, text.data(), static_cast<int64_t>(text.size()));
        net_bn* net = ReadNet_bn(stream, NO_WINDOW);
        DeleteStream_vx(stream);
        return net;
    }
    net_bn* ReadFile(const std::string& path)
    {
        stream_vx* stream = NewFileStream_vx(path.c_str(), w_.env, nullptr);
        net_bn* net = ReadNet_bn(stream, NO_WINDOW);
        DeleteStream_vx(stream);
        return net;
    }
    int Error(errseverity_vx severity = ERROR_SEVERITY)
    {
        const report_vx* e = GetError_vx(w_.env, severity, 0, nullptr);
        const int number = e ? -ErrorNumber_vx(e) : 0;
        ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
        return number;
    }

    World w_;
};

std::string NodeText(const std::string& name, const std::string& body)
{
    return "node " + name + " {\n kind = NATURE; discrete = TRUE;\n" + body + "};\n";
}
std::string NetText(const std::string& body)
{
    return "// ~->[DNET-1]->~\n\nbnet Hostile {\n" + body + "};\n";
}

// Nodes P0, P1 ... and a child of all of them.
std::string ManyParents(int count, int num_states, const std::string& child)
{
    std::string text, parents;
    for (int i = 0; i < count; ++i) {
        const std::string name = "P" + std::to_string(i);
        text += NodeText(name, " numstates = " + std::to_string(num_states) + ";\n");
        parents += (i ? ", " : "") + name;
    }
    return text + NodeText("Child", " numstates = 2; parents = (" + parents + ");\n" + child);
}

TEST_F(WeakSpots, DeclarationsTakeLittleMemory)
{
    const struct {
        const char* label;
        std::string text;
    } kRows[] = {
        {"two billion states", NetText(NodeText("A", "numstates = 2000000000;"))},
        {"a thousand nodes of two billion states",
         [] {
             std::string text;
             for (int i = 0; i < 1000; ++i)
                 text += NodeText("A" + std::to_string(i), "numstates = 2000000000;");
             return NetText(text);
         }()},
        {"31 parents", NetText(ManyParents(31, 2, "probs = ((0.5, 0.5));"))},
        {"31 parents, function", NetText(ManyParents(31, 2, "functable = (0, 1);"))},
        {"31 parents, conditions", NetText(ManyParents(31, 2, "functable = (0, 0 : 1);"))},
        {"31 parents, experience", NetText(ManyParents(31, 2, "probs = (); numcases = (1, 2);"))},
        {"parents of a thousand states", NetText(ManyParents(6, 1000, "probs = @undef;"))},
        {"evidence of the last state",
         NetText(NodeText("A", "numstates = 2000000000; evidence = #1999999999;"))},
        {"title of the last state",
         NetText(NodeText("A", "numstates = 2000000000; statetitles = (\"a\", \"b\");"))},
        {"an equation", NetText(ManyParents(20, 2, "equation = \"Child (P0) = 1\";"))},
        {"a long input name",
         NetText(NodeText("A", "numstates = 2; inputs = (" + std::string(900, 'x') + ");"))},
        {"compiled at once", NetText("AutoCompile = TRUE;\n" + ManyParents(26, 2, ""))},
    };
    LimitMemoryUsage_vx(64 << 20, w_.env);
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        ResetPeak();
        const int64_t before = LiveBytes();
        net_bn* net = Read(row.text);
        EXPECT_TRUE(net != nullptr || Error() != 0);
        if (net) TextOf(net);
        const auto allowed = static_cast<int64_t>((1 << 20) + 16 * row.text.size());
        // Besides, records of nodes, which take some 1.5 KB each however small they are.
        const int64_t nodes = net ? 1500 * int64_t{LengthNodeList_bn(GetNetNodes2_bn(net, nullptr))} : 0;
        EXPECT_LE(PeakBytes() - before, allowed + nodes);
        DeleteNet_bn(net);
        ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
    }
    LimitMemoryUsage_vx(1e12, w_.env);
}

// With a poor order the cliques of a small grid are large, and there are many.
std::string GridText(int side, bool has_poor_order = false)
{
    std::string text = "AutoCompile = TRUE;\n", order;
    const auto name = [&](int r, int c) { return "N" + std::to_string(r) + "_" + std::to_string(c); };
    for (int r = 0; r < side; ++r)
        for (int c = 0; c < side; ++c) {
            std::string parents;
            if (r > 0) parents += name(r - 1, c);
            if (c > 0) parents += (parents.empty() ? "" : ", ") + name(r, c - 1);
            text += NodeText(name(r, c), "numstates = 4; parents = (" + parents + ");");
        }
    constexpr int kStep = 7919;  // a prime: all places come, each far from the one before
    for (int i = 0; i < side * side; ++i) {
        const int place = i * kStep % (side * side);
        order += (i ? ", " : "") + name(place / side, place % side);
    }
    if (has_poor_order) text += "ElimOrder = (" + order + ");\n";
    return NetText(text);
}

TEST_F(WeakSpots, NetWithTooLargeATreeIsRead)
{
    const double limit = LimitMemoryUsage_vx(64 << 20, w_.env);
    ResetPeak();
    const int64_t before = LiveBytes();  // pools of handles keep what earlier nets took
    net_bn* net = Read(GridText(40));
    ASSERT_NE(net, nullptr);
    EXPECT_EQ(Error(), 0);
    EXPECT_EQ(GetNodeBeliefs_bn(GetNodeNamed_bn("N3_3", net)), nullptr);
    EXPECT_NE(Error(), 0);
    EXPECT_LT(PeakBytes() - before, 68 << 20);
    LimitMemoryUsage_vx(limit, w_.env);
}

TEST_F(WeakSpots, ManyLargeCliquesEndAtTheLimit)
{
    const double limit = LimitMemoryUsage_vx(GetMemoryUsage_vx(w_.env) + (8 << 20), w_.env);
    const std::string text = GridText(100, true);
    ResetPeak();
    const int64_t before = LiveBytes();
    net_bn* net = Read(text);
    ASSERT_NE(net, nullptr);
    EXPECT_FALSE(IsNetCompiled_bn(net));
    EXPECT_NE(GetError_vx(w_.env, WARNING_SEVERITY, 5680, nullptr), nullptr);
    const int64_t of_records = LiveBytes() - before;
    EXPECT_LT(PeakBytes() - before, of_records + (16 << 20));
    LimitMemoryUsage_vx(limit, w_.env);
    DeleteNet_bn(net);
    ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
}

TEST_F(WeakSpots, CompilingAHostileNetStopsOnHalt)
{
    for (const bool has_poor_order : {false, true}) {
        const std::string text = GridText(has_poor_order ? 100 : 60, has_poor_order);
        std::thread other([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            SetHaltFlag_vx(w_.env, true);
        });
        net_bn* net = Read(text);
        other.join();
        SetHaltFlag_vx(w_.env, false);
        // It was read before or after; what was halted was reading it or compiling it.
        EXPECT_TRUE(net != nullptr || Error() == 3605);
        if (net) {
            EXPECT_FALSE(IsNetCompiled_bn(net));
        }
        DeleteNet_bn(net);
        ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
    }
}

// A failure reported as a warning must count as one when the oldest reports make room.
TEST_F(WeakSpots, FloodDropsWarningsFirst)
{
    // A net that cannot be compiled, as a constant has no value: a failure becomes a warning.
    DeleteNet_bn(
        Read(NetText("AutoCompile = TRUE;\nnode A { kind = CONSTANT; discrete = TRUE; numstates = 2; };\n" +
                     NodeText("B", "numstates = 2; parents = (A); probs = ((1, 0), (0, 1));"))));
    EXPECT_EQ(Error(WARNING_SEVERITY), 6003);
    ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
    NewError_vx(w_.env, 1, ERROR_SEVERITY, "the error that matters");
    for (int i = 0; i < 2; ++i) NewError_vx(w_.env, 2, WARNING_SEVERITY, "a warning");
    for (int i = 3; i < 10001; ++i) NewError_vx(w_.env, 3, ERROR_SEVERITY, "another error");
    EXPECT_NE(GetError_vx(w_.env, ERROR_SEVERITY, 1, nullptr), nullptr);
    EXPECT_EQ(GetError_vx(w_.env, WARNING_SEVERITY, 2, nullptr), nullptr);
    ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
}

TEST_F(WeakSpots, ADeviceWithoutEndEndsAtTheLimitOrOnHalt)
{
    const double limit = LimitMemoryUsage_vx(32 << 20, w_.env);
    EXPECT_EQ(ReadFile("/dev/zero"), nullptr);
    EXPECT_EQ(Error(), 5622);
    LimitMemoryUsage_vx(limit, w_.env);
    SetHaltFlag_vx(w_.env, true);
    EXPECT_EQ(ReadFile("/dev/zero"), nullptr);
    SetHaltFlag_vx(w_.env, false);
    EXPECT_EQ(Error(), 3605);
}

TEST_F(WeakSpots, PipesAreReadToTheirEnd)
{
    const std::string path = w_.Path("pipe.dne");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const pid_t writer = fork();
    if (writer == 0) {
        const int file = open(path.c_str(), O_WRONLY);
        const std::string text = kGardenText;
        for (size_t at = 0; at < text.size(); at += 100)
            if (write(file, text.data() + at, std::min<size_t>(100, text.size() - at)) < 0) _exit(1);
        _exit(0);
    }
    net_bn* net = ReadFile(path);
    ASSERT_NE(net, nullptr);
    EXPECT_EQ(TextOf(net), TextOf(w_.net));
}

TEST_F(WeakSpots, FilesMayShrinkAndGrowWhileTheyAreRead)
{
    const std::string path = w_.Path("changing.dne"), text = LargeNetText(8000);
    PutFile(path, text);
    const pid_t other = fork();
    if (other == 0) {
        for (int i = 0;; ++i) {
            if (truncate(path.c_str(), i % 2 ? 0 : off_t(text.size() / 3)) != 0) _exit(1);
            PutFile(path, text + text);
        }
    }
    for (int i = 0; i < 20; ++i) {
        net_bn* net = ReadFile(path);
        EXPECT_TRUE(net != nullptr || Error() != 0);
        DeleteNet_bn(net);
        ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
    }
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
}

TEST_F(WeakSpots, LinksThatLeadNowhere)
{
    const auto save = [&](const char* name) {
        stream_vx* stream = NewFileStream_vx(w_.Path(name).c_str(), w_.env, nullptr);
        WriteNet_bn(w_.net, stream);
        DeleteStream_vx(stream);
        return Error();
    };
    fs::create_symlink("b.dne", w_.Path("a.dne"));
    fs::create_symlink("a.dne", w_.Path("b.dne"));
    EXPECT_EQ(save("a.dne"), 4031);
    EXPECT_TRUE(fs::is_symlink(w_.Path("a.dne")));
    fs::create_symlink("new.dne", w_.Path("to-new.dne"));  // dangling: the file is made where it leads
    EXPECT_EQ(save("to-new.dne"), 0);
    EXPECT_TRUE(fs::is_symlink(w_.Path("to-new.dne")) && fs::is_regular_file(w_.Path("new.dne")));
    fs::create_symlink("no-such-folder/x.dne", w_.Path("lost.dne"));
    EXPECT_EQ(save("lost.dne"), 4031);
    EXPECT_EQ(save("no-such-folder/x.dne"), 4031);
}

// Without random numbers nothing is encrypted; and then nothing is written, least of all in the clear.
TEST_F(WeakSpots, NoRandomNumbersNoFile)
{
    PutFile(w_.Path("secret.tala"), "the old file");
    stream_vx* stream = NewFileStream_vx(w_.Path("secret.tala").c_str(), w_.env, nullptr);
    SetStreamPassword_vx(stream, "a password that is long enough");
    GiveRandomBytes(RandomBytes::NONE);
    WriteNet_bn(w_.net, stream);
    GiveRandomBytes(RandomBytes::REAL);
    EXPECT_EQ(Error(), 6861);
    EXPECT_EQ(FileText(w_.Path("secret.tala")), "the old file");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
}

}  // namespace
}  // namespace faults
