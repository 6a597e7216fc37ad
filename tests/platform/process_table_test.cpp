#include "platform/ProcessTable.h"

#include <gtest/gtest.h>

namespace tovi {
namespace {

ProcessEntry entry(Pid pid, std::optional<Pid> parent, std::optional<std::string> path = {}) {
  ProcessEntry entry;
  entry.pid = pid;
  entry.parent = parent;
  entry.path = std::move(path);
  return entry;
}

TEST(ProcessTable, FindsTreesAndAncestorsInAnyOrderOfEntries) {
  const ProcessTable table({entry(40, 20), entry(1, 0), entry(20, 10), entry(10, 1), entry(30, 20), entry(5, {})});
  EXPECT_EQ(table.tree(10), (std::vector<Pid>{10, 20, 40, 30}));
  EXPECT_EQ(table.ancestors(40), (std::vector<Pid>{20, 10}));
  EXPECT_EQ(table.tree(99), (std::vector<Pid>{99}));
  EXPECT_TRUE(table.ancestors(5).empty());
  EXPECT_TRUE(table.childrenOf(5).empty());
  EXPECT_EQ(table.find(21), nullptr);
}

// Two reads that straddle a change can make each of two processes the other's parent.
TEST(ProcessTable, ACircleOfParentsEndsTheWalk) {
  const ProcessTable table({entry(10, 11), entry(11, 10), entry(12, 12)});
  EXPECT_EQ(table.tree(10), (std::vector<Pid>{10, 11}));
  EXPECT_LE(table.ancestors(10).size(), 3u);
  EXPECT_LE(table.ancestors(12).size(), 3u);
}

TEST(ProcessTable, NamesAreLastPathComponents) {
  EXPECT_EQ(entry(2, 1, "/usr/bin/foo bar").name(), "foo bar");
  EXPECT_EQ(entry(2, 1, "bare").name(), "bare");
  EXPECT_EQ(entry(2, 1, "/ends/").name(), "");
  EXPECT_EQ(entry(2, 1).name(), "");
}

}  // namespace
}  // namespace tovi
