// Pages in HTML that need nothing else: style, tables and drawings are in the file.
#include "talora/Html.h"

#include <algorithm>
#include <charconv>

#include "talora/Svg.h"
#include "talora/Text.h"

namespace command {

namespace {

// Colours of curves keep apart for those who do not see all colours, and so do their dashes.
constexpr const char* kStyle = R"(
:root { color-scheme: light dark; --page: #ffffff; --ink: #1b1f24; --soft: #59636e; --rule: #d5dae0;
  --panel: #f5f7f9; --bar: #1f6fb2; --less: #c05a1a; --more: #1f6fb2; --right: 31 111 178; --wrong: 208 96 24;
  --c0: #0068a8; --c1: #c04f00; --c2: #007a59; --c3: #a84a83; --c4: #7d6500; --c5: #2f86b8; --c6: #7048a0;
  --c7: #555555; }
@media (prefers-color-scheme: dark) { :root { --page: #14181d; --ink: #e6e9ed; --soft: #a3adb8; --rule: #3a424c;
  --panel: #1c2229; --bar: #4da3e0; --less: #ec8a4a; --more: #4da3e0; --right: 60 140 205; --wrong: 215 105 40;
  --c0: #4fb0ec; --c1: #ff8f45; --c2: #2ecfa2; --c3: #ea9bca; --c4: #dcc247; --c5: #95d4f7; --c6: #bd9bea;
  --c7: #b4b4b4; } }
@media print { :root { color-scheme: light; --page: #ffffff; --ink: #000000; --soft: #444444; --rule: #bbbbbb;
  --panel: #ffffff; --bar: #1f6fb2; --less: #c05a1a; --more: #1f6fb2; --right: 31 111 178; --wrong: 208 96 24;
  --c0: #0068a8; --c1: #c04f00; --c2: #007a59; --c3: #a84a83; --c4: #7d6500; --c5: #2f86b8; --c6: #7048a0;
  --c7: #555555; }
  figure, tr { break-inside: avoid; } h2, h3 { break-after: avoid; } .scroll { overflow: visible !important; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: clamp(0.6rem, 3vw, 1rem); max-width: 76rem; background: var(--page); color: var(--ink);
  font: 1rem/1.5 system-ui, "Segoe UI", Roboto, "Helvetica Neue", Arial, "DejaVu Sans", sans-serif;
  print-color-adjust: exact; -webkit-print-color-adjust: exact; }
h1, h2, h3, p, figcaption, caption, li, dd { overflow-wrap: anywhere; }
h1 { font-size: 1.6rem; line-height: 1.25; margin: 0.5rem 0 0; }
h2 { font-size: 1.25rem; line-height: 1.3; margin: 2.5rem 0 0.5rem; padding-top: 0.75rem;
  border-top: 1px solid var(--rule); }
h3 { font-size: 1.05rem; margin: 1.5rem 0 0.25rem; }
p { margin: 0.4rem 0; max-width: 46rem; }
.kind, footer, figcaption { color: var(--soft); }
.kind { margin: 0 0 1rem; }
footer { margin-top: 3rem; font-size: 0.85rem; border-top: 1px solid var(--rule); padding-top: 0.5rem; }
a { color: var(--bar); }
.figures { display: grid; gap: 1rem; grid-template-columns: repeat(auto-fill, minmax(min(100%, 20rem), 1fr));
  margin: 1rem 0; align-items: start; }
figure { margin: 0; padding: clamp(0.4rem, 2vw, 0.75rem); background: var(--panel); border: 1px solid var(--rule);
  border-radius: 6px; }
figcaption { font-size: 0.85rem; line-height: 1.4; margin-bottom: 0.5rem; }
figcaption strong { color: var(--ink); display: block; font-size: 0.95rem; }
.legend { list-style: none; display: flex; flex-wrap: wrap; gap: 0.15rem 1rem; margin: 0.4rem 0 0; padding: 0;
  color: var(--ink); }
.legend svg { width: 1.8rem; height: 0.6rem; display: inline-block; vertical-align: middle;
  margin-right: 0.35rem; }
figure > svg { display: block; width: 100%; height: auto; max-width: 30rem; margin: 0 auto; }
svg text { font-size: 12px; fill: var(--ink); font-family: inherit; }
svg .middle { text-anchor: middle; } svg .end { text-anchor: end; }
svg .value { font-variant-numeric: tabular-nums; fill: var(--soft); }
svg .track { fill: var(--rule); opacity: 0.45; } svg .bar { fill: var(--bar); }
svg .less { fill: var(--less); } svg .more { fill: var(--more); }
svg .present { stroke: var(--ink); stroke-width: 1.5; }
svg .axis { stroke: var(--soft); } svg .grid { stroke: var(--rule); }
svg .diagonal { stroke: var(--soft); stroke-dasharray: 3 4; }
svg .curve { fill: none; stroke-width: 2; stroke-linejoin: round; }
svg .dot { stroke: var(--panel); stroke-width: 0.8; }
svg .c0 { stroke: var(--c0); } svg .c1 { stroke: var(--c1); stroke-dasharray: 7 3; }
svg .c2 { stroke: var(--c2); stroke-dasharray: 2 2; } svg .c3 { stroke: var(--c3); stroke-dasharray: 9 3 2 3; }
svg .c4 { stroke: var(--c4); } svg .c5 { stroke: var(--c5); stroke-dasharray: 7 3; }
svg .c6 { stroke: var(--c6); stroke-dasharray: 2 2; } svg .c7 { stroke: var(--c7); stroke-dasharray: 9 3 2 3; }
svg .dot.c0 { fill: var(--c0); } svg .dot.c1 { fill: var(--c1); } svg .dot.c2 { fill: var(--c2); }
svg .dot.c3 { fill: var(--c3); } svg .dot.c4 { fill: var(--c4); } svg .dot.c5 { fill: var(--c5); }
svg .dot.c6 { fill: var(--c6); } svg .dot.c7 { fill: var(--c7); }
svg .dot { stroke: none; }
.scroll { overflow-x: auto; margin: 1rem 0; }
.scroll:focus-visible { outline: 2px solid var(--bar); }
table { border-collapse: collapse; font-size: 0.92rem; font-variant-numeric: tabular-nums; }
caption { text-align: left; font-weight: 600; padding: 0 0 0.35rem; }
th, td { padding: 0.25rem 0.7rem; border-bottom: 1px solid var(--rule); text-align: left; vertical-align: top; }
th { font-weight: 600; } thead th { color: var(--soft); vertical-align: bottom; }
.number { text-align: right; white-space: nowrap; } thead .number { white-space: normal; }
tr.query { color: var(--soft); } .strong { font-weight: 600; }
td.right { background: rgb(var(--right) / calc(var(--heat) * 0.6)); }
td.wrong { background: rgb(var(--wrong) / calc(var(--heat) * 0.6)); }
)";

std::string Decimal(double value)
{
    char text[64];
    return {text, std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 3).ptr};
}

std::string CellMarkup(const Cell& cell, const char* element, bool is_number, const char* attributes)
{
    std::string classes = is_number ? "number" : "text";
    if (!cell.style.empty()) classes += " " + std::string(cell.style);
    std::string markup = std::string("<") + element + attributes + " class=\"" + classes + "\"";
    if (cell.heat >= 0) markup += " style=\"--heat: " + Decimal(std::min(cell.heat, 1.0)) + "\"";
    return markup + ">" + EscapeMarkup(cell.text) + "</" + element + ">";
}

}  // namespace

std::string TextElement(const char* name, std::string_view text)
{
    return std::string("<") + name + ">" + EscapeMarkup(text) + "</" + name + ">";
}

std::string TableMarkup(std::string_view caption, const std::vector<std::vector<Cell>>& rows,
                        size_t number_from)
{
    std::string markup = "<div class=\"scroll\" role=\"region\" tabindex=\"0\" aria-label=\"" +
                         EscapeMarkup(caption) + "\">\n<table>\n" + TextElement("caption", caption) + "\n";
    for (size_t i = 0; i < rows.size(); ++i) {
        markup += i == 0 ? "<thead><tr>" : i == 1 ? "<tbody>\n<tr>" : "<tr>";
        for (size_t k = 0; k < rows[i].size(); ++k) {
            const bool is_heading = i == 0 || k == 0;
            const char* attributes = i == 0 ? " scope=\"col\"" : k == 0 ? " scope=\"row\"" : "";
            markup += CellMarkup(rows[i][k], is_heading ? "th" : "td", k >= number_from, attributes);
        }
        markup += i == 0 ? "</tr></thead>\n" : "</tr>\n";
    }
    return markup + (rows.size() > 1 ? "</tbody>\n" : "") + "</table>\n</div>\n";
}

std::string FigureMarkup(const std::string& drawing, std::string_view title, std::string_view note,
                         const std::vector<std::string>& legend)
{
    std::string markup = "<figure>\n<figcaption>" + TextElement("strong", title) + EscapeMarkup(note);
    if (!legend.empty()) {
        markup += "\n<ul class=\"legend\">\n";
        for (size_t i = 0; i < legend.size(); ++i)
            markup +=
                "<li><svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 30 10\" aria-hidden=\"true\">"
                "<line x1=\"0\" y1=\"5\" x2=\"30\" y2=\"5\" class=\"curve c" +
                std::to_string(i % kCurveStyles) + "\"/></svg>" + EscapeMarkup(legend[i]) + "</li>\n";
        markup += "</ul>\n";
    }
    return markup + "</figcaption>\n" + drawing + "</figure>\n";
}

Page::Page(std::string_view heading, std::string_view kind)
    : title_(std::string(kind) + ": " + std::string(heading)),
      body_(TextElement("h1", heading) + "\n<p class=\"kind\">" + EscapeMarkup(kind) + "</p>\n")
{}

void Page::Section(std::string_view heading)
{
    body_ += TextElement("h2", heading) + "\n";
}

void Page::Paragraph(std::string_view text)
{
    body_ += TextElement("p", text) + "\n";
}

void Page::Figures(const std::vector<std::string>& figures)
{
    body_ += "<div class=\"figures\">\n";
    for (const std::string& figure : figures) body_ += figure;
    body_ += "</div>\n";
}

std::string Page::Markup(std::string_view maker) const
{
    return "<!DOCTYPE html>\n"
           "<html xmlns=\"http://www.w3.org/1999/xhtml\" lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
           "<meta http-equiv=\"Content-Security-Policy\" "
           "content=\"default-src 'none'; style-src 'unsafe-inline'\"/>\n" +
           TextElement("title", title_) + "\n<style>" + kStyle + "</style>\n</head>\n<body>\n<main>\n" +
           body_ + "</main>\n" + TextElement("footer", maker) + "\n</body>\n</html>\n";
}

std::string NameAndTitle(const char* name, const char* title)
{
    const std::string text = title ? title : "";
    return text.empty() || text == name ? name : std::string(name) + ": " + text;
}

void HtmlOption::Define(CLI::App& app)
{
    app.add_option("--html", path, "Also write a page with plots; - for standard output in place of the text")
        ->type_name("FILE");
}

void HtmlOption::CheckUsage(const Session& session) const
{
    if (TakesOutput() && session.options.json)
        throw WrongUsage("--json and --html - both want standard output");
}

void HtmlOption::Write(Session& session, const Page& page) const
{
    const char* version = "";
    GetTaloraVersion_bn(session.env, &version);
    const std::string markup = page.Markup(version);
    session.Check();
    if (TakesOutput()) {
        session.PrintRaw(markup);
        return;
    }
    stream_vx* bytes = NewMemoryStream_vx("page", session.env, nullptr);
    SetStreamContents_vx(bytes, markup.data(), static_cast<int64_t>(markup.size()));
    stream_vx* file = NewFileStream_vx(path.c_str(), session.env, nullptr);
    session.Check();
    CopyStream_vx(bytes, file);
    DeleteStream_vx(file);
    DeleteStream_vx(bytes);
    session.Check();
}

}  // namespace command
