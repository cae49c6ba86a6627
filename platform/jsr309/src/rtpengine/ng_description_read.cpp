#include "rtpengine/base64_text.h"
#include "rtpengine/ng_description.h"

#include <arpa/inet.h>

#include <charconv>
#include <optional>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

constexpr std::size_t kLongestQuotation = 80;

/// The part before the separator; text is what is behind it, empty when there was none.
std::string_view Cut(std::string_view& text, char separator) {
  const std::size_t at = text.find(separator);
  const std::string_view part = text.substr(0, at);
  text = at == std::string_view::npos ? std::string_view() : text.substr(at + 1);
  return part;
}

std::optional<int> ReadNumber(std::string_view text, int least, int most) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, number);
  if (problem != std::errc() || stop != end || number < least || number > most) return std::nullopt;
  return number;
}

bool IsAddress(int family, const std::string& text) {
  unsigned char ignored[sizeof(in6_addr)];
  return inet_pton(family, text.c_str(), ignored) == 1;
}

/// Each method takes what is behind "x=" or "a=name:" and is false after it has said what is wrong.
class Reader {
 public:
  explicit Reader(NgDescription& description) : description_(description) {}

  bool Read(std::string_view sdp) {
    if (!IsPlain(sdp)) return false;
    while (!sdp.empty()) {
      std::string_view line = Cut(sdp, '\n');
      if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
      ++number_;
      line_ = line;
      if (!Line(line)) return false;
    }
    number_ = 0;
    return IsWhole();
  }
  /// What was wrong, and in which line; none is quoted that holds a key.
  std::string error() const {
    if (number_ == 0) return error_;
    const bool secret = line_.rfind("a=crypto", 0) == 0 || line_.find("inline") != std::string_view::npos;
    const std::string quoted(secret ? "a=crypto:..." : line_.substr(0, kLongestQuotation));
    return "line " + std::to_string(number_) + " of the SDP, \"" + quoted + "\": " + error_;
  }

 private:
  bool Fail(std::string error) {
    error_ = std::move(error);
    return false;
  }

  /// A carriage return belongs to the end of a line and nowhere else.
  bool IsPlain(std::string_view sdp) {
    for (std::size_t at = 0; at < sdp.size(); ++at) {
      const unsigned char c = static_cast<unsigned char>(sdp[at]);
      const bool ends_line = c == '\n' || (c == '\r' && at + 1 < sdp.size() && sdp[at + 1] == '\n');
      if ((c < 0x20 && !ends_line) || c == 0x7f) {
        return Fail("control character in the SDP at octet " + std::to_string(at));
      }
    }
    return true;
  }

  bool IsWhole() {
    if (number_of_streams_ == 0) return Fail("the SDP has no stream");
    if (description_.rtp_port != 0 && description_.address.empty()) return Fail("the SDP has no address");
    if (!rtcp_address_.empty() && rtcp_address_ != description_.address) {
      return Fail("the SDP has RTCP at " + rtcp_address_ + ", and RTP at " + description_.address);
    }
    return true;
  }

  bool Line(std::string_view line) {
    if (number_ == 1) return line == "v=0" || Fail("not v=0");
    if (line.size() < 2 || line[1] != '=') return Fail("no line of SDP");
    const std::string_view value = line.substr(2);
    if (line[0] == 'c') return Connection(value, description_.address);
    if (line[0] == 'm') return Stream(value);
    return line[0] != 'a' || Attribute(value);
  }

  bool Connection(std::string_view value, std::string& address) {
    const std::string_view net = Cut(value, ' '), family = Cut(value, ' ');
    address = value;
    const bool known = net == "IN" && ((family == "IP4" && IsAddress(AF_INET, address)) ||
                                       (family == "IP6" && IsAddress(AF_INET6, address)));
    return known || Fail("no numeric address");
  }

  bool Stream(std::string_view value) {
    if (++number_of_streams_ > 1) return Fail("a second stream");
    const std::string_view kind = Cut(value, ' '), port = Cut(value, ' '), protocol = Cut(value, ' ');
    const std::optional<int> number = ReadNumber(port, 0, 65535);
    if (!number) return Fail("\"" + std::string(port) + "\" is no port");
    description_.rtp_port = static_cast<uint16_t>(*number);
    description_.image = kind == "image";
    if (description_.image) return (protocol == "udptl" && value == "t38") || Fail("not T.38 over UDPTL");
    if (kind != "audio") return Fail("neither audio nor image");
    const bool known =
        protocol == "RTP/AVP" || protocol == "RTP/SAVP" || protocol == "RTP/AVPF" || protocol == "RTP/SAVPF";
    if (!known) return Fail("\"" + std::string(protocol) + "\" is not RTP");
    return PayloadTypes(value);
  }

