// The four-letter codes of kinds of files: "DNET" text net file, "TALA" binary net file, "CASE" case file.
#pragma once

#include <string>
#include <string_view>

namespace talora {

constexpr std::string_view kFileMark = "// ~->[";  // what the files of the system begin with
constexpr char kNoFileType[] = "????";

std::string FileTypeByContents(std::string_view bytes);
std::string FileTypeByName(std::string_view name);  // by its extension, whatever its case

}  // namespace talora
