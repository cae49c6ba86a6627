#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <boost/property_tree/ptree.hpp>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <sstream>

#include "commands.h"
#include "mod_global.h"
#include "msstatsreportagent.h"

namespace {

using boost::property_tree::ptree;
using kvx_media_server::MSStatsReportAgent;

constexpr std::size_t kColumnGap = 5;
constexpr std::size_t kRuleShorterBy = 3;
constexpr std::size_t kMaxElementPath = 300;

std::string blanks(std::size_t count) {
  return std::string(count, ' ');
}

bool init_agent(MSStatsReportAgent& agent, const std::vector<std::string>& argv, std::ostream& out) {
  const char* kind = argv[0].c_str();
  if (argv.size() == 1) return agent.Init(kind, nullptr, nullptr, STATSFILTER);
  if (argv.size() == 2) {
    if (argv[1] != "all") {
      out << "unexpected command scope \"" << argv[1] << "\"" << std::endl;
      return false;
    }
    return agent.Init(kind, "all", nullptr, STATSFILTER);
  }
  if (argv.size() > 3) out << "Too Many parameters!" << std::endl;
  return agent.Init(kind, argv[1].c_str(), argv[2].c_str(), STATSFILTER);
}

/// Names and values centred over each other; the widths come from the first row and its names. When the padding is odd
/// the header leans left and the rows lean right.
std::vector<std::size_t> write_header(std::ostream& os, const ptree& first_row) {
  std::vector<std::size_t> widths;
  std::size_t written = 0;
  for (const ptree::value_type& column : first_row) {
    const std::string& name = column.first;
    const std::size_t width = std::max(name.size(), column.second.data().size());
    const std::size_t lead = (width - name.size()) / 2;
    os << blanks(lead) << name << blanks(width - name.size() - lead) << blanks(kColumnGap);
    written += width + kColumnGap;
    widths.push_back(width);
  }
  os << std::endl << std::string(written < kRuleShorterBy ? 0 : written - kRuleShorterBy, '=') << std::endl;
  return widths;
}

void write_row(std::ostream& os, const ptree& row, const std::vector<std::size_t>& widths) {
  std::size_t position = 0;
  for (const ptree::value_type& column : row) {
    const std::string& value = column.second.data();
    const std::size_t width = position < widths.size() ? widths[position] : 0;
    const std::size_t padding = value.size() < width ? width - value.size() : 0;
    const std::size_t lead = (padding + 1) / 2;
    os << blanks(lead) << value << blanks(padding - lead) << blanks(kColumnGap);
    ++position;
  }
  os << std::endl;
}

std::string without_last_percent_sign(std::string value) {
  const std::string::size_type position = value.rfind('%');
  if (position != std::string::npos) value.erase(position, 1);
  return value;
}

/// The child's path, cut to the buffer. A nameless child's, and one of which the cut leaves no part of the name, would
/// lead back to the parent.
std::string child_path(const char* parent, const std::string& child) {
  char path[kMaxElementPath];
  std::snprintf(path, sizeof(path), "%s.%s", parent, child.c_str());
  if (child.empty() || std::strlen(parent) + std::strlen(".x") >= sizeof(path)) {
    throw boost::property_tree::ptree_bad_path("No such node", ptree::path_type(path));
  }
  return path;
}

}  // namespace

bool mod_media_server_get_report(const std::vector<std::string>& argv, std::ostream& out, bool IsXML) {
  switch_assert(!argv.empty());
  const std::string& kind = argv[0];
  if (kind != "usage" && kind != "duration" && kind != "hardware") {
    out << "application \"" << kind << "\" not supported!";
    return false;
  }
  MSStatsReportAgent agent(mod_globals->GetMSCtrlFtry());
  if (!init_agent(agent, argv, out)) return false;
  ptree tree;
  if (!agent.FetchReport(tree, IsXML)) {
    out << "Report Error! Check your system!" << std::endl;
    return false;
  }
  if (IsXML) return generate_xml_report(out, tree, "stats");
  std::string root = "stats." + boost::algorithm::to_lower_copy(kind);
  if (argv.size() > 1) root += ".modules";
  return generate_plain_text_report(out, tree, root.c_str());
}

bool generate_plain_text_report(std::ostream& os, ptree& pt, const char* root_str) {
  const ptree& rows = pt.get_child(root_str);
  if (rows.empty()) return true;
  const std::vector<std::size_t> widths = write_header(os, rows.front().second);
  for (const ptree::value_type& row : rows) write_row(os, row.second, widths);
  return true;
}

bool generate_xml_report(std::ostream& os, ptree& pt, const char* root_str) {
  os << "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>";
  std::ostringstream elements;
  if (!fill_xml_report(elements, pt, root_str)) return false;
  patch_output_string(elements.str(), os, "module");
  return true;
}

bool fill_xml_report(std::ostream& os, ptree& pt, const char* root_str) {
  const std::string path(root_str);
  const std::string name = path.substr(path.rfind('.') + 1);  // npos + 1 is 0: the whole path
  const ptree& element = pt.get_child(path);
  os << "<" << name << ">";
  if (element.empty()) os << without_last_percent_sign(element.data());
  for (const ptree::value_type& child : element) {
    if (!fill_xml_report(os, pt, child_path(root_str, child.first).c_str())) return false;
  }
  os << "</" << name << ">";
  return true;
}

void patch_output_string(const std::string& in, std::ostream& out, const std::string& token) {
  std::string::size_type position = 0;
  for (std::string::size_type found = in.find(token); found != std::string::npos; found = in.find(token, position)) {
    out << in.substr(position, found - position) << token;
    position = found + token.size();
    while (position < in.size() && in[position] >= '0' && in[position] <= '9') ++position;
  }
  out << in.substr(position);
}
