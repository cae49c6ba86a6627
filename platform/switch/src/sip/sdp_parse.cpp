#include <strings.h>

#include <algorithm>
#include <charconv>

#include "sip/sdp.h"

namespace kvx_switch {

namespace {

// More than any phone offers; what is beyond is not looked at, so that a hostile text costs little.
constexpr size_t kMostMedia = 16;
constexpr size_t kMostPayloads = 64;
constexpr size_t kMostCryptos = 16;
constexpr size_t kMostFaxAttributes = 16;

struct StaticEncoding {
  uint8_t type;
  const char* name;
  uint32_t rate;
  int channels;
};

// RFC 3551, table 4.
constexpr StaticEncoding kStaticEncodings[] = {
    {0, "PCMU", 8000, 1},   {3, "GSM", 8000, 1},  {4, "G723", 8000, 1},  {5, "DVI4", 8000, 1},  {6, "DVI4", 16000, 1},
    {7, "LPC", 8000, 1},    {8, "PCMA", 8000, 1}, {9, "G722", 8000, 1},  {10, "L16", 44100, 2}, {11, "L16", 44100, 1},
    {12, "QCELP", 8000, 1}, {13, "CN", 8000, 1},  {14, "MPA", 90000, 1}, {15, "G728", 8000, 1}, {16, "DVI4", 11025, 1},
    {17, "DVI4", 22050, 1}, {18, "G729", 8000, 1}};

std::string_view NextWord(std::string_view& rest) {
  size_t start = rest.find_first_not_of(' ');
  if (start == std::string_view::npos) {
    rest = {};
    return {};
  }
  size_t end = std::min(rest.find(' ', start), rest.size());
  std::string_view word = rest.substr(start, end - start);
  rest.remove_prefix(end);
  return word;
}

template <typename Number>
bool ReadNumber(std::string_view text, Number most, Number& number) {
  Number value = 0;
  auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || value > most) return false;
  number = value;
  return true;
}

/// In a numeric address or a host name.
bool MayStandInAddress(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == ':' ||
         c == '-' || c == '_' || c == '[' || c == ']';
}

bool ReadDirection(std::string_view name, MediaDirection& direction) {
  if (name == "sendrecv")
    direction = MediaDirection::kSendReceive;
  else if (name == "sendonly")
    direction = MediaDirection::kSendOnly;
  else if (name == "recvonly")
    direction = MediaDirection::kReceiveOnly;
  else if (name == "inactive")
    direction = MediaDirection::kInactive;
  else
    return false;
  return true;
}

class Parser {
 public:
  explicit Parser(std::string_view text) : rest_(text) {}

  std::optional<SessionDescription> Run(std::string& error) {
    while (!rest_.empty()) {
      ++line_number_;
      line_ = TakeLine();
      if (line_.empty()) continue;
      if (!ReadLine()) {
        error = "line " + std::to_string(line_number_) + " \"" + Printable(line_) + "\": " + problem_;
        return std::nullopt;
      }
    }
    if (!Complete(error)) return std::nullopt;
    return std::move(result_);
  }

 private:
  bool Fail(const char* problem) {
    problem_ = problem;
    return false;
  }

  std::string_view TakeLine() {
    size_t end = std::min(rest_.find('\n'), rest_.size());
    std::string_view line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
  }

  /// For the log: bounded, and nothing in it that would break the line.
  static std::string Printable(std::string_view text) {
    std::string printable(text.substr(0, 120));
    for (char& c : printable) {
      if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7e) c = '?';
    }
    return printable;
  }

  bool ReadLine() {
    if (line_.size() < 2 || line_[1] != '=') return Fail("not of the form <letter>=<value>");
    // Parts of an offer come back in the answer: nothing may stand in them that breaks a line.
    if (std::any_of(line_.begin(), line_.end(), [](unsigned char c) { return c < 0x20 && c != '\t'; })) {
      return Fail("a control character");
    }
    std::string_view value = line_.substr(2);
    if (!version_seen_) {
      if (line_[0] != 'v') return Fail("\"v=0\" must come first");
      version_seen_ = true;
      return value == "0" || Fail("the only version is 0");
    }
    switch (line_[0]) {
      case 'v':
        return Fail("a second version");
      case 'o':
        result_.origin = value;
        return true;
      case 's':
        result_.session_name = value;
        return true;
      case 'c':
        return ReadConnection(value);
      case 'm':
        return ReadMedia(value);
      case 'a':
        return ReadAttribute(value);
      default:
        return true;  // time, bandwidth and so on: nothing that a call is set up with
    }
  }

