#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/property_tree/ptree.hpp>
#include <sstream>

#include "commands.h"
#include "module/module_fixture.h"

namespace module_test {

namespace {

using boost::property_tree::ptree;
using boost::property_tree::ptree_bad_path;

std::string plain(ptree& tree, const char* root) {
  std::ostringstream out;
  EXPECT_TRUE(generate_plain_text_report(out, tree, root));
  return out.str();
}

std::string xml(ptree& tree, const char* root) {
  std::ostringstream out;
  EXPECT_TRUE(generate_xml_report(out, tree, root));
  return out.str();
}

std::string patched(const std::string& in, const std::string& token = "module") {
  std::ostringstream out;
  patch_output_string(in, out, token);
  return out.str();
}

}  // namespace

TEST(PlainTextReport, SummaryIsHeaderRuleAndOneRow) {
  ptree tree;
  tree.put("stats.usage.summary.Active Calls", "3");
  tree.put("stats.usage.summary.Max Calls", "12");
  EXPECT_EQ(plain(tree, "stats.usage"),
            "Active Calls     Max Calls     \n"
            "============================\n"
            "      3              12        \n");
}

TEST(PlainTextReport, OddPaddingLeansLeftInTheHeaderAndRightInTheRows) {
  ptree tree;
  tree.put("r.module1.AB", "12345");  // name padded by 3
  tree.put("r.module1.NAME", "1");    // value padded by 3
  EXPECT_EQ(plain(tree, "r"),
            " AB       NAME     \n"
            "================\n"
            "12345       1      \n");
}

TEST(PlainTextReport, EvenPaddingIsCentred) {
  ptree tree;
  tree.put("r.module1.ABC", "1234567");
  tree.put("r.module1.NAMES", "1");
  EXPECT_EQ(plain(tree, "r"),
            "  ABC       NAMES     \n"
            "===================\n"
            "1234567       1       \n");
}

TEST(PlainTextReport, WidthsComeFromTheFirstRowAndWiderValuesAreWrittenWhole) {
  ptree tree;
  tree.put("r.module1.IP", "10.0.0.5");
  tree.put("r.module1.Status", "IS");
  tree.put("r.module2.IP", "10.0.0.5,10.0.1.5");
  tree.put("r.module2.Status", "OOS");
  tree.put("r.module3.IP", "::1");
  tree.put("r.module3.Status", "IS");
  EXPECT_EQ(plain(tree, "r"),
            "   IP        Status     \n"
            "=====================\n"
            "10.0.0.5       IS       \n"
            "10.0.0.5,10.0.1.5       OOS      \n"
            "   ::1         IS       \n");
}

TEST(PlainTextReport, TenServersAreTenRowsWithoutTheirNames) {
  ptree tree;
  std::string expected = "A     \n===\n";
  for (int i = 1; i <= 10; ++i) {
    tree.put("r.module" + std::to_string(i) + ".A", std::to_string(i % 10));
    expected += std::to_string(i % 10) + "     \n";
  }
  EXPECT_EQ(plain(tree, "r"), expected);
}

TEST(PlainTextReport, EmptyValuesAreBlank) {
  ptree tree;
  tree.put("r.summary.AB", "");
  EXPECT_EQ(plain(tree, "r"), "AB     \n====\n       \n");
}

TEST(PlainTextReport, HoldsAsManyColumnsAsTheRowHas) {
  ptree tree;
  std::string header, row;
  for (char name = 'a'; name <= 'z'; ++name) {
    tree.put("r.summary." + std::string(1, name), "1");
    header += std::string(1, name) + "     ";
    row += "1     ";
  }
  EXPECT_EQ(plain(tree, "r"), header + "\n" + std::string(26 * 6 - 3, '=') + "\n" + row + "\n");
}

TEST(PlainTextReport, LaterRowMayHaveMoreColumns) {
  ptree tree;
  tree.put("r.module1.A", "1");
  tree.put("r.module2.A", "2");
  tree.put("r.module2.B", "3");
  EXPECT_EQ(plain(tree, "r"), "A     \n===\n1     \n2     3     \n");
}

TEST(PlainTextReport, WithoutItsNodeThrowsAndNamesThePath) {
  ptree tree;
  std::ostringstream out;
  try {
    generate_plain_text_report(out, tree, "stats.usage.modules");
    FAIL() << "drew a report of nothing";
  } catch (const ptree_bad_path& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("stats.usage.modules"));
  }
  EXPECT_EQ(out.str(), "");
}

