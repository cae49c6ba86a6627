#include <algorithm>

#include "core/session_record.h"

namespace kvx_switch {

namespace {

/// Tells most names apart by their first letters, which costs less than to compare them.
bool same_name(const std::string& one, const char* other) {
  return tolower(static_cast<unsigned char>(one[0])) == tolower(static_cast<unsigned char>(*other)) &&
         !strcasecmp(one.c_str(), other);
}

}  // namespace

const char* VariableStore::Find(const char* name) const {
  for (const auto& variable : variables_) {
    if (same_name(variable->name, name)) return variable->value.c_str();
  }
  return nullptr;
}

void VariableStore::Set(const char* name, const char* value) {
  for (const auto& variable : variables_) {
    if (!same_name(variable->name, name)) continue;
    if (variable->value != value) variable->value = value;
    return;
  }
  variables_.push_back(std::make_unique<Variable>(Variable{name, value}));
}

void VariableStore::Remove(const char* name) {
  variables_.erase(std::remove_if(variables_.begin(), variables_.end(),
                                  [&](const auto& variable) { return !strcasecmp(variable->name.c_str(), name); }),
                   variables_.end());
}

std::string PartnerUuid(const switch_channel_t* channel) {
  std::lock_guard<std::mutex> lock(channel->mutex);
  const char* uuid = channel->variables.Find(SWITCH_SIGNAL_BOND_VARIABLE);
  if (!uuid) uuid = channel->variables.Find(SWITCH_ORIGINATE_SIGNAL_BOND_VARIABLE);
  return switch_str_nil(uuid);
}

}  // namespace kvx_switch

namespace {

/// The caller's data under the names that variables have for it; null when there is nothing. The channel is locked.
const char* caller_field(const switch_channel_t* channel, const char* name) {
  static const char kFirstLetters[] = "cdnu";  // of all names below
  if (!memchr(kFirstLetters, tolower(static_cast<unsigned char>(*name)), sizeof(kFirstLetters) - 1)) return nullptr;
  const kvx_switch::CallerData& caller = channel->caller;
  const struct {
    const char* name;
    const std::string& value;
  } fields[] = {{"caller_id_name", caller.caller_id_name},
                {"caller_id_number", caller.caller_id_number},
                {"destination_number", caller.destination_number},
                {"network_addr", caller.network_address},
                {"context", caller.context}};
  for (const auto& field : fields) {
    if (!strcasecmp(field.name, name)) return field.value.empty() ? nullptr : field.value.c_str();
  }
  if (!strcasecmp(name, "uuid")) return channel->session->uuid;
  if (!strcasecmp(name, "channel_name") || !strcasecmp(name, "chan_name")) return channel->name;
  if (!strcasecmp(name, "direction")) {
    return channel->direction == SWITCH_CALL_DIRECTION_INBOUND ? "inbound" : "outbound";
  }
  return nullptr;
}

/// Element `idx` of a value "ARRAY::a|:b"; a plain value is an array of one.
bool take_element(const std::string& value, int idx, std::string& element) {
  static const std::string kMark = "ARRAY::";
  static const std::string kBetween = "|:";
  if (value.compare(0, kMark.size(), kMark) != 0) {
    element = value;
    return idx == 0;
  }
  size_t at = kMark.size();
  for (; idx > 0; --idx) {
    at = value.find(kBetween, at);
    if (at == std::string::npos) return false;
    at += kBetween.size();
  }
  const size_t end = value.find(kBetween, at);
  element = value.substr(at, end == std::string::npos ? end : end - at);
  return true;
}

}  // namespace

const char* switch_channel_get_variable_dup(switch_channel_t* channel, const char* varname, switch_bool_t dup,
                                            int idx) {
  switch_assert(channel != nullptr);
  if (zstr(varname)) return nullptr;
  switch_memory_pool_t* pool = channel->session->pool;
  std::lock_guard<std::mutex> lock(channel->mutex);
  const char* value = channel->variables.Find(varname);
  if (!value) value = caller_field(channel, varname);
  if (!value) value = switch_core_get_variable(varname);
  if (!value) return nullptr;
  if (idx >= 0) {
    std::string element;
    return take_element(value, idx, element) ? switch_core_strdup(pool, element.c_str()) : nullptr;
  }
  return dup ? switch_core_strdup(pool, value) : value;
}

switch_status_t switch_channel_set_variable_var_check(switch_channel_t* channel, const char* varname, const char* value,
                                                      switch_bool_t var_check) {
  switch_assert(channel != nullptr);
  if (zstr(varname)) return SWITCH_STATUS_FALSE;
  if (var_check && switch_string_var_check_const(value)) {
    switch_log_printf(SWITCH_CHANNEL_CHANNEL_LOG(channel), SWITCH_LOG_CRIT,
                      "The value of %s refers to a variable and was refused\n", varname);
    return SWITCH_STATUS_FALSE;
  }
  std::lock_guard<std::mutex> lock(channel->mutex);
  if (zstr(value)) {
    channel->variables.Remove(varname);
  } else {
    channel->variables.Set(varname, value);
  }
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_channel_set_variable_printf(switch_channel_t* channel, const char* varname, const char* fmt,
                                                   ...) {
  va_list ap;
  va_start(ap, fmt);
  char* value = switch_vmprintf(fmt, ap);
  va_end(ap);
  if (!value) return SWITCH_STATUS_MEMERR;
  const switch_status_t status = switch_channel_set_variable(channel, varname, value);
  free(value);
  return status;
}

switch_status_t switch_channel_get_variables(switch_channel_t* channel, switch_event_t** event) {
  const switch_status_t status = switch_event_create(event, SWITCH_EVENT_CLONE);
  if (status != SWITCH_STATUS_SUCCESS) return status;
  std::lock_guard<std::mutex> lock(channel->mutex);
  channel->variables.ForEach([&](const std::string& name, const std::string& value) {
    switch_event_add_header_string(*event, SWITCH_STACK_BOTTOM, name.c_str(), value.c_str());
  });
  return SWITCH_STATUS_SUCCESS;
}

const char* switch_channel_get_partner_uuid(switch_channel_t* channel) {
  const std::string uuid = kvx_switch::PartnerUuid(channel);
  return uuid.empty() ? nullptr : switch_core_strdup(channel->session->pool, uuid.c_str());
}