  bool ReadConnection(std::string_view value) {
    std::string_view network = NextWord(value);
    std::string_view type = NextWord(value);
    std::string_view address = NextWord(value);
    if (network != "IN" || (type != "IP4" && type != "IP6")) return Fail("neither \"IN IP4\" nor \"IN IP6\"");
    address = address.substr(0, address.find('/'));  // a multicast time to live
    if (address.empty()) return Fail("no address");
    if (address.size() > 255) return Fail("the address is too long");
    if (!std::all_of(address.begin(), address.end(), MayStandInAddress)) return Fail("no address or host name");
    (result_.media.empty() ? session_address_ : result_.media.back().address) = address;
    return true;
  }

  bool ReadMedia(std::string_view value) {
    if (result_.media.size() == kMostMedia) return Fail("too many streams");
    SdpMedia media;
    media.kind = NextWord(value);
    std::string_view port = NextWord(value);
    port = port.substr(0, port.find('/'));  // a number of ports
    media.protocol = NextWord(value);
    if (media.kind.empty() || media.protocol.empty()) return Fail("kind, port, protocol and formats are needed");
    if (!ReadNumber<uint16_t>(port, 65535, media.port)) return Fail("the port is no number from 0 to 65535");
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    media.formats = value;
    if (media.formats.empty()) return Fail("no format");
    media.direction = session_direction_;
    if (media.protocol.compare(0, 4, "RTP/") == 0 && !ReadPayloadTypes(value, media)) return false;
    result_.media.push_back(std::move(media));
    return true;
  }

  bool ReadPayloadTypes(std::string_view formats, SdpMedia& media) {
    for (std::string_view word = NextWord(formats); !word.empty(); word = NextWord(formats)) {
      SdpPayload payload;
      if (!ReadNumber<uint8_t>(word, 127, payload.type)) return Fail("a payload type is no number from 0 to 127");
      StaticPayload(payload.type, payload);
      if (media.payloads.size() < kMostPayloads) media.payloads.push_back(std::move(payload));
    }
    return true;
  }

  bool ReadAttribute(std::string_view value) {
    size_t colon = std::min(value.find(':'), value.size());
    std::string_view name = value.substr(0, colon);
    std::string_view rest = value.substr(std::min(colon + 1, value.size()));
    MediaDirection direction;
    if (ReadDirection(name, direction)) {
      (result_.media.empty() ? session_direction_ : result_.media.back().direction) = direction;
      return true;
    }
    if (result_.media.empty()) return true;
    SdpMedia& media = result_.media.back();
    if (name == "rtpmap") return ReadRtpmap(rest, media);
    if (name == "fmtp") return ReadFmtp(rest, media);
    if (name == "ptime") return ReadPacketTime(rest, media);
    if (media.kind == "image" && name.substr(0, 3) == "T38") {
      if (media.fax_attributes.size() < kMostFaxAttributes) media.fax_attributes.emplace_back(value);
      return true;
    }
    if (name == "crypto") {
      if (media.cryptos.size() < kMostCryptos) media.cryptos.emplace_back(rest);
      return true;
    }
    if (name == "rtcp") {
      return ReadNumber<uint16_t>(NextWord(rest), 65535, media.rtcp_port) ||
             Fail("the port is no number from 0 to 65535");
    }
    return true;
  }

  bool ReadPacketTime(std::string_view value, SdpMedia& media) {
    // Some far ends write fractions ("ptime:20.0"); whole milliseconds are what packet times are made of here.
    std::string_view whole = NextWord(value);
    whole = whole.substr(0, whole.find('.'));
    return ReadNumber<uint32_t>(whole, 10000, media.packet_time) ||
           Fail("the packet time is no number of milliseconds");
  }

