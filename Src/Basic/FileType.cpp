// Types of files: by the mark in their first bytes, and by the extension of their name.
#include "Basic/FileType.h"

#include <algorithm>

#include "Basic/Text.h"

namespace talora {

namespace {

constexpr size_t kCodeLength = 4;

constexpr struct {
    std::string_view extension;
    const char* type;
    // The type is the code behind the mark that begins a file.
} kTypes[] = {
    {"dne", "DNET"},
    {"tala", "TALA"},
    {"cas", "CASE"},
};

}  // namespace

std::string FileTypeByContents(std::string_view bytes)
{
    if (!bytes.starts_with(kFileMark) || bytes.size() < kFileMark.size() + kCodeLength) return kNoFileType;
    const std::string_view code = bytes.substr(kFileMark.size(), kCodeLength);
    const bool is_code = std::all_of(code.begin(), code.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
    return is_code ? std::string(code) : kNoFileType;
}

std::string FileTypeByName(std::string_view name)
{
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos) return kNoFileType;
    for (const auto& row : kTypes)
        if (EqualNoCase(name.substr(dot + 1), row.extension)) return row.type;
    return kNoFileType;
}

}  // namespace talora
