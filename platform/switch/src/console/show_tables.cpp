#include "console/show_tables.h"

#include <algorithm>
#include <set>
#include <string>

#include <switch.h>

#include "core/interface_list.h"

namespace kvx_switch {
namespace {

constexpr int64_t kMicrosecondsPerSecond = 1000000;

const std::vector<std::string> kLegColumns = {"uuid",     "direction", "created", "created_epoch", "name",     "state",
                                              "cid_name", "cid_num",   "dest",    "context",       "callstate"};

std::vector<std::string> leg_row(const SessionInfo& leg) {
  return {leg.uuid,        leg.direction, leg.created,  std::to_string(leg.created_time / kMicrosecondsPerSecond),
          leg.name,        leg.state,     leg.cid_name, leg.cid_number,
          leg.destination, leg.context,   leg.callstate};
}

/// A leg that is linked before its partner knows counts; one whose partner is linked to another leg does not.
const SessionInfo* find_partner(const std::vector<SessionInfo>& sessions, const SessionInfo& leg) {
  for (const SessionInfo& other : sessions) {
    if (&other == &leg) continue;
    const bool named_by_other = other.partner_uuid == leg.uuid;
    if (leg.partner_uuid.empty() ? named_by_other
                                 : other.uuid == leg.partner_uuid && (named_by_other || other.partner_uuid.empty())) {
      return &other;
    }
  }
  return nullptr;
}

int add_module(void* table, const char* name) {
  const char* directory = SWITCH_GLOBAL_dirs.mod_dir;
  std::string file = std::string(directory != nullptr ? directory : "") + "/" + name + ".so";
  static_cast<Table*>(table)->rows.push_back({name, std::move(file)});
  return 0;
}

}  // namespace

Table channels_table(const std::vector<SessionInfo>& sessions) {
  Table table{kLegColumns, {}};
  for (const SessionInfo& leg : sessions) table.rows.push_back(leg_row(leg));
  return table;
}

Table calls_table(const std::vector<SessionInfo>& sessions) {
  Table table{kLegColumns, {}};
  for (const std::string& column : kLegColumns) table.columns.push_back("b_" + column);
  std::set<std::string> listed;
  for (const SessionInfo& leg : sessions) {
    const SessionInfo* partner = find_partner(sessions, leg);
    if (partner == nullptr || listed.count(leg.uuid) != 0 || listed.count(partner->uuid) != 0) continue;
    std::vector<std::string> row = leg_row(leg);
    const std::vector<std::string> second = leg_row(*partner);
    row.insert(row.end(), second.begin(), second.end());
    table.rows.push_back(std::move(row));
    listed.insert({leg.uuid, partner->uuid});
  }
  return table;
}

Table codecs_table() {
  Table table{{"type", "name", "ikey"}, {}};
  for (const CodecInfo& codec : ListCodecs()) table.rows.push_back({"codec", codec.name, codec.module});
  return table;
}

Table api_table() {
  Table table{{"name", "description", "syntax", "ikey"}, {}};
  for (const ApiInfo& api : ListApis()) {
    table.rows.push_back({api.name, api.description, api.syntax, api.module});
  }
  return table;
}

Table modules_table() {
  Table table{{"name", "filename"}, {}};
  switch_loadable_module_enumerate_loaded(&add_module, &table);
  std::sort(table.rows.begin(), table.rows.end());
  return table;
}

}  // namespace kvx_switch
