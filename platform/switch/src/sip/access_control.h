#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "sip/access_list.h"
#include "sip/sip_profile.h"

namespace kvx_switch {

/// The access lists of acl.conf.xml as profiles use them; they can be read anew while calls come in. Any thread.
class AccessControl {
 public:
  /// Reads the lists anew; a file that is missing has none. False and `error` when something is wrong with it or one
  /// of `profiles` names a list that it has not; the lists stay as they were then.
  bool Load(const std::string& path, const std::vector<const SipProfile*>& profiles, std::string& error);

  /// Whether calls from that address may come in through the profile.
  bool Allows(const SipProfile& profile, const std::string& address);

 private:
  static bool Check(const SipProfile& profile, const AccessLists& lists, const std::string& path, std::string& error);

  std::mutex mutex_;
  AccessLists lists_;  // guarded by mutex_
};

}  // namespace kvx_switch