  SdpPayload* FindPayload(std::string_view word, SdpMedia& media) {
    uint8_t type = 0;
    if (!ReadNumber<uint8_t>(word, 127, type)) return nullptr;
    auto found = std::find_if(media.payloads.begin(), media.payloads.end(),
                              [type](const SdpPayload& payload) { return payload.type == type; });
    return found == media.payloads.end() ? nullptr : &*found;
  }

  /// "<payload type> <name>/<rate>[/<channels>]"; one for a type that is not in the list is passed over.
  bool ReadRtpmap(std::string_view value, SdpMedia& media) {
    SdpPayload* payload = FindPayload(NextWord(value), media);
    if (!payload) return true;
    std::string_view encoding = NextWord(value);
    size_t slash = encoding.find('/');
    if (slash == 0 || slash == std::string_view::npos) return Fail("not of the form <name>/<rate>");
    std::string_view rate = encoding.substr(slash + 1);
    std::string_view channels;
    size_t second = rate.find('/');
    if (second != std::string_view::npos) {
      channels = rate.substr(second + 1);
      rate = rate.substr(0, second);
    }
    payload->name = encoding.substr(0, slash);
    payload->channels = 1;
    if (!ReadNumber<uint32_t>(rate, 1000000, payload->rate) || payload->rate == 0) return Fail("the rate is no number");
    if (!channels.empty() && !ReadNumber<int>(channels, 255, payload->channels)) return Fail("bad number of channels");
    return true;
  }

  bool ReadFmtp(std::string_view value, SdpMedia& media) {
    SdpPayload* payload = FindPayload(NextWord(value), media);
    if (!payload) return true;
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    payload->fmtp = value;
    return true;
  }

  bool Complete(std::string& error) {
    if (!version_seen_)
      error = "it is empty";
    else if (result_.origin.empty())
      error = "there is no \"o=\" line";
    else if (result_.media.empty())
      error = "there is no \"m=\" line";
    for (SdpMedia& media : result_.media) {
      if (media.address.empty()) media.address = session_address_;
      if (!media.HasDestination()) media.direction = WithoutReceiving(media.direction);
      if (media.address.empty() && media.port != 0 && error.empty()) {
        error = "no \"c=\" line holds for \"m=" + Printable(media.kind + " " + std::to_string(media.port)) + "\"";
      }
    }
    if (result_.session_name.empty() || result_.session_name == " ") result_.session_name = "-";
    return error.empty();
  }

  std::string_view rest_;
  std::string_view line_;
  size_t line_number_ = 0;
  const char* problem_ = "";
  bool version_seen_ = false;
  std::string session_address_;
  MediaDirection session_direction_ = MediaDirection::kSendReceive;
  SessionDescription result_;
};

}  // namespace

bool StaticPayload(uint8_t type, SdpPayload& payload) {
  for (const StaticEncoding& encoding : kStaticEncodings) {
    if (encoding.type != type) continue;
    payload.type = type;
    payload.name = encoding.name;
    payload.rate = encoding.rate;
    payload.channels = encoding.channels;
    return true;
  }
  return false;
}

MediaDirection WithoutReceiving(MediaDirection direction) {
  const bool sends = direction == MediaDirection::kSendReceive || direction == MediaDirection::kSendOnly;
  return sends ? MediaDirection::kSendOnly : MediaDirection::kInactive;
}

bool IsOfOtherFamily(const SdpMedia& stream, const std::string& local) {
  const bool numeric = stream.address.find_first_not_of("0123456789abcdefABCDEF.:") == std::string::npos;
  const auto is_ipv6 = [](const std::string& address) { return address.find(':') != std::string::npos; };
  return numeric && stream.HasDestination() && is_ipv6(stream.address) != is_ipv6(local);
}

std::optional<SessionDescription> ParseSdp(std::string_view text, std::string& error) {
  error.clear();
  return Parser(text).Run(error);
}

}  // namespace kvx_switch
