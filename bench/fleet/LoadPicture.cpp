#include "LoadPicture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>

namespace qlsdk::fleet {

namespace {

constexpr std::int64_t kFrom = kOutageBegins - 10 * kMinute;
constexpr std::int64_t kUntil = kOutageBegins + 60 * kMinute;
constexpr std::int64_t kPerPoint = kMinute;

// In pixels. One point of a line is kStep wide.
constexpr int kStep = 10;
constexpr int kLeft = 70;
constexpr int kTop = 50;
constexpr int kWidth = static_cast<int>((kUntil - kFrom) / kPerPoint) * kStep;
constexpr int kHeight = 300;
constexpr int kBottom = kTop + kHeight;
constexpr int kLegendTop = kBottom + 70;
constexpr int kLegendRow = 22;
constexpr int kLegendColumn = kWidth / 2;

struct Pen {
    std::string_view color;
    /// Tells the lines apart without colors.
    std::string_view dashes;
};
constexpr std::array<Pen, 6> kPens = {{{"#e5484d", "none"},
                                       {"#d97706", "7 3"},
                                       {"#3b82f6", "none"},
                                       {"#a855f7", "2 2"},
                                       {"#16a34a", "9 3 2 3"},
                                       {"#808a96", "none"}}};

std::string joined(std::initializer_list<std::string_view> pieces) {
    std::string text;
    for (const std::string_view piece : pieces) text += piece;
    return text;
}

std::string text(int x, int y, std::string_view anchor, std::string_view content) {
    return joined({"<text x=\"", std::to_string(x), "\" y=\"", std::to_string(y), "\" text-anchor=\"", anchor,
                   "\">", content, "</text>\n"});
}

std::string line(int x1, int y1, int x2, int y2, std::string_view attributes) {
    return joined({"<line x1=\"", std::to_string(x1), "\" y1=\"", std::to_string(y1), "\" x2=\"",
                   std::to_string(x2), "\" y2=\"", std::to_string(y2), "\" ", attributes, "/>\n"});
}

std::string rectangle(int x, int y, int width, int height, std::string_view attributes) {
    return joined({"<rect x=\"", std::to_string(x), "\" y=\"", std::to_string(y), "\" width=\"",
                   std::to_string(width), "\" height=\"", std::to_string(height), "\" ", attributes, "/>\n"});
}

int xOf(std::int64_t millis) {
    return kLeft + static_cast<int>((millis - kFrom) * kStep / kPerPoint);
}

std::vector<double> curveOf(const FleetRun& run) {
    std::vector<double> curve;
    for (std::int64_t at = kFrom; at < kUntil; at += kPerPoint) {
        curve.push_back(perSecond(run, &Load::requests, at, at + kPerPoint));
    }
    return curve;
}

/// A round number for the distance of the grid's lines, five of which reach `highest`.
int gridStep(double highest) {
    for (int tens = 1;; tens *= 10) {
        for (const int step : {tens, 2 * tens, 5 * tens}) {
            if (5 * step >= highest) return step;
        }
    }
}

std::string frame(std::string_view title, std::size_t lines) {
    const int width = kLeft + kWidth + 20;
    const int height = kLegendTop + static_cast<int>((lines + 1) / 2) * kLegendRow;
    return joined({"<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 ", std::to_string(width), " ",
                   std::to_string(height), "\" role=\"img\" font-family=\"sans-serif\" font-size=\"13\">\n",
                   "<title>", title, "</title>\n", "<style>\n",
                   ".paper { fill: #ffffff; } text { fill: #24292f; } .grid { stroke: #d0d7de; }\n",
                   ".outage { fill: #eaeef2; } polyline, .key { fill: none; stroke-width: 2; }\n",
                   "@media (prefers-color-scheme: dark) {\n",
                   ".paper { fill: #0d1117; } text { fill: #e6edf3; } .grid { stroke: #3d444d; }\n",
                   ".outage { fill: #21262d; }\n", "}\n", "</style>\n",
                   rectangle(0, 0, width, height, "class=\"paper\""), text(kLeft, 26, "start", title)});
}

std::string axes(int step, int top) {
    std::string svg = rectangle(xOf(kOutageBegins), kTop, xOf(kOutageEnds) - xOf(kOutageBegins), kHeight,
                                "class=\"outage\"") +
                      text((xOf(kOutageBegins) + xOf(kOutageEnds)) / 2, kTop - 6, "middle", "service fails");
    for (int value = 0; value <= top; value += step) {
        const int y = kBottom - kHeight * value / top;
        svg += line(kLeft, y, kLeft + kWidth, y, "class=\"grid\"");
        svg += text(kLeft - 8, y + 4, "end", std::to_string(value));
    }
    for (std::int64_t at = kFrom; at <= kUntil; at += 10 * kMinute) {
        svg += line(xOf(at), kBottom, xOf(at), kBottom + 5, "class=\"grid\"");
        svg += text(xOf(at), kBottom + 20, "middle", std::to_string((at - kOutageBegins) / kMinute));
    }
    return svg + text(kLeft + kWidth / 2, kBottom + 42, "middle", "minutes since the service began to fail");
}

std::string strokeOf(const Pen& pen) {
    return joined({"stroke=\"", pen.color, "\" stroke-dasharray=\"", pen.dashes, "\""});
}

std::string polyline(const std::vector<double>& curve, int top, const Pen& pen) {
    std::string points;
    for (std::size_t i = 0; i < curve.size(); ++i) {
        const auto y = kBottom - std::lround(curve[i] * kHeight / top);
        if (i != 0) points += ' ';
        points += std::to_string(kLeft + kStep / 2 + static_cast<int>(i) * kStep) + ',' + std::to_string(y);
    }
    return joined({"<polyline ", strokeOf(pen), " points=\"", points, "\"/>\n"});
}

std::string legendEntry(std::size_t index, std::string_view name, const Pen& pen) {
    const int x = kLeft + static_cast<int>(index % 2) * kLegendColumn;
    const int y = kLegendTop + static_cast<int>(index / 2) * kLegendRow;
    return line(x, y - 4, x + 30, y - 4, "class=\"key\" " + strokeOf(pen)) + text(x + 38, y, "start", name);
}

}  // namespace

double perSecond(const FleetRun& run, std::uint64_t Load::*kind, std::int64_t begins, std::int64_t ends) {
    const auto first = (begins - kBeginning) / FailingService::kStretch;
    const auto last = (ends - kBeginning) / FailingService::kStretch;
    std::uint64_t sum = 0;
    for (auto i = first; i < last; ++i) sum += run.load[static_cast<std::size_t>(i)].*kind;
    return static_cast<double>(sum * kSecond) /
           static_cast<double>((last - first) * FailingService::kStretch);
}

std::string loadPicture(std::string_view title, const std::vector<Played>& played) {
    std::vector<std::vector<double>> curves;
    double highest = 0;
    for (const Played& each : played) {
        curves.push_back(curveOf(each.run));
        highest = std::max(highest, *std::ranges::max_element(curves.back()));
    }
    const int step = gridStep(highest);
    const int top = step * std::max(1, static_cast<int>(std::ceil(highest / step)));

    std::string svg = frame(title, played.size()) + axes(step, top);
    for (std::size_t i = 0; i < played.size(); ++i) {
        const Pen& pen = kPens[i % kPens.size()];
        svg += polyline(curves[i], top, pen) + legendEntry(i, played[i].name, pen);
    }
    return svg + "</svg>\n";
}

}  // namespace qlsdk::fleet
