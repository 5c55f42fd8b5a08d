#include "protocol/line_framer.h"

#include <gtest/gtest.h>

#include <vector>

namespace brisko {
namespace {

std::vector<std::string> bytesOf(const std::string& stream) {
  std::vector<std::string> chunks;
  for (char byte : stream)
    chunks.emplace_back(1, byte);
  return chunks;
}

// Each row feeds chunks as a pipe might give them; a line is due as soon as
// the chunk holding its line feed arrived ("2:b" is line "b" after chunk 2),
// and the bytes after the last line feed are the remainder.
TEST(LineFramer, LinesComeAsTheirLineFeedArrives) {
  const struct {
    const char* name;
    std::vector<std::string> chunks;
    std::vector<std::string> lines;
    std::string remainder;
  } rows[] = {
      {"a line feed in a later chunk",
       {R"({"a":1})", "\n{\"b\"", ":2}\n"},
       {R"(1:{"a":1})", R"(2:{"b":2})"},
       ""},
      {"two lines in one chunk", {"first\nsecond\nthi"}, {"0:first", "0:second"}, "thi"},
      {"empty lines are skipped", {"\n\none\n\n", "\ntwo\n"}, {"0:one", "1:two"}, ""},
      {"byte by byte",
       bytesOf("alpha\nbeta\n\ngamma\nlast"),
       {"5:alpha", "10:beta", "17:gamma"},
       "last"},
      {"nothing", {}, {}, ""},
  };
  for (const auto& row : rows) {
    LineFramer framer;
    std::vector<std::string> lines;
    for (size_t i = 0; i < row.chunks.size(); ++i) {
      framer.append(row.chunks[i]);
      while (auto line = framer.nextLine())
        lines.push_back(std::to_string(i) + ":" + *line);
    }
    EXPECT_EQ(lines, row.lines) << row.name;
    EXPECT_EQ(framer.empty(), row.remainder.empty()) << row.name;
    EXPECT_EQ(framer.takeRemainder(), row.remainder) << row.name;
    EXPECT_TRUE(framer.empty()) << row.name;
  }
}

TEST(LineFramer, ManyLinesKeepTheBufferSmall) {
  LineFramer framer;
  const std::string line(1000, 'x');
  for (int i = 0; i < 10000; ++i) {
    framer.append(line + "\n");
    ASSERT_EQ(framer.nextLine(), line);
  }
  EXPECT_TRUE(framer.empty());
}

}  // namespace
}  // namespace brisko
