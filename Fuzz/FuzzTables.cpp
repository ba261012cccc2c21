// Writes what fuzzing needs from the tables of the engine: the dictionaries, and a seed for each row of the
// equation language.
//
//   fuzz_tables FOLDER           writes FOLDER/Dictionaries and FOLDER/Seeds/EquationFuzz
//   fuzz_tables --check FOLDER   fails if the dictionaries there are not those that would be written
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "BN/Files/NetFields.h"
#include "Misc/Equations/EqnTable.h"
#include "VarVal/CaseFile.h"

namespace {

using namespace talora;
namespace fs = std::filesystem;
using Words = std::set<std::string>;

template <size_t kCount>
void AddWords(Words& words, const EnumWord (&rows)[kCount])
{
    for (const EnumWord& row : rows) words.insert(row.word);
}

Words NetWords()
{
    Words words = {"// ~->[DNET-1]->~\n",
                   "bnet",
                   "node ",
                   "define node ",
                   "visual ",
                   "user ",
                   "undefined",
                   "*",
                   "@imposs",
                   "@undef",
                   "undef",
                   "INFINITY",
                   "-INFINITY",
                   "#0",
                   "/#",
                   "#/",
                   "/*",
                   "*/",
                   "default ",
                   "};\n",
                   " = (",
                   "), (",
                   "\xFF\xFE",
                   "\xEF\xBB\xBF",
                   "2147483647",
                   "1e308",
                   "1e-320",
                   "9223372036854775808"};
    for (const NetFieldDef& field : kNetFields) words.insert(field.keyword);
    for (const NodeFieldDef& field : kNodeFields) words.insert(field.keyword);
    AddWords(words, kTypeWords);
    AddWords(words, kMeasureWords);
    AddWords(words, kKindWords);
    AddWords(words, kRelationWords);
    AddWords(words, kDirtyWords);
    AddWords(words, kBoolWords);
    return words;
}

Words ContainerWords()
{
    Words words = NetWords();
    words.insert({"// ~->[TALA=1]->~ ", "// encrypt = ", "// encrypt = N\r\n", "\r\n",
                  std::string("\x50\xCA\xEA\x70\0\0\0\0", 8), "\x1F\x8B\x08", std::string(8, '\xFF')});
    return words;
}

Words EquationWords()
{
    Words words = {"x (a, b, c, d, s) = ",
                   "P (x | a, b, c, d, s) = ",
                   "(",
                   ")",
                   ", ",
                   "#",
                   "--",
                   "low",
                   "high",
                   "red",
                   "1e308",
                   "0.5",
                   "[",
                   "]",
                   "?",
                   ":"};
    for (const FunctionDef& def : FunctionTable()) {
        if (*def.symbol == 0) words.insert(def.name + std::string(" ("));
        for (const char* symbol : {def.symbol, def.second})
            if (symbol && *symbol) words.insert(symbol);
    }
    for (const ConstantDef& def : ConstantTable()) words.insert(def.name);
    for (const UnitDef& def : UnitTable()) words.insert(std::string(" ") + def.name);
    return words;
}

Words CaseWords()
{
    return {kIdColumn,  kFreqColumn, "// ~->[CASE-1]->~\n",
            "*",        "#1",        "{0.5, 0.5}",
            "[0, 1]",   "+-",        "<",
            ">",        "~",         "\"",
            "\"\"",     "\r\n",      "\xEF\xBB\xBF",
            "\xFF\xFE", "A",         "B",
            "C",        "D",         "L",
            "N",        "//",        "/#",
            "#/",       "1e308",     "-1",
            "no",       "yes"};
}

// In the form that libFuzzer reads: one quoted word a line.
std::string Dictionary(const Words& words)
{
    std::string text = "# Written by fuzz_tables from the tables of the engine.\n";
    for (const std::string& word : words) {
        text += '"';
        for (const char c : word) {
            char escape[8];
            snprintf(escape, sizeof escape, c < ' ' || c > '~' || c == '"' || c == '\\' ? "\\x%02X" : "%c",
                     static_cast<unsigned char>(c));
            text += escape;
        }
        text += "\"\n";
    }
    return text;
}

struct DictionaryDef {
    const char* target;
    Words (*words)();
};
constexpr DictionaryDef kDictionaries[] = {
    {"NetTextFuzz", NetWords},       {"ContainerFuzz", ContainerWords}, {"PayloadFuzz", NetWords},
    {"EquationFuzz", EquationWords}, {"CaseFileFuzz", CaseWords},       {"TextFuzz", NetWords},
};

std::string Contents(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void Write(const fs::path& path, const std::string& text)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

// The first two bytes choose values.
void WriteEquationSeeds(const fs::path& folder)
{
    for (const FunctionDef& def : FunctionTable()) Write(folder / def.name, std::string("!a") + def.example);
    for (const char* text : {"x (a, b, c) = a > 1 && b ? #low : #high", "P (x | a, c) = NormalDist (x, c, a)",
                             "x (d, s) = d * 3 deg + (s == #red) - pi / 2 kilo",
                             "P (x | b) = b ? 0.25 : 0.75", "x (c) = AsState (c ^ 2 ^ -0.5)"})
        Write(folder / ("whole" + std::to_string(strlen(text))), std::string("b!") + text);
}

}  // namespace

int main(int argc, char** argv)
{
    const bool check = argc == 3 && !strcmp(argv[1], "--check");
    if (argc != 2 && !check) {
        fprintf(stderr, "usage: fuzz_tables [--check] FOLDER\n");
        return 2;
    }
    const fs::path folder = argv[argc - 1];
    bool fresh = true;
    for (const DictionaryDef& def : kDictionaries) {
        const fs::path path = folder / "Dictionaries" / (std::string(def.target) + ".dict");
        const std::string text = Dictionary(def.words());
        if (!check) {
            Write(path, text);
        } else if (Contents(path) != text) {
            printf("%s is not up to date: run fuzz_tables %s\n", path.c_str(), folder.c_str());
            fresh = false;
        }
    }
    if (!check) WriteEquationSeeds(folder / "Seeds" / "EquationFuzz");
    return fresh ? 0 : 1;
}
