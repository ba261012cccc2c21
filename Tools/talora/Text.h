// Text for the terminal: what is safe to print there, bars, numbers, columns.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace command {

// The text with everything that a terminal could take as a command, or that is not UTF-8, written
// as \xNN.  Names and titles from files only reach the terminal through this.
std::string Printable(std::string_view text);
// The same for text of several lines, which stay lines.
std::string PrintableLines(std::string_view text);

// How many columns a printable text takes, one for each character.
int DisplayWidth(std::string_view text);

// The text filled up with blanks to a width, on the right or on the left.
std::string PadRight(std::string text, int width);
std::string PadLeft(std::string text, int width);

// A bar of at most width columns for a fraction 0 to 1; blocks where the locale has UTF-8.
std::string Bar(double fraction, int width);

// Columns of the terminal on standard output, 80 when it is not one.
int TerminalColumns();

// Six digits; "undefined" for the library's undefined number.
std::string Number(double value);

// The shortest text that reads back to the same single-precision value.
std::string ShortestNumber(float value);

// Why the system refused what was asked of it last (errno).
std::string SystemReason();

// Lines with columns wide enough for their entries; the last one is not padded.
class Columns {
public:
    void AddRow(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    // right_from: from this column on, entries stand at the right of their column.
    std::string Text(size_t right_from = SIZE_MAX) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace command
