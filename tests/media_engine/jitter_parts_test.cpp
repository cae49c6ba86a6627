// What the jitter buffer is made of: plan, measurements, room, timers.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>

#include "endpoint_timers.h"
#include "far_end.h"
#include "jitter_plan.h"
#include "payload_store.h"
#include "transit_window.h"

namespace media_engine_test {
namespace {

using namespace media_engine;  // this file is about its parts
using std::chrono::microseconds;

struct PlanCase {
  JitterBufferSettings wished;
  JitterPlan plan;
  const char* corrections;
};

TEST(JitterPlan, TakesWhatIsInRangeAndCorrectsTheRestByName) {
  const auto none = std::nullopt;
  const auto kStatic = JitterMode::kStatic, kAdaptive = JitterMode::kAdaptive;
  const auto plan = [](JitterMode mode, int initial, int least, int most) {
    return JitterPlan{mode, milliseconds(initial), milliseconds(least), milliseconds(most)};
  };
  const PlanCase cases[] = {
      {{JitterMode::kNone, 500, 500, 500}, {}, ""},
      {{kAdaptive, 40, 20, 100}, plan(kAdaptive, 40, 20, 100), ""},
      {{kAdaptive, none, none, none}, plan(kAdaptive, 40, 20, 200), ""},
      {{kStatic, none, none, none}, plan(kStatic, 40, 40, 200), ""},
      {{kAdaptive, none, 60, none}, plan(kAdaptive, 60, 60, 200), ""},
      {{kAdaptive, none, none, 10}, plan(kAdaptive, 10, 10, 10), ""},
      {{kAdaptive, 0, 0, 200}, plan(kAdaptive, 0, 0, 200), ""},
      {{kStatic, 0, none, 200}, {}, ""},
      {{kAdaptive, none, none, 0}, {}, ""},
      {{kStatic, 400, none, 100}, plan(kStatic, 100, 100, 100), "initial delay 400 ms is not in 0-100, 100 is taken"},
      {{kAdaptive, 10, 30, 100}, plan(kAdaptive, 30, 30, 100), "initial delay 10 ms is not in 30-100, 30 is taken"},
      {{kAdaptive, 40, 150, 100},
       plan(kAdaptive, 100, 100, 100),
       "min delay 150 ms is not in 0-100, 100 is taken; initial delay 40 ms is not in 100-100, 100 is taken"},
      {{kAdaptive, 40, -5, 250},
       plan(kAdaptive, 40, 0, 200),
       "max PDV 250 ms is not in 0-200, 200 is taken; min delay -5 ms is not in 0-200, 0 is taken"},
      {{kStatic, 40, 20, 100}, plan(kStatic, 40, 40, 100), ""},
      {{kStatic, -1, none, -1},
       {},
       "max PDV -1 ms is not in 0-200, 0 is taken; initial delay -1 ms is not in 0-0, 0 is taken"},
  };
  for (const PlanCase& one : cases) {
    std::string corrections;
    const JitterPlan plan = PlanJitterBuffer(one.wished, corrections);
    EXPECT_TRUE(plan == one.plan) << one.corrections << ": " << plan.initial_delay.count() << ' '
                                  << plan.min_delay.count() << ' ' << plan.max_delay.count();
    EXPECT_EQ(corrections, one.corrections);
  }
}

TEST(TransitWindow, KnowsTheShortestAtOnceAndForgetsItInTime) {
  TransitWindow window;
  for (int transit : {500, 300, 400}) window.Add(microseconds(transit));
  EXPECT_EQ(window.shortest(), microseconds(300));
  for (std::size_t i = 0; i < TransitWindow::kPackets + 16; ++i) window.Add(microseconds(450));
  EXPECT_EQ(window.shortest(), microseconds(450));
}

TEST(TransitWindow, TheSpreadLeavesOutOneInAHundred) {
  TransitWindow window;
  for (int i = 0; i < 99; ++i) window.Add(microseconds(1000 + i));
  window.Refresh();
  EXPECT_EQ(window.spread(), microseconds(98));
  window.Add(microseconds(90000));  // one of a hundred
  window.Refresh();
  EXPECT_EQ(window.spread(), microseconds(98));
  window.Add(microseconds(90000));
  window.Refresh();
  EXPECT_EQ(window.spread(), microseconds(89000));
}

TEST(TransitWindow, ClearedItKeepsTheShortestUntilTheNext) {
  TransitWindow window;
  window.Add(microseconds(70));
  window.Clear();
  EXPECT_EQ(window.shortest(), microseconds(70));
  EXPECT_EQ(window.count(), 0u);
  window.Add(microseconds(900));
  EXPECT_EQ(window.shortest(), microseconds(900));
}

TEST(PayloadStore, GivesBackWhatWasPutInAnyOrder) {
  PayloadStore store(20);
  std::map<PayloadStore::Key, Bytes> held;
  std::minstd_rand random(3);
  unsigned refused = 0;
  for (uint16_t i = 0; i < 20000; ++i) {
    const Bytes payload = PayloadOf(i, random() % 4 == 0 ? random() % 2000 : random() % 300);
    PayloadStore::Key key = 0;
    if (store.Put(payload.data(), payload.size(), key)) {
      ASSERT_TRUE(held.emplace(key, payload).second);
    } else {
      ++refused;
    }
    while (held.size() > random() % 12) {
      const auto one = std::next(held.begin(), static_cast<int>(random() % held.size()));
      Bytes came(one->second.size());
      store.Take(one->first, came.size(), came.data());
      ASSERT_EQ(came, one->second);
      held.erase(one);
    }
  }
  EXPECT_GT(refused, 0u);
}

TEST(PayloadStore, IsEmptyAgainWhenCleared) {
  PayloadStore store(4);
  const Bytes payload(3 * PayloadStore::kBlock);
  PayloadStore::Key key = 0;
  EXPECT_TRUE(store.Put(payload.data(), payload.size(), key));
  EXPECT_FALSE(store.Put(payload.data(), payload.size(), key));
  EXPECT_TRUE(store.Put(payload.data(), PayloadStore::kBlock, key));
  EXPECT_FALSE(store.Put(payload.data(), 0, key));
  store.Clear();
  EXPECT_TRUE(store.Put(payload.data(), payload.size(), key));
}

TimePoint At(int ms) {
  return TimePoint(seconds{1000} + milliseconds{ms});
}

TEST(EndpointTimers, TheNextDueIsTheFirstOfAll) {
  EndpointTimers timers;
  std::vector<std::unique_ptr<EndpointTimer>> all;
  for (int i = 0; i < 50; ++i) {
    all.push_back(std::make_unique<EndpointTimer>(nullptr));
    timers.Attach(*all.back());
  }
  EXPECT_EQ(timers.NextDue(At(1 << 30)), nullptr);  // none is set
  std::minstd_rand random(11);
  for (int round = 0; round < 20000; ++round) {
    const std::size_t which = random() % all.size();
    const unsigned what = random() % 10;
    if (what == 0) {
      all[which] = std::make_unique<EndpointTimer>(nullptr);  // the former goes while it is attached
      timers.Attach(*all[which]);
    } else if (what == 1) {
      all[which]->Detach();
      timers.Attach(*all[which]);
    } else {
      all[which]->Set(what == 2 ? TimePoint::max() : At(static_cast<int>(random() % 1000)));
    }
    const auto first =
        std::min_element(all.begin(), all.end(), [](const auto& a, const auto& b) { return a->due() < b->due(); });
    const EndpointTimer* next = timers.NextDue(At(1 << 30));
    if ((*first)->due() == TimePoint::max()) {
      ASSERT_EQ(next, nullptr);
    } else {
      ASSERT_NE(next, nullptr);
      ASSERT_EQ(next->due(), (*first)->due());
      ASSERT_EQ(timers.NextDue((*first)->due() - microseconds{1}), nullptr);
    }
  }
}

TEST(EndpointTimers, TheRestIsUntilTheNextIsDueRoundedUp) {
  EndpointTimers timers;
  EXPECT_EQ(timers.RestAfter(At(0), milliseconds{100}), milliseconds{100});
  EndpointTimer timer(nullptr);
  timer.Set(At(30));
  EXPECT_TRUE(timers.empty());
  timers.Attach(timer);  // with the time that it has
  EXPECT_EQ(timers.RestAfter(At(0), milliseconds{100}), milliseconds{30});
  EXPECT_EQ(timers.RestAfter(At(0) + microseconds{1}, milliseconds{100}), milliseconds{30});
  EXPECT_EQ(timers.RestAfter(At(0), milliseconds{10}), milliseconds{10});
  EXPECT_EQ(timers.RestAfter(At(31), milliseconds{100}), milliseconds{0});
  timer.Set(TimePoint::max());
  EXPECT_EQ(timers.RestAfter(At(0), milliseconds{100}), milliseconds{100});
  timer.Detach();
  EXPECT_TRUE(timers.empty());
}

}  // namespace
}  // namespace media_engine_test
