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

/// {"row_count":2,"rows":[{"column":"value",...},...]}, on one line; without rows the count alone. A table that is
/// counted only has its rows left out.
std::string to_json(const Table& table, bool only_count);

/// <result row_count="2"> with a <row row_id="1"> for each row and in it an element for each column.
std::string to_xml(const Table& table, bool only_count);

}  // namespace kvx_switch
