// Texts that are compared with files of Tests/Golden.  With TALORA_WRITE_GOLDEN set the files are written
// instead; read the difference before it is kept.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::filesystem::path GoldenFile(const std::string& name)
{
    // From the source, or from a build folder in the checkout.
    std::filesystem::path folder = std::filesystem::path(__FILE__).parent_path() / "../Golden";
    if (!std::filesystem::exists(folder))
        folder = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../Tests/Golden";
    return folder / name;
}

inline void ExpectGolden(const std::string& name, const std::string& text)
{
    const std::filesystem::path path = GoldenFile(name);
    if (std::getenv("TALORA_WRITE_GOLDEN")) {
        std::ofstream(path, std::ios::binary) << text;
        return;
    }
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file) << "no file " << path;
    EXPECT_EQ(text, std::string(std::istreambuf_iterator<char>(file), {})) << name;
}
