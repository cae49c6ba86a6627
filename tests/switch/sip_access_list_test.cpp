#include "sip/access_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "sip_temporary_directory.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;

TEST(AccessList, DefaultHoldsForWhatNoNetworkHas) {
  AccessList open(true);
  ASSERT_TRUE(open.Add("10.0.0.0/8", false));
  EXPECT_TRUE(open.Allows("192.0.2.1"));
  EXPECT_TRUE(open.Allows("2001:db8::1"));
  EXPECT_FALSE(open.Allows("10.255.255.255"));
  AccessList closed;
  ASSERT_TRUE(closed.Add("10.0.0.0/8", true));
  EXPECT_FALSE(closed.Allows("192.0.2.1"));
  EXPECT_FALSE(closed.Allows("::1"));
  EXPECT_TRUE(closed.Allows("10.0.0.0"));
  EXPECT_FALSE(closed.Allows("11.0.0.0"));
}

TEST(AccessList, LongestNetworkDecidesWhateverTheOrder) {
  for (bool longest_first : {true, false}) {
    AccessList list;
    std::vector<std::pair<std::string, bool>> nodes = {
        {"10.1.2.3/32", true}, {"10.0.0.0/8", true}, {"10.1.0.0/16", false}};
    if (!longest_first) std::reverse(nodes.begin(), nodes.end());
    for (const auto& [cidr, allow] : nodes) ASSERT_TRUE(list.Add(cidr, allow));
    EXPECT_TRUE(list.Allows("10.2.0.1"));
    EXPECT_FALSE(list.Allows("10.1.2.4"));
    EXPECT_TRUE(list.Allows("10.1.2.3"));
  }
}

TEST(AccessList, OfTwoNodesForOneNetworkTheLaterCounts) {
  AccessList list;
  ASSERT_TRUE(list.Add("192.0.2.0/24", true));
  ASSERT_TRUE(list.Add("192.0.2.0/24", false));
  EXPECT_FALSE(list.Allows("192.0.2.9"));
}

TEST(AccessList, KnowsIpv6Networks) {
  AccessList list;
  ASSERT_TRUE(list.Add("2001:db8::/33", true));
  ASSERT_TRUE(list.Add("::1", true));
  EXPECT_TRUE(list.Allows("2001:db8:7fff:ffff::1"));
  EXPECT_FALSE(list.Allows("2001:db8:8000::1"));
  EXPECT_TRUE(list.Allows("::1"));
  EXPECT_FALSE(list.Allows("::2"));
}

TEST(AccessList, MappedAddressIsItsIpv4Address) {
  AccessList list;
  ASSERT_TRUE(list.Add("10.0.0.0/8", true));
  EXPECT_TRUE(list.Allows("::ffff:10.1.2.3"));
  EXPECT_FALSE(list.Allows("::ffff:11.1.2.3"));
}

TEST(AccessList, WholeFamiliesAreNetworks) {
  AccessList list;
  ASSERT_TRUE(list.Add("0.0.0.0/0", true));
  EXPECT_TRUE(list.Allows("203.0.113.1"));
  EXPECT_FALSE(list.Allows("2001:db8::1"));
  ASSERT_TRUE(list.Add("::/0", true));
  EXPECT_TRUE(list.Allows("2001:db8::1"));
}

TEST(AccessList, WhatIsNoAddressIsNotAllowed) {
  const AccessList open(true);
  EXPECT_FALSE(open.Allows(""));
  EXPECT_FALSE(open.Allows("localhost"));
}

TEST(AccessList, RefusesWhatIsNoNetwork) {
  AccessList list;
  for (const char* text : {"", "/", "10.0.0.0/", "10.0.0.0/33", "10.0.0.0/-1", "10.0.0.0/8x", "10.0.0/8", "::/129",
                           "10.0.0.1/8", "2001:db8::1/64", "example.net", "10.0.0.0/ 8"}) {
    EXPECT_FALSE(list.Add(text, true)) << text;
  }
  EXPECT_FALSE(list.Allows("10.0.0.1"));
}

class AccessListFile : public testing::Test {
 protected:
  bool Load(const std::string& text) {
    const std::string path = directory_.Write("acl.conf.xml", text);
    const bool good = LoadAccessLists(path, lists_, error_);
    error_.erase(0, good ? 0 : path.size());
    return good;
  }

