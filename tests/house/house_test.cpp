#include <gtest/gtest.h>
#include <unistd.h>

#include "house/SourceTree.h"

namespace tovi::house {
namespace {

const SourceTree& theHouse() {
  static const SourceTree tree = SourceTree::read(TOVI_ROOT);
  return tree;
}

std::string joined(const Breaches& breaches) {
  std::string text;
  for (const auto& breach : breaches) text += "  " + breach + "\n";
  return text;
}

struct Rule {
  const char* name;
  Breaches (*check)(const SourceTree&);
  // A small house that keeps the rule but for one breach.
  SourceTree broken;
};

SourceTree house(std::map<std::string, std::string> files) { return {std::move(files)}; }

std::vector<Rule> rules() {
  const std::string once = "// What it is for.\n#pragma once\n";
  return {
      {"AFloorReachesUpward", upwardIncludes,
       house({{"src/core/A.h", "#include \"engine/E.h\"\n"}, {"src/engine/E.h", "#include \"core/A.h\"\n"}})},
      {"ThePlatformKnowsItsUsers", upwardIncludes,
       house({{"src/platform/linux/P.cpp", "#include \"core/A.h\"\n"}, {"src/core/A.h", ""}})},
      {"TheRealMachineKnowsTheSimulatedOne", upwardIncludes,
       house({{"src/platform/linux/P.cpp", "#include \"platform/simulated/L.h\"\n"},
              {"src/platform/simulated/L.h", "#include \"platform/linux/Q.h\"\n"},
              {"src/platform/linux/Q.h", ""}})},
      {"LogicPicksItsMachine", upwardIncludes,
       house({{"src/observe/O.cpp", "#include \"platform/linux/P.h\"\n"},
              {"src/app/main.cpp", "#include \"platform/linux/P.h\"\n"},
              {"src/platform/linux/P.h", ""}})},
      {"ARoomOnNoFloor", upwardIncludes, house({{"src/attic/A.h", ""}})},
      {"AnIncludeBesideTheFile", upwardIncludes,
       house({{"src/core/A.cpp", "#include \"B.h\"\n#include \"core/B.h\"\n"}, {"src/core/B.h", ""}})},
      {"HeadersInACircle", includeCircles,
       house({{"src/core/A.h", "#include \"core/B.h\"\n"},
              {"src/core/B.h", "#include \"core/C.h\"\n"},
              {"src/core/C.h", "#include \"core/A.h\"\n"}})},
      {"ATestThatNeverRuns", filesOutOfTheBuild,
       house({{"tests/core/CMakeLists.txt", "tovi_test(core_tests SOURCES a_test.cpp)"},
              {"tests/core/a_test.cpp", ""},
              {"tests/core/other_a_test.cpp", ""}})},
      {"APartOfTestsThatIsNeverBuilt", filesOutOfTheBuild, house({{"tests/core/Stage.cpp", ""}})},
      {"ASourceThatIsNeverBuilt", filesOutOfTheBuild,
       house({{"src/CMakeLists.txt", "tovi_floor(platform SOURCES platform/A.cpp)"},
              {"src/platform/A.cpp", ""},
              {"src/platform/B.cpp", ""}})},
      {"TheWholeJsonLibraryInAHeader", costlyIncludes,
       house({{"src/core/A.h", "#include <nlohmann/json.hpp>\n"},
              {"src/core/B.h", "#include <nlohmann/json_fwd.hpp>\n"},
              {"src/core/A.cpp", "#include <nlohmann/json.hpp>\n"}})},
      {"Streams", costlyIncludes, house({{"src/core/A.cpp", "#include <iostream>\n"}})},
      {"AHeaderThatDoesntSayWhatItIsFor", barehandedHeaders,
       house({{"src/core/A.h", "#pragma once\n// Late.\n#pragma once\n"}, {"src/core/B.h", once}})},
      {"AHeaderThatCanComeTwice", barehandedHeaders, house({{"tests/core/A.h", "// What it is for.\n"}})},
  };
}

TEST(House, KeepsItsRules) {
  for (const auto& rule : rules()) {
    const auto found = rule.check(theHouse());
    EXPECT_TRUE(found.empty()) << rule.name << ":\n" << joined(found);
  }
}

TEST(House, EachRuleSeesItsBreachAndNothingElse) {
  for (const auto& rule : rules()) {
    const auto found = rule.check(rule.broken);
    EXPECT_EQ(found.size(), 1u) << rule.name << ":\n" << joined(found);
  }
}

TEST(House, RefersToNothingThatItsReadersDontHave) {
  const auto found = foreignReferences(theHouse());
  EXPECT_TRUE(found.empty()) << joined(found);

  const std::string spec = std::string("sp") + "ec";
  const std::string number = "2.2";
  for (const std::string& line :
       {"// See Part " + number + ".", "// in the " + spec + ", or so", "// The " + spec + "ification says",
        "// as " + spec + "ified", "see " + spec + ".md", std::string("// is") + "sue #12",
        std::string("// Is") + "sue 7: crash", std::string("cd /wo") + "rk/main", std::string("=/wo") + "rk/shared/x",
        std::string("cmake -B /tmp/b") + "-x", std::string("https://registry.n") + "pmjs.org"})
    EXPECT_EQ(foreignReferences({{{"src/core/A.h", line}}}).size(), 1u) << line;
  for (const std::string& line : {"// the " + spec + "ial case", std::string("// part 2 of it, the issues of 2024"),
                                  "\"/home/me/wo" + std::string("rk/main.cpp\"")})
    EXPECT_TRUE(foreignReferences({{{"src/core/A.h", line}}}).empty()) << line;
}

TEST(House, ReadsItsOwnFiles) {
  EXPECT_TRUE(theHouse().files.contains("src/platform/Machine.h"));
  EXPECT_TRUE(theHouse().files.contains("tests/house/house_test.cpp"));
  EXPECT_TRUE(theHouse().files.contains("CMakeLists.txt"));
}

TEST(House, ScriptsCanBeRun) {
  int count = 0;
  for (const auto& [path, text] : theHouse().files) {
    if (!path.starts_with("scripts/") && !path.starts_with(".ci/")) continue;
    ++count;
    EXPECT_EQ(access((std::string(TOVI_ROOT) + "/" + path).c_str(), X_OK), 0) << path;
    EXPECT_TRUE(text.starts_with("#!/")) << path;
  }
  EXPECT_GE(count, 8);
}

}  // namespace
}  // namespace tovi::house
