/// What a daemon is to know of one leg, and the requests that tell it.
///
/// Each leg is a call of its own on its daemon, with two sides: the "leg", towards its far end, and the "bus", towards
/// whatever leg it is joined with. Joined legs send to each other's bus, a leg that is alone has nothing there. So legs
/// of any session and of any daemon can be joined, parted and joined again without a word to their far ends.
///
/// The bus always offers and the leg always answers, whoever asked whom in the call itself; their SDP never leaves this
/// library. Every change is told as a new offer and its answer, which a daemon carries out without moving a port.
///
/// Values and plain functions; any thread.
#pragma once

#include "rtpengine/bencode.h"
#include "rtpengine/leg_crypto.h"
#include "rtpengine/leg_image.h"
#include "rtpengine/ng_description.h"

#include <optional>
#include <string>

namespace kelvaro::jsr309::rtpengine {

struct CallPicture {
  NgPlace leg, bus;  ///< where the far end and the other leg receive; a stand-in for nobody
  std::vector<NgCodec> leg_codecs, bus_codecs;
  int packet_time_ms = 0;
  bool image = false;
  std::optional<LegCrypto::Keys> keys;  ///< the leg is protected
  bool block = false;                   ///< what the far end sends goes nowhere
  bool learn = false;                   ///< the far end may be found elsewhere
  std::optional<uint8_t> tos;
};

/// Not where something hangs on the order in which both sides are described: keys, images, a far end that is looked
/// for.
bool CanBeToldInPart(const CallPicture& picture);

/// What of a call has to be described to a daemon again.
enum class PictureChange { kNothing, kBus, kLeg, kBoth };
/// From a picture that the daemon follows to another one. A side can be described alone where nothing but its place has
/// changed, and the daemon translates nothing, for which it needs to hear both.
/// block is not part of a description.
PictureChange ChangeOf(const CallPicture& told, const CallPicture& picture);

/// Names of a call on a daemon, and through which of its interfaces it goes (empty: the daemon's first).
struct CallName {
  std::string call_id;
  std::string interface;
};

/// Where nobody is: a daemon sends nothing there and takes nothing from there. family: AF_INET or AF_INET6.
NgPlace Nowhere(int family);

Dictionary OfferOf(const CallName& name, const CallPicture& picture);
Dictionary AnswerOf(const CallName& name, const CallPicture& picture);
/// The offer that has the leg protected with keys of ours: a daemon makes keys of its own unless the side that offers
/// has some to pass on. It is followed by AnswerOf and then by the offer that stands.
Dictionary KeyOfferOf(const CallName& name, const CallPicture& picture);
Dictionary BlockOf(const CallName& name, bool block);
Dictionary QueryOf(const CallName& name);
Dictionary DeleteOf(const std::string& call_id);

}  // namespace kelvaro::jsr309::rtpengine
