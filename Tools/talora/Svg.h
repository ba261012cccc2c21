// Drawings for reports, written as inline SVG: lines, bars, dots, texts, and the charts made of them.
//
// A drawing is a text that goes into a page unchanged.  It has a title and a description for readers who
// cannot see it, names of style classes in place of colours, and no text that leaves its view box:
// what is too long ends in an ellipsis, and the whole appears when pointing at it.  Numbers never depend
// on the locale.  One unit of a drawing is about a pixel where it is shown at its natural width.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace command {

// Text made safe for elements and attributes of HTML and XML: markup is escaped, and what neither may
// hold, or what turns text around, is shown as \xNN.
std::string EscapeMarkup(std::string_view text);

// A number to this many digits; "infinite", or "undefined".
std::string Digits(double value, int digits = 4);

struct Point {
    double x = 0, y = 0;
};

class Svg {
public:
    Svg(double width, double height, std::string_view title, std::string_view description);

    void Line(Point from, Point to, std::string_view style);
    void Bar(double x, double y, double width, double height, std::string_view style, std::string_view hint);
    void Dot(Point centre, double radius, std::string_view style, std::string_view hint);
    void Path(const std::vector<Point>& points, std::string_view style);
    // The text at one line, shortened to a width.  style "start", "middle" or "end" says where at is.
    void Text(Point at, double width, std::string_view text, std::string_view style);
    void SideText(Point at, std::string_view text);  // read from bottom to top, centred

    std::string Markup() const { return markup_ + "</svg>\n"; }

private:
    std::string markup_;
};

// Round numbers between two others, at most so many.
std::vector<double> Ticks(double low, double high, int most);

struct BarRow {
    std::string label;
    double value = 0;   // at least 0
    std::string shown;  // the value in words
};
// Bars from 0, one under the other, each below its label.  whole: what fills the width, if not the greatest.
std::string BarChart(std::string_view title, std::string_view description, const std::vector<BarRow>& rows,
                     double whole = 0);

struct RangeRow {
    std::string label;
    double low = 0, high = 0;
};
// Ranges about a present value, one under the other: a tornado when they come with the widest first.
std::string RangeChart(std::string_view title, std::string_view description, double present,
                       const std::vector<RangeRow>& rows);

struct Curve {
    std::vector<Point> points;       // both from 0 to 1
    std::vector<std::string> hints;  // one for each point that gets a dot; none: no dots
};
constexpr size_t kCurveStyles = 8;  // curve number i has the style class "c<i>"
// Curves in the unit square with its diagonal.
std::string CurveChart(std::string_view title, std::string_view description, std::string_view x_label,
                       std::string_view y_label, const std::vector<Curve>& curves);

}  // namespace command
