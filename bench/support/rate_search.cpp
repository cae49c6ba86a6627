#include "rate_search.h"

namespace bench {
namespace {

class Search {
 public:
  Search(const SearchSettings& settings, const std::function<Trial(double)>& try_rate)
      : settings_(settings), try_rate_(try_rate) {}

  Highest Run() {
    if (Holds(settings_.guess)) {
      while (!ended_ && failed_ == 0) Holds(found_.rate * (1 + settings_.step));
    } else {
      while (found_.rate == 0 && failed_ / (1 + settings_.step) >= settings_.lowest) {
        Holds(failed_ / (1 + settings_.step));
      }
    }
    while (!ended_ && found_.rate > 0 && failed_ > found_.rate * (1 + settings_.resolution)) {
      Holds((found_.rate + failed_) / 2);
    }
    return found_;
  }

 private:
  bool Holds(double rate) {
    Trial trial = Try(rate);
    if (trial != Trial::kHolds) trial = Try(rate);
    if (trial == Trial::kHolds) {
      found_.rate = rate;
      return true;
    }
    failed_ = rate;
    // Further up the load would fail again; further down, what is measured may show a limit of its own.
    found_.by_the_load = trial == Trial::kLoadFails;
    ended_ = found_.by_the_load && found_.rate > 0;
    return false;
  }

  Trial Try(double rate) {
    ++found_.trials;
    return try_rate_(rate);
  }

  const SearchSettings settings_;
  const std::function<Trial(double)>& try_rate_;
  Highest found_;
  double failed_ = 0;  // the lowest rate that did not hold; 0: none so far
  bool ended_ = false;
};

}  // namespace

Highest FindHighestRate(const SearchSettings& settings, const std::function<Trial(double)>& try_rate) {
  return Search(settings, try_rate).Run();
}

}  // namespace bench
