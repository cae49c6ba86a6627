#include "leg_lookup.h"

#include <boost/uuid/string_generator.hpp>

#include "module/channel_bridge_fixture.h"

namespace module_test {

namespace {

using boost::uuids::uuid;
using kvx_media_server::lock_media_session_of;
using kvx_media_server::OwnMediaSession;
using testing::IsEmpty;
using testing::SizeIs;

}  // namespace

/// lock_media_session_of, told where the leg was when it was last seen.
class LegLastSeenSomewhere : public ChannelBridge {
 protected:
  static kvx_media_server::FSMediaSessionSharedPtr RecordOf(const uuid& ms_uuid) {
    return mod_globals->GetMSTable()->GetFSMediaSession(ms_uuid).get_value_or({});
  }
};

TEST_F(LegLastSeenSomewhere, IsLockedThereWhenItStillIsThere) {
  TogetherFromTheStart();
  const OwnMediaSession own = lock_media_session_of(a_.Uuid(), a_.MediaSession());
  EXPECT_EQ(own.ms_uuid, a_.MediaSession());
  EXPECT_EQ(own.record, RecordOf(a_.MediaSession()));
  EXPECT_TRUE(own.lock.owns_lock());
}

TEST_F(LegLastSeenSomewhere, IsFoundWhereItHasMovedTo) {
  BroughtTogetherByTransfer();
  const OwnMediaSession own = lock_media_session_of(a_.Uuid(), b_.MediaSession());
  EXPECT_EQ(own.ms_uuid, a_.MediaSession());
  EXPECT_EQ(own.record, RecordOf(a_.MediaSession()));
  EXPECT_TRUE(own.lock.owns_lock());
}

TEST_F(LegLastSeenSomewhere, IsFoundWhereItHasMovedToWhenItsFormerSessionIsGone) {
  TogetherFromTheStart();
  const OwnMediaSession own = lock_media_session_of(a_.Uuid(), boost::uuids::string_generator()(kUnusedUuid));
  EXPECT_EQ(own.ms_uuid, a_.MediaSession());
  EXPECT_TRUE(own.lock.owns_lock());
}

TEST_F(LegLastSeenSomewhere, HasNoRecordWhenItsSessionIsGoneAndThatIsSaidOnce) {
  TogetherFromTheStart();
  const uuid session = a_.MediaSession();
  mod_globals->GetMSTable()->EraseAllMSUuid();
  log_.Clear();
  const OwnMediaSession own = lock_media_session_of(a_.Uuid(), session);
  EXPECT_EQ(own.ms_uuid, session);
  EXPECT_FALSE(own.record);
  EXPECT_FALSE(own.lock.owns_lock());
  EXPECT_THAT(LinesOf({"media_session_table.cpp"}), SizeIs(1));
}

TEST_F(LegLastSeenSomewhere, IsUnknownWhenItHasGoneMeanwhile) {
  TogetherFromTheStart();
  const uuid session = a_.MediaSession();
  Forget(a_);
  const OwnMediaSession own = lock_media_session_of(a_.Uuid(), session);
  EXPECT_TRUE(own.ms_uuid.is_nil());
  EXPECT_FALSE(own.record);
}

}  // namespace module_test
