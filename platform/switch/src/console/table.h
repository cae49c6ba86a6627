#pragma once

#include <string>
#include <vector>

namespace kvx_switch {

/// What a "show" command lists.
struct Table {
  std::vector<std::string> columns;
  std::vector<std::vector<std::string>> rows;  ///< each as long as columns
};

/// The form that scripts around such switches read: a line of column names and one line per row, only when there are
/// rows, values separated by commas; an empty line; "N total.". A value with a comma, a quote or a line break stands in
/// double quotes, its own quotes doubled (RFC 4180).
std::string to_csv(const Table& table);

/// Only the last two lines of that.
std::string to_count(const Table& table);

}  // namespace kvx_switch
