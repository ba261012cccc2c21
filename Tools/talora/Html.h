// Reports as pages: one HTML file that needs nothing else, with its drawings and style inside.
//
// A page is also well-formed XML, has no script and asks for nothing from elsewhere (it says so to the
// browser too).  It follows the reader's choice of light or dark, can be printed, and is laid out for
// any width from 320 pixels.  Everything passed as text is escaped here; only Add takes markup.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "talora/Command.h"

namespace command {

struct Cell {
    std::string text;
    std::string_view style = {};  // classes: "right" and "wrong" colour by heat, "strong"
    double heat = -1;             // 0 to 1
};

// An element with an escaped text.
std::string TextElement(const char* name, std::string_view text);

// A table whose first row holds headings, and whose first column names the rows.  Cells from number_from on
// stand at the right.  It scrolls by itself where it is wider than the page.
std::string TableMarkup(std::string_view caption, const std::vector<std::vector<Cell>>& rows,
                        size_t number_from = 1);

// A drawing below what it shows; legend: names of its curves, by number.
std::string FigureMarkup(const std::string& drawing, std::string_view title, std::string_view note,
                         const std::vector<std::string>& legend = {});

class Page {
public:
    // heading names the subject, kind what the page is about it: "Test", "Sensitivity".
    Page(std::string_view heading, std::string_view kind);

    void Section(std::string_view heading);
    void Paragraph(std::string_view text);
    void Figures(const std::vector<std::string>& figures);  // side by side where there is room
    void Add(std::string_view markup) { body_ += markup; }

    std::string Markup(std::string_view maker) const;

private:
    std::string title_, body_;
};

// "ChestClinic: Chest clinic" or only the name; of a node likewise.
std::string NameAndTitle(const char* name, const char* title);

// The option --html FILE.
struct HtmlOption {
    std::string path;

    void Define(CLI::App& app);
    bool IsGiven() const { return !path.empty(); }
    bool TakesOutput() const { return path == "-"; }  // then no other text is printed
    void CheckUsage(const Session& session) const;    // throws WrongUsage
    void Write(Session& session, const Page& page) const;
};

}  // namespace command
