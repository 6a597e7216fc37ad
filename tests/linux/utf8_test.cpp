#include "platform/Utf8.h"

#include <gtest/gtest.h>

namespace tovi {
namespace {

#define BAD "\xEF\xBF\xBD"

TEST(Utf8, BrokenTextIsRepairedAndGoodTextIsLeftAlone) {
  struct Case {
    std::string bytes, repaired;
  };
  for (const Case& c : {
           Case{"", ""}, Case{"plain", "plain"},
           Case{"gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80", "gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80"},
           Case{"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},  // the last character there is
           Case{"a\xFF"
                "b",
                "a" BAD "b"},                             // a byte of no character
           Case{"\x80", BAD},                             // a follower without a lead
           Case{"\xC0\xAF", BAD BAD},                     // "/" in an overlong form
           Case{"\xE0\x80\xAF", BAD BAD BAD},             // overlong in three bytes
           Case{"\xED\xA0\x80", BAD BAD BAD},             // half of a surrogate pair
           Case{"\xF4\x90\x80\x80", BAD BAD BAD BAD},     // beyond the last character
           Case{"\xE2\x82", BAD},                         // breaks off at the end
           Case{"\xF0\x9F\x98\xC3\xBC", BAD "\xC3\xBC"},  // breaks off before a character
       }) {
    EXPECT_EQ(repairUtf8(c.bytes), c.repaired);
    EXPECT_EQ(isUtf8(c.bytes), c.bytes == c.repaired) << c.repaired;
    EXPECT_TRUE(isUtf8(repairUtf8(c.bytes)));
  }
}

}  // namespace
}  // namespace tovi
