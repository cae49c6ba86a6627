// The parts that RFC 3711 is made of, against the vectors that the RFCs print.
#include "srtp_session_keys.h"
#include "srtp_transform_fixture.h"

#include <new>

namespace media_engine_test {
namespace {

using media_engine::DeriveSrtpKey;
using media_engine::DeriveSrtpKeys;
using media_engine::SrtpAuthenticator;
using media_engine::SrtpCipher;
using media_engine::SrtpKeyLabel;
using media_engine::SrtpSessionKeys;

std::unique_ptr<SrtpCipher> CipherWith(const std::string& key) {
  std::string reason;
  auto cipher = SrtpCipher::Make(reason);
  if (!cipher || !cipher->SetKey(FromHex(key).data())) throw std::runtime_error("no cipher: " + reason);
  return cipher;
}

SrtpCipher::Block BlockOf(const std::string& text) {
  SrtpCipher::Block block{};
  const Bytes octets = FromHex(text);
  std::copy(octets.begin(), octets.end(), block.begin());
  return block;
}

// RFC 3711, appendix B.2.
const char kStreamKey[] = "2b7e151628aed2a6abf7158809cf4f3c";
const char kFirstCounter[] = "f0f1f2f3f4f5f6f7f8f9fafbfcfd0000";

TEST(SrtpCipher, MakesTheKeyStreamOfTheRfc) {
  constexpr std::size_t kBlocks = 0xff02;
  Bytes stream(kBlocks * SrtpCipher::kBlockLength, 0);
  ASSERT_TRUE(CipherWith(kStreamKey)->Apply(BlockOf(kFirstCounter), stream.data(), stream.size()));
  const std::pair<std::size_t, const char*> known[] = {
      {0, "e03ead0935c95e80e166b16dd92b4eb4"},      {1, "d23513162b02d0f72a43a2fe4a5f97ab"},
      {2, "41e95b3bb0a2e8dd477901e4fca894c0"},      {0xfeff, "ec8cdf7398607cb0f2d21675ea9ea1e4"},
      {0xff00, "362b7c3c6773516318a077d7fc5073ae"}, {0xff01, "6a2cc3787889374fbeb4c81b17ba6c44"}};
  for (const auto& [block, octets] : known) {
    const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(block * SrtpCipher::kBlockLength);
    EXPECT_EQ(Bytes(begin, begin + SrtpCipher::kBlockLength), FromHex(octets)) << block;
  }
}

TEST(SrtpCipher, TakesEveryLengthAndGoesNotBeyondIt) {
  const auto cipher = CipherWith(kStreamKey);
  Bytes stream(700, 0);
  ASSERT_TRUE(cipher->Apply(BlockOf(kFirstCounter), stream.data(), stream.size()));
  for (std::size_t length = 0; length < stream.size(); ++length) {
    const auto memory = std::make_unique<uint8_t[]>(length);
    std::fill(memory.get(), memory.get() + length, uint8_t{0x5a});
    ASSERT_TRUE(cipher->Apply(BlockOf(kFirstCounter), memory.get(), length));
    for (std::size_t i = 0; i < length; ++i) ASSERT_EQ(memory[i], stream[i] ^ 0x5a) << length << " " << i;
  }
}

TEST(SrtpCipher, DoesNotCountBeyondItsCounter) {
  Bytes data((std::size_t{1} << 20) + 1, 7);
  const Bytes before = data;
  const auto cipher = CipherWith(kStreamKey);
  EXPECT_FALSE(cipher->Apply(BlockOf(kFirstCounter), data.data(), data.size()));
  EXPECT_EQ(data, before);
  EXPECT_TRUE(cipher->Apply(BlockOf(kFirstCounter), data.data(), data.size() - 1));
}

TEST(SrtpCipher, ANewKeyIsAllThatCounts) {
  const auto cipher = CipherWith("00000000000000000000000000000001");
  Bytes data(40, 0);
  ASSERT_TRUE(cipher->Apply(BlockOf(kFirstCounter), data.data(), data.size()));
  ASSERT_TRUE(cipher->SetKey(FromHex(kStreamKey).data()));
  data.assign(16, 0);
  ASSERT_TRUE(cipher->Apply(BlockOf(kFirstCounter), data.data(), data.size()));
  EXPECT_EQ(data, FromHex("e03ead0935c95e80e166b16dd92b4eb4"));
}

TEST(SrtpAuthenticator, ComputesTheDigestsOfTheRfc) {
  const struct {
    Bytes key, data;
    const char* digest;
  } known[] = {// RFC 2202, section 3, the cases whose keys have 20 octets
               {Bytes(20, 0x0b), {'H', 'i', ' ', 'T', 'h', 'e', 'r', 'e'}, "b617318655057264e28bc0b6fb378c8ef146be00"},
               {Bytes(20, 0xaa), Bytes(50, 0xdd), "125d7342b9ac11cd91a39af48aa17b4f63f175d3"},
               {Bytes(20, 0x0c),
                {'T', 'e', 's', 't', ' ', 'W', 'i', 't', 'h', ' ', 'T', 'r', 'u', 'n', 'c', 'a', 't', 'i', 'o', 'n'},
                "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04"}};
  for (const auto& one : known) {
    SrtpAuthenticator authenticator;
    authenticator.SetKey(one.key.data());
    for (std::size_t at = 0; at <= one.data.size(); ++at) {  // wherever the suffix begins
      const auto digest = authenticator.Compute(one.data.data(), at, one.data.data() + at, one.data.size() - at);
      EXPECT_EQ(Bytes(digest.begin(), digest.end()), FromHex(one.digest)) << at;
    }
  }
}

// RFC 3711, appendix B.3.
const char kMasterKey[] = "e1f97a0d3e018be0d64fa32c06de4139";
const char kMasterSalt[] = "0ec675ad498afeebb6960b3aabe6";
const char kCipherKey[] = "c61e7a93744f39ee10734afe3ff7a087";
const char kSalt[] = "30cbbc08863d8c85d49db34a9ae1";
const char kAuthenticationKey[] =
    "cebe321f6ff7716b6fd4ab49af256a156d38baa48f0a0acf3c34e2359e6cdbcee049646c43d9327ad175578ef72270986371c10c9a369ac2"
    "f94a8c5fbcdddc256d6e919a48b610ef17c2041e474035766b68642c59bbfc2f34db60dbdfb2";

TEST(SrtpSessionKeys, AreThoseOfTheRfc) {
  const auto cipher = CipherWith(kMasterKey);
  const std::pair<SrtpKeyLabel, const char*> known[] = {{SrtpKeyLabel::kRtpCipher, kCipherKey},
                                                        {SrtpKeyLabel::kRtpSalt, kSalt},
                                                        {SrtpKeyLabel::kRtpAuthentication, kAuthenticationKey}};
  for (const auto& [label, octets] : known) {
    const Bytes expected = FromHex(octets);
    Bytes key(expected.size(), 0xff);
    ASSERT_TRUE(DeriveSrtpKey(*cipher, FromHex(kMasterSalt).data(), label, key.data(), key.size()));
    EXPECT_EQ(key, expected);
  }
}

TEST(SrtpSessionKeys, RtpAndRtcpHaveTheirOwn) {
  const auto cipher = CipherWith(kMasterKey);
  SrtpSessionKeys rtp, rtcp;
  ASSERT_TRUE(DeriveSrtpKeys(KeysOfTheRfc(kLongTagSuite).key, *cipher, rtp, rtcp));
  EXPECT_EQ(Bytes(rtp.cipher_key.begin(), rtp.cipher_key.end()), FromHex(kCipherKey));
  EXPECT_EQ(Bytes(rtp.salt.begin(), rtp.salt.end()), FromHex(kSalt));
  EXPECT_NE(rtp.cipher_key, rtcp.cipher_key);
  EXPECT_NE(rtp.salt, rtcp.salt);
  EXPECT_NE(rtp.authenticator.Compute(nullptr, 0, nullptr, 0), rtcp.authenticator.Compute(nullptr, 0, nullptr, 0));
  EXPECT_FALSE(DeriveSrtpKeys({}, *cipher, rtp, rtcp));
}

TEST(SrtpSessionKeys, AreOverwrittenAtTheirEnd) {
  alignas(SrtpSessionKeys) uint8_t memory[sizeof(SrtpSessionKeys)];
  const auto holds = [&memory](const std::string& octets) {
    Bytes now;
    for (const volatile uint8_t& octet : memory) now.push_back(uint8_t{octet});
    const Bytes wanted = FromHex(octets);
    return std::search(now.begin(), now.end(), wanted.begin(), wanted.end()) != now.end();
  };
  SrtpSessionKeys rtcp;
  auto* const rtp = new (memory) SrtpSessionKeys;
  ASSERT_TRUE(DeriveSrtpKeys(KeysOfTheRfc(kLongTagSuite).key, *CipherWith(kMasterKey), *rtp, rtcp));
  EXPECT_TRUE(holds(kCipherKey) && holds(kSalt));
  rtp->~SrtpSessionKeys();
  EXPECT_FALSE(holds(kCipherKey) || holds(kSalt));
}

}  // namespace
}  // namespace media_engine_test