  bool PayloadTypes(std::string_view value) {
    if (value.empty()) return Fail("no payload type");
    while (!value.empty()) {
      const std::string_view word = Cut(value, ' ');
      const std::optional<int> type = ReadNumber(word, 0, 127);
      if (!type) return Fail("\"" + std::string(word) + "\" is no payload type");
      if (CodecOf(*type) != nullptr) return Fail("payload type " + std::to_string(*type) + " twice");
      description_.codecs.emplace_back();
      description_.codecs.back().payload_type = *type;
    }
    return true;
  }

  NgCodec* CodecOf(int type) {
    for (NgCodec& codec : description_.codecs) {
      if (codec.payload_type == type) return &codec;
    }
    return nullptr;
  }

  bool Attribute(std::string_view value) {
    const std::string_view name = Cut(value, ':');
    if (name == "sendrecv") return Direction(NgDirection::kSendRecv);
    if (name == "sendonly") return Direction(NgDirection::kSendOnly);
    if (name == "recvonly") return Direction(NgDirection::kRecvOnly);
    if (name == "inactive") return Direction(NgDirection::kInactive);
    // What follows is of an audio stream.
    if (number_of_streams_ == 0 || description_.image) return true;
    if (name == "rtcp") return Rtcp(value);
    if (name == "rtpmap") return RtpMap(value);
    if (name == "fmtp") return FormatParameters(value);
    if (name == "ptime") return PacketTime(value);
    return name != "crypto" || Crypto(value);
  }

  bool Direction(NgDirection direction) {
    description_.direction = direction;
    return true;
  }

  bool Rtcp(std::string_view value) {
    const std::optional<int> port = ReadNumber(Cut(value, ' '), 1, 65535);
    if (!port) return Fail("no port");
    description_.rtcp_port = static_cast<uint16_t>(*port);
    return value.empty() || Connection(value, rtcp_address_);
  }

  bool RtpMap(std::string_view value) {
    const std::optional<int> type = ReadNumber(Cut(value, ' '), 0, 127);
    if (!type) return Fail("no payload type");
    const std::string_view name = Cut(value, '/');
    const std::optional<int> rate = ReadNumber(Cut(value, '/'), 1, 1000000);
    if (name.empty() || !rate) return Fail("no codec and clock rate");
    const std::optional<int> channels = value.empty() ? 0 : ReadNumber(value, 1, 255);
    if (!channels) return Fail("no number of channels");
    if (NgCodec* const codec = CodecOf(*type)) {
      codec->name = name;
      codec->clock_rate = *rate;
      codec->channels = *channels;
    }
    return true;
  }

  bool FormatParameters(std::string_view value) {
    const std::optional<int> type = ReadNumber(Cut(value, ' '), 0, 127);
    if (!type) return Fail("no payload type");
    if (NgCodec* const codec = CodecOf(*type)) codec->format_parameters = value;
    return true;
  }

  bool PacketTime(std::string_view value) {
    const std::optional<int> time = ReadNumber(value, 1, 10000);
    if (!time) return Fail("no packet time in milliseconds");
    description_.packet_time_ms = *time;
    return true;
  }

  bool Crypto(std::string_view value) {
    NgCryptoLine crypto;
    const std::optional<int> tag = ReadNumber(Cut(value, ' '), 1, 999999999);
    if (!tag) return Fail("no tag from 1 to 999999999");
    crypto.tag = *tag;
    crypto.suite = Cut(value, ' ');
    std::string_view keys = Cut(value, ' ');  // session parameters follow
    if (crypto.suite.empty() || Cut(keys, ':') != "inline") return Fail("no suite and inline key");
    if (keys.find(';') != std::string_view::npos) return Fail("more than one key");
    std::optional<SecretBytes> key = FromBase64(Cut(keys, '|'));
    if (!key || key->empty()) return Fail("the key is not base64");
    crypto.key = std::move(*key);
    while (!keys.empty()) {
      const std::string_view part = Cut(keys, '|');
      (part.find(':') == std::string_view::npos ? crypto.lifetime : crypto.mki) = part;
    }
    description_.cryptos.push_back(std::move(crypto));
    return true;
  }

  NgDescription& description_;
  std::size_t number_ = 0;  // of the line; 0: the whole
  std::string_view line_;
  int number_of_streams_ = 0;
  std::string rtcp_address_, error_;
};

}  // namespace

bool ReadSdp(std::string_view sdp, NgDescription& description, std::string& error) {
  description = {};
  Reader reader(description);
  if (reader.Read(sdp)) return true;
  error = reader.error();
  return false;
}

}  // namespace kelvaro::jsr309::rtpengine
