#include "sip/access_control.h"

#include <unistd.h>

#include <utility>

#include "core/configuration.h"
#include "sip/located_xml.h"

namespace kvx_switch {

bool AccessControl::Load(const std::string& path, const std::vector<const SipProfile*>& profiles, std::string& error) {
  AccessLists lists;
  error.clear();
  const bool readable = access(path.c_str(), F_OK) != 0 || LoadAccessLists(path, lists, error) || !lists.empty();
  // Every mistake, not only the first.
  for (const SipProfile* profile : profiles) {
    std::string mistake;
    if (readable && !Check(*profile, lists, path, mistake)) AddLine(error, mistake);
  }
  if (!error.empty()) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  lists_ = std::move(lists);
  return true;
}

bool AccessControl::Check(const SipProfile& profile, const AccessLists& lists, const std::string& path,
                          std::string& error) {
  if (profile.access_list.empty() || lists.count(profile.access_list)) return true;
  error = PlaceOfParameter(profile.file, "apply-inbound-acl") + "\"apply-inbound-acl\" is \"" + profile.access_list +
          "\", a list that is not in " + path;
  return false;
}

bool AccessControl::Allows(const SipProfile& profile, const std::string& address) {
  if (profile.access_list.empty()) return true;
  std::lock_guard<std::mutex> lock(mutex_);
  const auto list = lists_.find(profile.access_list);
  return list != lists_.end() && list->second.Allows(address);
}

}  // namespace kvx_switch