TEST(XmlReport, IsOneLineOfElements) {
  ptree tree;
  tree.put("stats.usage.summary.active_calls", "3");
  tree.put("stats.usage.summary.max_calls", "12");
  EXPECT_EQ(xml(tree, "stats"),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><usage><summary><active_calls>3</active_calls>"
            "<max_calls>12</max_calls></summary></usage></stats>");
}

TEST(XmlReport, NumbersAreTakenOffModulesAndPercentSignsOffValues) {
  ptree tree;
  tree.put("stats.usage.modules.module1.IP", "10.0.0.5");
  tree.put("stats.usage.modules.module1.load", "37%");
  tree.put("stats.usage.modules.module2.IP", "10.0.0.6");
  tree.put("stats.usage.modules.module2.load", "0%");
  EXPECT_EQ(xml(tree, "stats"),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><usage><modules>"
            "<module><IP>10.0.0.5</IP><load>37</load></module><module><IP>10.0.0.6</IP><load>0</load></module>"
            "</modules></usage></stats>");
}

TEST(XmlReport, OnlyTheLastPercentSignGoes) {
  ptree tree;
  tree.put("stats.x", "1%2%3");
  EXPECT_EQ(xml(tree, "stats"), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><x>1%23</x></stats>");
}

TEST(XmlReport, EmptyLeafIsAnEmptyElement) {
  ptree tree;
  tree.put("stats.x", "");
  EXPECT_EQ(xml(tree, "stats"), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><x></x></stats>");
}

TEST(XmlReport, ElementIsNamedByTheLastPartOfItsPath) {
  ptree tree;
  tree.put("stats.usage.summary.a", "1");
  std::ostringstream out;
  EXPECT_TRUE(fill_xml_report(out, tree, "stats.usage.summary"));
  EXPECT_EQ(out.str(), "<summary><a>1</a></summary>");
}

TEST(XmlReport, WithoutItsNodeThrows) {
  ptree tree;
  std::ostringstream out;
  EXPECT_THROW(generate_xml_report(out, tree, "stats"), ptree_bad_path);
}

TEST(XmlReport, PathThatIsTooLongThrowsInsteadOfGoingRoundForEver) {
  ptree tree;
  // 5 characters of "stats", a point and a name of 293 fill a path of 299, which a child's path would be cut back to;
  // of 292, to the same and a point.
  for (std::size_t length : {293, 292}) {
    tree.clear();
    tree.put("stats." + std::string(length, 'n') + ".x", "1");
    std::ostringstream out;
    EXPECT_THROW(generate_xml_report(out, tree, "stats"), ptree_bad_path);
  }
}

// The buffer holds 299 characters: of "stats." and a longer name 293 are left, which are another element's name here.
TEST(XmlReport, PathIsCutToItsBuffer) {
  ptree tree;
  const std::string name(293, 'n');
  tree.put("stats." + name, "1");
  tree.put("stats." + name + "nnn", "2");
  EXPECT_EQ(xml(tree, "stats"), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><" + name + ">1</" + name +
                                    "><" + name + ">1</" + name + "></stats>");
}

TEST(XmlReport, PathThatIsCutToNothingThatIsThereThrows) {
  ptree tree;
  tree.put("stats." + std::string(294, 'n'), "1");
  std::ostringstream out;
  EXPECT_THROW(generate_xml_report(out, tree, "stats"), ptree_bad_path);
}

TEST(XmlReport, LongestPathThatFitsIsWritten) {
  ptree tree;
  const std::string name(291, 'n');
  tree.put("stats." + name + ".x", "1");
  EXPECT_EQ(xml(tree, "stats"),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><" + name + "><x>1</x></" + name + "></stats>");
}

TEST(XmlReport, NamelessElementThrowsInsteadOfGoingRoundForEver) {
  ptree tree;
  tree.put("stats.usage..x", "1");
  std::ostringstream out;
  EXPECT_THROW(generate_xml_report(out, tree, "stats"), ptree_bad_path);
}

TEST(PatchOutputString, DropsDigitsAfterEveryToken) {
  EXPECT_EQ(patched("<module12>x</module12>"), "<module>x</module>");
  EXPECT_EQ(patched("module1module22module"), "modulemodulemodule");
  EXPECT_EQ(patched("modules 1, module-2, modul3"), "modules 1, module-2, modul3");
  EXPECT_EQ(patched("of module7 and 8"), "of module and 8");
  EXPECT_EQ(patched(""), "");
  EXPECT_EQ(patched("module"), "module");
  EXPECT_EQ(patched("module0099"), "module");
  EXPECT_EQ(patched("12345"), "12345");
}

}  // namespace module_test
