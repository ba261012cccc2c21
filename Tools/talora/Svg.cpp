// Elements of SVG, and the charts made of them.
#include "talora/Svg.h"

#include <Talora.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "talora/Text.h"

namespace command {

namespace {

constexpr double kFontSize = 12;
constexpr double kWidth = 320;  // of all charts

// Coordinates: to a hundredth, no exponent.
std::string Coordinate(double value)
{
    char text[64];
    const double rounded = std::round(value * 100) / 100 + 0.0;  // no minus zero
    const auto end = std::to_chars(text, text + sizeof text, rounded, std::chars_format::fixed).ptr;
    return {text, end};
}

std::string Attribute(const char* name, double value)
{
    return std::string(" ") + name + "=\"" + Coordinate(value) + "\"";
}

std::string Attribute(const char* name, std::string_view text)
{
    return std::string(" ") + name + "=\"" + EscapeMarkup(text) + "\"";
}

// An element, with a text that appears when pointing at it.
std::string Element(const std::string& start, std::string_view name, std::string_view hint)
{
    if (hint.empty()) return start + "/>";
    return start + "><title>" + EscapeMarkup(hint) + "</title></" + std::string(name) + ">";
}

size_t CharacterLength(std::string_view text, size_t at)
{
    size_t length = 1;
    while (at + length < text.size() && (static_cast<uint8_t>(text[at + length]) & 0xC0) == 0x80) ++length;
    return length;
}

// Width of the character in ems, as wide as it is in any of the usual sans-serif fonts.
double Ems(std::string_view character)
{
    if (character.size() > 2) return 1.05;
    if (character.size() == 2) return 0.8;
    if (std::string_view("iljtfrI.,:;'|!()[] ").find(character[0]) != std::string_view::npos) return 0.42;
    if (std::string_view("MWmw@%").find(character[0]) != std::string_view::npos) return 1;
    return character[0] >= 'A' && character[0] <= 'Z' ? 0.76 : 0.64;
}

double TextWidth(std::string_view text)
{
    double ems = 0;
    for (size_t at = 0; at < text.size(); at += CharacterLength(text, at))
        ems += Ems(text.substr(at, CharacterLength(text, at)));
    return ems * kFontSize;
}

// As much of a printable text as fits.
std::string Fitting(const std::string& text, double width)
{
    if (TextWidth(text) <= width) return text;
    double used = kFontSize;  // the ellipsis
    size_t at = 0;
    while (at < text.size()) {
        const size_t length = CharacterLength(text, at);
        used += Ems(std::string_view(text).substr(at, length)) * kFontSize;
        if (used > width) break;
        at += length;
    }
    return text.substr(0, at) + "…";
}

// Where a value lies between two others, 0 to 1.  Halved first, so that differences do not overflow.
double Share(double value, double low, double high)
{
    return high > low ? std::clamp((value / 2 - low / 2) / (high / 2 - low / 2), 0.0, 1.0) : 0.5;
}

}  // namespace

std::string EscapeMarkup(std::string_view text)
{
    std::string out;
    for (const char c : Printable(text)) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string Digits(double value, int digits)
{
    if (value == GetUndefDbl_vx() || std::isnan(value)) return "undefined";
    if (std::fabs(value) >= GetInfinityDbl_vx()) return value > 0 ? "infinite" : "-infinite";
    char text[64];
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, digits).ptr;
    return {text, end};
}

Svg::Svg(double width, double height, std::string_view title, std::string_view description)
    : markup_("<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" viewBox=\"0 0 " + Coordinate(width) +
              " " + Coordinate(height) + "\"" + Attribute("width", width) + Attribute("height", height) +
              Attribute("aria-label", title) + ">\n<title>" + EscapeMarkup(title) + "</title>\n<desc>" +
              EscapeMarkup(description) + "</desc>\n")
{}

void Svg::Line(Point from, Point to, std::string_view style)
{
    markup_ += "<line" + Attribute("x1", from.x) + Attribute("y1", from.y) + Attribute("x2", to.x) +
               Attribute("y2", to.y) + Attribute("class", style) + "/>\n";
}

void Svg::Bar(double x, double y, double width, double height, std::string_view style, std::string_view hint)
{
    const std::string start = "<rect" + Attribute("x", x) + Attribute("y", y) + Attribute("width", width) +
                              Attribute("height", height) + Attribute("class", style);
    markup_ += Element(start, "rect", hint) + "\n";
}

void Svg::Dot(Point centre, double radius, std::string_view style, std::string_view hint)
{
    const std::string start = "<circle" + Attribute("cx", centre.x) + Attribute("cy", centre.y) +
                              Attribute("r", radius) + Attribute("class", style);
    markup_ += Element(start, "circle", hint) + "\n";
}

void Svg::Path(const std::vector<Point>& points, std::string_view style)
{
    std::string text;
    for (const Point& point : points)
        text += (text.empty() ? "" : " ") + Coordinate(point.x) + "," + Coordinate(point.y);
    if (points.empty()) return;
    markup_ += "<polyline" + Attribute("points", text) + Attribute("class", style) + "/>\n";
}

void Svg::Text(Point at, double width, std::string_view text, std::string_view style)
{
    const std::string whole = Printable(text), fitting = Fitting(whole, width);
    markup_ += "<text" + Attribute("x", at.x) + Attribute("y", at.y) + Attribute("class", style) + ">" +
               (fitting == whole ? "" : "<title>" + EscapeMarkup(whole) + "</title>") +
               EscapeMarkup(fitting) + "</text>\n";
}

void Svg::SideText(Point at, std::string_view text)
{
    markup_ += "<text class=\"middle\" transform=\"translate(" + Coordinate(at.x) + " " + Coordinate(at.y) +
               ") rotate(-90)\">" + EscapeMarkup(text) + "</text>\n";
}

std::vector<double> Ticks(double low, double high, int most)
{
    const double width = high - low;
    if (!(width > 0) || !std::isfinite(width)) return {low};
    const double power = std::pow(10, std::floor(std::log10(width / most)));
    constexpr double kSlack = 1e-6;  // in steps: an end that rounding has moved gets its tick
    double step = 0;
    for (const double factor : {1, 2, 5, 10}) {
        step = factor * power;
        if (std::floor(high / step + kSlack) - std::ceil(low / step - kSlack) + 1 <= most) break;
    }
    std::vector<double> ticks;
    const double first = std::ceil(low / step - kSlack);
    for (int i = 0; i < most && (first + i) * step <= high + step * kSlack; ++i)
        ticks.push_back((first + i) * step + 0.0);
    return ticks.empty() ? std::vector<double>{low} : ticks;
}

std::string BarChart(std::string_view title, std::string_view description, const std::vector<BarRow>& rows,
                     double whole)
{
    constexpr double kRow = 34, kBarHeight = 12, kBase = 15, kLeft = 2, kLongest = kWidth - 2 * kLeft;
    double greatest = whole;
    for (const BarRow& row : rows) greatest = std::max(greatest, row.value);
    Svg svg(kWidth, kRow * double(rows.size()) + 4, title, description);
    for (size_t i = 0; i < rows.size(); ++i) {
        const BarRow& row = rows[i];
        const double top = kRow * double(i), shown_width = TextWidth(row.shown);
        svg.Text({kLeft, top + kBase}, kLongest - shown_width - kFontSize, row.label, "start");
        svg.Text({kWidth - kLeft, top + kBase}, kLongest, row.shown, "end value");
        svg.Bar(kLeft, top + 20, kLongest, kBarHeight, "track", "");
        const double length = greatest > 0 ? Share(row.value, 0, greatest) * kLongest : 0;
        svg.Bar(kLeft, top + 20, length, kBarHeight, "bar", row.label + ": " + row.shown);
    }
    return svg.Markup();
}

std::string RangeChart(std::string_view title, std::string_view description, double present,
                       const std::vector<RangeRow>& rows)
{
    constexpr double kRow = 34, kBarHeight = 12, kBase = 15, kLeft = 26, kAxis = kWidth - 2 * kLeft;
    double low = present, high = present;
    for (const RangeRow& row : rows) {
        low = std::min(low, row.low);
        high = std::max(high, row.high);
    }
    const auto x = [&](double value) { return kLeft + Share(value, low, high) * kAxis; };
    const double bottom = kRow * double(rows.size()) + 6;
    Svg svg(kWidth, bottom + 42, title, description);
    for (const double tick : Ticks(low, high, 5)) {
        for (size_t i = 0; i < rows.size(); ++i)
            svg.Line({x(tick), kRow * double(i) + 20}, {x(tick), kRow * double(i) + 20 + kBarHeight}, "grid");
        svg.Line({x(tick), bottom}, {x(tick), bottom + 4}, "axis");
        svg.Text({x(tick), bottom + 18}, 50, Digits(tick, 4), "middle");
    }
    svg.Line({kLeft, bottom}, {kLeft + kAxis, bottom}, "axis");
    for (size_t i = 0; i < rows.size(); ++i) {
        const RangeRow& row = rows[i];
        const double top = kRow * double(i) + 20;
        const std::string shown = Digits(row.low) + " – " + Digits(row.high);
        svg.Text({2, top - 20 + kBase}, kWidth - 4 - TextWidth(shown) - kFontSize, row.label, "start");
        svg.Text({kWidth - 2, top - 20 + kBase}, kWidth, shown, "end value");
        svg.Bar(x(row.low), top, x(present) - x(row.low), kBarHeight, "less", row.label + ": " + shown);
        svg.Bar(x(present), top, x(row.high) - x(present), kBarHeight, "more", row.label + ": " + shown);
        svg.Line({x(present), top}, {x(present), top + kBarHeight + 2}, "present");
    }
    svg.Line({x(present), bottom - 4}, {x(present), bottom + 4}, "present");
    svg.Text({kWidth / 2, bottom + 36}, kWidth, "now " + Digits(present), "middle value");
    return svg.Markup();
}

std::string CurveChart(std::string_view title, std::string_view description, std::string_view x_label,
                       std::string_view y_label, const std::vector<Curve>& curves)
{
    constexpr double kLeft = 48, kTop = 10, kSide = kWidth - kLeft - 14, kBottom = kTop + kSide;
    const auto place = [](const Point& point) {
        return Point{kLeft + Share(point.x, 0, 1) * kSide, kBottom - Share(point.y, 0, 1) * kSide};
    };
    Svg svg(kWidth, kBottom + 42, title, description);
    for (int i = 0; i <= 5; ++i) {
        const double at = i / 5.0;
        svg.Line(place({at, 0}), place({at, 1}), i == 0 ? "axis" : "grid");
        svg.Line(place({0, at}), place({1, at}), i == 0 ? "axis" : "grid");
        svg.Text({place({at, 0}).x, kBottom + 16}, 40, Digits(at), "middle");
        svg.Text({kLeft - 6, place({0, at}).y + 4}, 40, Digits(at), "end");
    }
    svg.Line(place({0, 0}), place({1, 1}), "diagonal");
    for (size_t i = 0; i < curves.size(); ++i) {
        const std::string style = "c" + std::to_string(i % kCurveStyles);
        std::vector<Point> points;
        for (const Point& point : curves[i].points) points.push_back(place(point));
        svg.Path(points, "curve " + style);
        for (size_t k = 0; k < curves[i].hints.size() && k < points.size(); ++k)
            svg.Dot(points[k], 3.5, "dot " + style, curves[i].hints[k]);
    }
    svg.Text({kLeft + kSide / 2, kBottom + 34}, kSide, x_label, "middle");
    svg.SideText({13, kTop + kSide / 2}, y_label);
    return svg.Markup();
}

}  // namespace command
