#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

#include "report.h"

namespace bench {
namespace {

constexpr int kLabelWidth = 340, kPlotWidth = 420, kRowHeight = 26, kTop = 60;
constexpr double kLeast = 0.1, kMost = 100;  // ratios that the axis has

double PlaceOf(double ratio) {
  const double share = std::log10(std::clamp(ratio, kLeast, kMost) / kLeast) / std::log10(kMost / kLeast);
  return kLabelWidth + share * kPlotWidth;
}

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) out += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
  return out;
}

void WriteAxis(std::ostream& out, int bottom) {
  for (const double ratio : {0.1, 0.2, 0.5, 1.0, 2.0, 5.0, 10.0, 100.0}) {
    const double x = PlaceOf(ratio);
    out << "<line x1='" << x << "' y1='" << kTop - 8 << "' x2='" << x << "' y2='" << bottom << "' stroke='"
        << (ratio == 1.0 ? "#555" : "#ddd") << "'/><text x='" << x << "' y='" << kTop - 12
        << "' text-anchor='middle' font-size='11'>" << ratio << "</text>\n";
  }
}

void WriteRow(std::ostream& out, const Comparison& one, int y) {
  out << "<text x='" << kLabelWidth - 8 << "' y='" << y + 15 << "' text-anchor='end'>" << Escaped(one.what)
      << "</text>\n";
  if (!one.ran()) {
    out << "<text x='" << kLabelWidth + 8 << "' y='" << y + 15 << "' fill='#a00'>not run</text>\n";
    return;
  }
  // From 1 to the ratio: what is left of 1 is less than the reference.
  const double here = PlaceOf(one.ratio()), even = PlaceOf(1);
  out << "<rect x='" << std::min(here, even) << "' y='" << y + 4 << "' width='" << std::max(1.0, std::fabs(here - even))
      << "' height='" << kRowHeight - 12 << "' fill='" << (one.reached() ? "#4a8" : "#d84") << "'/>\n";
  const double target = PlaceOf(one.target);
  out << "<line x1='" << target << "' y1='" << y << "' x2='" << target << "' y2='" << y + kRowHeight - 4
      << "' stroke='#000' stroke-width='2'/>\n";
  out << "<text x='" << kLabelWidth + kPlotWidth + 8 << "' y='" << y + 15 << "'>" << std::setprecision(3) << one.ratio()
      << "</text>\n";
}

}  // namespace

std::string PlotOf(const RunText& run, const std::vector<Comparison>& comparisons) {
  const int bottom = kTop + kRowHeight * static_cast<int>(comparisons.size());
  std::ostringstream out;
  out << "<svg xmlns='http://www.w3.org/2000/svg' width='" << kLabelWidth + kPlotWidth + 80 << "' height='"
      << bottom + 20 << "' font-family='sans-serif' font-size='13'>\n<rect width='100%' height='100%' fill='#fff'/>\n"
      << "<text x='8' y='20'>" << Escaped(run.date + ", " + run.machine + ", " + run.commit + ", " + run.mode)
      << ": ours against the reference; the black marks are the targets</text>\n";
  WriteAxis(out, bottom);
  int y = kTop;
  for (const Comparison& one : comparisons) {
    WriteRow(out, one, y);
    y += kRowHeight;
  }
  out << "</svg>\n";
  return out.str();
}

}  // namespace bench
