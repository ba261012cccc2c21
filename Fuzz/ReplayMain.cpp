// Hands the seeds and finds of fuzz targets to them, one after the other, without a fuzzer.
//
//   fuzz_replay TARGET FOLDER   every file of FOLDER/Seeds/TARGET and FOLDER/Finds/TARGET
//   fuzz_replay TARGET FILE...  these files
//   fuzz_replay --damaged COUNT TARGET FOLDER   so many damaged forms of the seeds, the same on every run
//
// A target aborts when a promise is broken; the file then being run is the one named last.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "Fuzz/Damage.h"

#define FUZZ_TARGET(name) extern "C" int name##_Run(const uint8_t* data, size_t size);
#include "FuzzTargets.inc"
#undef FUZZ_TARGET

// A custom mutator may ask for a plain mutation.  Here it changes one byte.
extern "C" size_t ReplayMutate(uint8_t* data, size_t size, size_t)
{
    static std::minstd_rand random(1);
    if (size > 0) data[random() % size] = static_cast<uint8_t>(random());
    return size;
}

namespace {

namespace fs = std::filesystem;

struct Target {
    const char* name;
    int (*run)(const uint8_t* data, size_t size);
};

constexpr Target kTargets[] = {
#define FUZZ_TARGET(name) {#name, name##_Run},
#include "FuzzTargets.inc"
#undef FUZZ_TARGET
};

const Target* FindTarget(const char* name)
{
    for (const Target& target : kTargets)
        if (!strcmp(target.name, name)) return &target;
    return nullptr;
}

std::vector<fs::path> KeptInputs(const fs::path& folder, const char* target)
{
    std::vector<fs::path> files;
    for (const char* kind : {"Seeds", "Finds"}) {
        const fs::path kept = folder / kind / target;
        if (!fs::is_directory(kept)) continue;
        for (const auto& entry : fs::directory_iterator(kept))
            if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string Contents(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void Run(const Target& target, const std::string& bytes)
{
    target.run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

// An input that breaks a promise stays in a file of the current folder.
void RunDamaged(const Target& target, const std::vector<fs::path>& files, int count)
{
    const std::string kept = std::string("damaged-") + target.name;
    std::minstd_rand random(7);
    for (int i = 0; i < count; ++i) {
        const std::string bytes =
            fuzz::Damaged(Contents(files[static_cast<size_t>(i) % files.size()]), random);
        std::ofstream(kept, std::ios::binary) << bytes;
        Run(target, bytes);
    }
    fs::remove(kept);
    printf("%s: %d damaged inputs kept their promises\n", target.name, count);
}

}  // namespace

int main(int argc, char** argv)
{
    const bool damaged = argc == 5 && !strcmp(argv[1], "--damaged");
    char** const args = argv + (damaged ? 3 : 1);
    const Target* target = argc > 2 ? FindTarget(args[0]) : nullptr;
    if (!target) {
        fprintf(stderr,
                "usage: fuzz_replay [--damaged COUNT] TARGET (FOLDER | FILE...), where TARGET is one of");
        for (const Target& known : kTargets) fprintf(stderr, " %s", known.name);
        fprintf(stderr, "\n");
        return 2;
    }
    std::vector<fs::path> files(args + 1, argv + argc);
    if (fs::is_directory(files[0])) files = KeptInputs(files[0], target->name);
    if (files.empty()) return 2;
    if (damaged) {
        RunDamaged(*target, files, atoi(argv[2]));
        return 0;
    }
    for (const fs::path& file : files) {
        printf("%s\n", file.c_str());
        fflush(stdout);
        Run(*target, Contents(file));
    }
    printf("%s: %zu inputs kept their promises\n", target->name, files.size());
    return 0;
}