  TemporaryDirectory directory_;
  AccessLists lists_;
  std::string error_;
};

TEST_F(AccessListFile, HoldsListsByName) {
  ASSERT_TRUE(
      Load("<configuration name=\"acl.conf\">\n<network-lists>\n"
           "<list name=\"lan\" default=\"deny\"><node type=\"allow\" cidr=\"192.168.0.0/16\"/>"
           "<node type=\"deny\" cidr=\"192.168.7.0/24\"/></list>"
           "<list name=\"all\" default=\"allow\"/></network-lists></configuration>"))
      << error_;
  ASSERT_EQ(lists_.size(), 2u);
  EXPECT_TRUE(lists_.at("lan").Allows("192.168.1.1"));
  EXPECT_FALSE(lists_.at("lan").Allows("192.168.7.1"));
  EXPECT_TRUE(lists_.at("all").Allows("192.168.7.1"));
}

TEST_F(AccessListFile, MistakesAreNamedWithTheirLines) {
  const std::string start = "<configuration name=\"acl.conf\">\n<network-lists>\n";
  const std::string end = "\n</network-lists></configuration>";
  EXPECT_FALSE(Load(start + "<list name=\"a\" default=\"maybe\"/>" + end));
  EXPECT_EQ(error_, ":3: \"default\" of \"list\" is \"maybe\", not \"allow\" or \"deny\"");
  EXPECT_FALSE(Load(start + "<list default=\"deny\"/>" + end));
  EXPECT_EQ(error_, ":3: a \"list\" needs a \"name\"");
  EXPECT_FALSE(
      Load(start + "<list name=\"a\" default=\"deny\">\n<node type=\"allow\" cidr=\"10.0.0.1/8\"/></list>" + end));
  EXPECT_EQ(error_, ":4: \"cidr\" of \"node\" is \"10.0.0.1/8\", not a network such as 10.0.0.0/8 or 2001:db8::/32");
  EXPECT_FALSE(Load(start + "<list name=\"a\" default=\"deny\">\n<node cidr=\"10.0.0.0/8\"/></list>" + end));
  EXPECT_EQ(error_, ":4: \"type\" of \"node\" is \"\", not \"allow\" or \"deny\"");
  EXPECT_FALSE(Load(start + "<list name=\"a\" default=\"deny\"/>\n<list name=\"a\" default=\"deny\"/>" + end));
  EXPECT_EQ(error_, ":4: a second list \"a\"");
  EXPECT_FALSE(Load(start + "<lst name=\"a\"/>" + end));
  EXPECT_EQ(error_, ":3: expected <list>, not <lst>");
  EXPECT_FALSE(Load("<configuration name=\"acl.conf\">\n<list/></configuration>"));
  EXPECT_EQ(error_, ":2: expected <network-lists>, not <list>");
  EXPECT_FALSE(Load("\n<configuration name=\"acl\"/>"));
  EXPECT_EQ(error_, ":2: expected <configuration name=\"acl.conf\">, not <configuration>");
  EXPECT_FALSE(Load(start));
}

TEST_F(AccessListFile, EveryMistakeIsNamed) {
  EXPECT_FALSE(
      Load("<configuration name=\"acl.conf\">\n<network-lists>\n<list default=\"yes\">\n"
           "<node type=\"alow\" cidr=\"10\"/>\n<node type=\"deny\" cidr=\"10.0.0.0/8\" port=\"5\"/></list>\n"
           "<list name=\"good\" default=\"deny\"/>\n</network-lists></configuration>"));
  for (const char* line :
       {":3: \"default\" of \"list\" is \"yes\", not \"allow\" or \"deny\"", ":3: a \"list\" needs a \"name\"",
        ":4: \"type\" of \"node\" is \"alow\", not \"allow\" or \"deny\"",
        ":4: \"cidr\" of \"node\" is \"10\", not a network such as 10.0.0.0/8 or 2001:db8::/32",
        ":5: a <node> has no attribute \"port\""}) {
    EXPECT_THAT(error_, HasSubstr(line));
  }
  EXPECT_EQ(std::count(error_.begin(), error_.end(), '\n'), 4) << error_;
  EXPECT_EQ(lists_.count("good"), 1u) << "what names it is not wrong";
}

}  // namespace
}  // namespace kvx_switch
