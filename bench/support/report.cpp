#include "report.h"

#include <cmath>
#include <cstdio>
#include <iomanip>
#include <sstream>

namespace bench {
namespace {

/// Three significant digits or all of the whole number.
std::string Short(double value) {
  std::ostringstream out;
  const double size = std::fabs(value);
  out << std::fixed << std::setprecision(size >= 100 ? 0 : size >= 10 ? 1 : 2) << value;
  return out.str();
}

std::string Verdict(const Comparison& one) {
  if (!one.ran()) return "NOT RUN";
  return one.reached() ? "reached" : "UNDER TARGET";
}

std::string TargetText(const Comparison& one) {
  return (one.at_most ? "<= " : ">= ") + Short(one.target) + (one.absolute ? " " + one.unit : "");
}

std::string Side(const std::string& name, const std::vector<double>& values) {
  return name + " " + Short(Median(values)) + " (spread " + Short(100 * Spread(values)) + " %)";
}

}  // namespace

std::string TableOf(const std::vector<Comparison>& comparisons) {
  std::ostringstream out;
  for (const Comparison& one : comparisons) {
    out << std::left << std::setw(44) << one.what << std::setw(10)
        << (one.ran() ? (one.absolute ? Short(one.ratio()) : Short(one.ratio()) + " x") : "-") << std::setw(14)
        << TargetText(one) << Verdict(one) << "\n";
    if (one.ran()) {
      out << "    " << one.unit << ": " << Side(one.ours_name, one.ours);
      if (!one.absolute) out << ", " << Side(one.reference_name, one.reference);
      out << "\n";
    }
    if (!one.failure.empty()) out << "    " << one.failure << "\n";
    if (!one.note.empty()) out << "    " << one.note << "\n";
  }
  return out.str();
}

namespace {

std::string Quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char code[8];
      std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(c));
      out += code;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string Numbers(const std::vector<double>& values) {
  std::string out = "[";
  for (const double value : values) out += (out.size() > 1 ? ", " : "") + std::to_string(value);
  return out + "]";
}

}  // namespace

std::string JsonOf(const RunText& run, const std::vector<Comparison>& comparisons) {
  std::ostringstream out;
  out << "{\n  \"date\": " << Quoted(run.date) << ",\n  \"machine\": " << Quoted(run.machine)
      << ",\n  \"commit\": " << Quoted(run.commit) << ",\n  \"mode\": " << Quoted(run.mode)
      << ",\n  \"comparisons\": [";
  const char* comma = "\n";
  for (const Comparison& one : comparisons) {
    out << comma << "    {\"id\": " << Quoted(one.id) << ", \"what\": " << Quoted(one.what)
        << ", \"unit\": " << Quoted(one.unit) << ", \"ran\": " << (one.ran() ? "true" : "false");
    if (one.ran()) {
      out << ",\n     " << (one.absolute ? "\"value\": " : "\"ratio\": ") << one.ratio()
          << ", \"reached\": " << (one.reached() ? "true" : "false");
    }
    out << ",\n     \"target\": " << one.target << ", \"at_most\": " << (one.at_most ? "true" : "false")
        << ",\n     \"ours\": {\"name\": " << Quoted(one.ours_name) << ", \"values\": " << Numbers(one.ours)
        << "},\n     \"reference\": {\"name\": " << Quoted(one.reference_name)
        << ", \"values\": " << Numbers(one.reference) << "},\n     \"note\": " << Quoted(one.note)
        << ", \"failure\": " << Quoted(one.failure) << "}";
    comma = ",\n";
  }
  out << "\n  ]\n}\n";
  return out.str();
}

}  // namespace bench
