#include "Basic/FileType.h"

#include <algorithm>

namespace talora {

namespace {

constexpr size_t kCodeLength = 4;

constexpr struct {
    std::string_view extension;
    const char* type;
} kTypes[] = {
    {"dne", "DNET"},
    {"tala", "TALA"},
    {"cas", "CASE"},
};

char Lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

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
    std::string extension(name.substr(dot + 1));
    std::transform(extension.begin(), extension.end(), extension.begin(), Lower);
    for (const auto& row : kTypes)
        if (extension == row.extension) return row.type;
    return kNoFileType;
}

}  // namespace talora
