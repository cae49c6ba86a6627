#pragma once

#include "sip/sofia.h"

namespace kvx_switch {

/// Frees what is allocated for building one request.
class Home {
 public:
  Home() { su_home_init(home_); }
  ~Home() { su_home_deinit(home_); }
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;
  operator su_home_t*() { return home_; }

 private:
  su_home_t home_[1] = {SU_HOME_INIT(home_)};
};

}  // namespace kvx_switch
