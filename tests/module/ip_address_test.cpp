#include "ip_address.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstring>

namespace {

using kelvaro::IpAddress;

const uint32_t kIpv6Loopback[4] = {0, 0, 0, htonl(1)};

std::string text_of(IpAddress& address) {
  std::string text = "untouched";
  address.get(text);
  return text;
}

TEST(IpAddress, IsNotValidUntilAnAddressIsStored) {
  IpAddress address;
  EXPECT_FALSE(address.valid());
  EXPECT_EQ(address.get_family(), AF_UNSPEC);
  EXPECT_EQ(text_of(address), "untouched");

  EXPECT_TRUE(address.set(std::string("192.0.2.1")));
  EXPECT_TRUE(address.valid());
  EXPECT_EQ(address.get_family(), AF_INET);
}

TEST(IpAddress, ReadsIpv4Literals) {
  IpAddress address;
  ASSERT_TRUE(address.set(std::string("192.0.2.1")));
  EXPECT_EQ(text_of(address), "192.0.2.1");

  uint32_t word = 0;
  EXPECT_EQ(address.get(&word, 1), AF_INET);
  EXPECT_EQ(word, htonl(0xc0000201));
}

TEST(IpAddress, ReadsIpv6LiteralsWithAndWithoutBrackets) {
  for (const char* literal : {"2001:db8::17", "[2001:db8::17]"}) {
    IpAddress address;
    ASSERT_TRUE(address.set(std::string(literal))) << literal;
    EXPECT_EQ(address.get_family(), AF_INET6);
    EXPECT_EQ(text_of(address), "2001:db8::17");
  }
}

TEST(IpAddress, RefusesWhatIsNoLiteralOfItsForm) {
  for (const char* text : {"phone.example.org", "192.0.2", "192.0.2.256", "[192.0.2.1]", "::g", "[::1", "[]", "[", ":",
                           " 192.0.2.1", "192.0.2.1:5060"}) {
    IpAddress address;
    EXPECT_FALSE(address.set(std::string(text))) << text;
    EXPECT_FALSE(address.valid()) << text;
  }
}

TEST(IpAddress, RefusesAnEmptyTextAndKeepsWhatItHas) {
  IpAddress address;
  ASSERT_TRUE(address.set(std::string("192.0.2.1")));
  EXPECT_FALSE(address.set(std::string()));
  EXPECT_TRUE(address.valid());
  EXPECT_EQ(text_of(address), "192.0.2.1");
}

TEST(IpAddress, IsNoLongerValidAfterATextThatIsNoAddress) {
  IpAddress address;
  ASSERT_TRUE(address.set(std::string("192.0.2.1")));
  EXPECT_FALSE(address.set(std::string("phone.example.org")));
  EXPECT_FALSE(address.valid());
}

TEST(IpAddress, TakesAndGivesWordsByFamily) {
  IpAddress address;
  uint32_t loopback[4];
  std::memcpy(loopback, kIpv6Loopback, sizeof(loopback));
  ASSERT_TRUE(address.set(loopback, 4, AF_INET6));
  EXPECT_EQ(text_of(address), "::1");

  uint32_t words[5] = {7, 7, 7, 7, 7};
  EXPECT_EQ(address.get(words, 5), AF_INET6);
  EXPECT_EQ(std::memcmp(words, kIpv6Loopback, sizeof(kIpv6Loopback)), 0);
  EXPECT_EQ(words[4], 7u);

  uint32_t word = htonl(INADDR_LOOPBACK);
  ASSERT_TRUE(address.set(&word, 1, AF_INET));
  EXPECT_EQ(text_of(address), "127.0.0.1");
}

TEST(IpAddress, RefusesTooFewWordsAndOtherFamiliesAndStaysAsItWas) {
  IpAddress address;
  uint32_t words[4] = {htonl(INADDR_LOOPBACK), 0, 0, 0};
  ASSERT_TRUE(address.set(words, 1, AF_INET));

  uint32_t other[4] = {1, 2, 3, 4};
  EXPECT_FALSE(address.set(other, 0, AF_INET));
  EXPECT_FALSE(address.set(other, 3, AF_INET6));
  EXPECT_FALSE(address.set(other, 4, AF_UNIX));
  EXPECT_EQ(text_of(address), "127.0.0.1");
}

TEST(IpAddress, GivesNoFamilyWhereTheWordsDoNotFit) {
  IpAddress address;
  uint32_t words[4] = {7, 7, 7, 7};
  ASSERT_TRUE(address.set(std::string("::1")));
  EXPECT_EQ(address.get(words, 3), 0);
  EXPECT_EQ(words[0], 7u);

  ASSERT_TRUE(address.set(std::string("127.0.0.1")));
  EXPECT_EQ(address.get(words, 0), 0);
  EXPECT_EQ(words[0], 7u);
}

TEST(IpAddress, GivesItsWordsToACallerWithRoomForFour) {
  uint32_t words[4] = {7, 7, 7, 7};
  IpAddress address;
  EXPECT_FALSE(address.get(words));
  EXPECT_EQ(words[0], 7u);

  ASSERT_TRUE(address.set(std::string("127.0.0.1")));
  EXPECT_TRUE(address.get(words));
  EXPECT_EQ(words[0], htonl(INADDR_LOOPBACK));
  EXPECT_EQ(words[1], 7u);
}

TEST(IpAddress, TakesSocketAddressesOfTheTwoFamiliesOnly) {
  sockaddr_storage storage = {};
  sockaddr_in6& six = reinterpret_cast<sockaddr_in6&>(storage);
  six.sin6_family = AF_INET6;
  six.sin6_addr = in6addr_loopback;

  IpAddress address;
  EXPECT_FALSE(address.set(static_cast<const sockaddr_storage*>(nullptr)));
  EXPECT_TRUE(address.set(&storage));
  EXPECT_EQ(text_of(address), "::1");

  storage.ss_family = AF_UNIX;
  EXPECT_FALSE(address.set(&storage));
  EXPECT_EQ(text_of(address), "::1");
}

TEST(IpAddress, IsCopiedWithItsAddress) {
  IpAddress original;
  ASSERT_TRUE(original.set(std::string("[::1]")));
  IpAddress copy = original;
  EXPECT_TRUE(copy.valid());
  EXPECT_EQ(text_of(copy), "::1");
}

TEST(IpAddress, TellsTheFamilyOfATextByItsForm) {
  EXPECT_EQ(IpAddress::get_family(""), AF_UNSPEC);
  EXPECT_EQ(IpAddress::get_family("192.0.2.1"), AF_INET);
  EXPECT_EQ(IpAddress::get_family("phone.example.org"), AF_INET);
  EXPECT_EQ(IpAddress::get_family("::1"), AF_INET6);
  EXPECT_EQ(IpAddress::get_family("[x]"), AF_INET6);
}

}  // namespace
