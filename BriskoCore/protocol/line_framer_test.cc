#include "protocol/line_framer.h"

#include <gtest/gtest.h>

#include <vector>

#include "protocol/scan_records.h"

namespace brisko {
namespace {

std::vector<std::string> drain(LineFramer& framer) {
  std::vector<std::string> lines;
  while (auto line = framer.nextLine())
    lines.push_back(*line);
  return lines;
}

TEST(LineFramer, LineFeedInALaterChunkCompletesOneLine) {
  LineFramer framer;
  framer.append(R"({"a":1})");
  EXPECT_TRUE(drain(framer).empty());
  framer.append("\n{\"b\"");
  EXPECT_EQ(drain(framer), std::vector<std::string>{R"({"a":1})"});
  // The bytes behind the line feed stay for the next line.
  framer.append(":2}\n");
  EXPECT_EQ(drain(framer), std::vector<std::string>{R"({"b":2})"});
  EXPECT_TRUE(framer.empty());
}

TEST(LineFramer, TwoEventsInOneChunkComeInOrder) {
  LineFramer framer;
  framer.append("first\nsecond\nthi");
  EXPECT_EQ(drain(framer), (std::vector<std::string>{"first", "second"}));
  EXPECT_EQ(framer.takeRemainder(), "thi");
}

TEST(LineFramer, EmptyLinesAreSkipped) {
  LineFramer framer;
  framer.append("\n\none\n\n");
  framer.append("\ntwo\n");
  EXPECT_EQ(drain(framer), (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(framer.takeRemainder(), "");
}

TEST(LineFramer, ByteByByteGivesTheSameLines) {
  const std::string stream = "alpha\nbeta\n\ngamma\nlast";
  LineFramer framer;
  std::vector<std::string> lines;
  for (char byte : stream) {
    framer.append(std::string_view(&byte, 1));
    for (auto& line : drain(framer))
      lines.push_back(line);
  }
  EXPECT_EQ(lines, (std::vector<std::string>{"alpha", "beta", "gamma"}));
  EXPECT_EQ(framer.takeRemainder(), "last");
  EXPECT_TRUE(framer.empty());
}

TEST(LineFramer, UnterminatedLastEventDecodes) {
  ScanEvent first;
  first.kind = ScanEventKind::started;
  ScanEvent last;
  last.kind = ScanEventKind::warning;
  last.warning = "disk is slow";
  LineFramer framer;
  framer.append(encodeJson(first) + "\n" + encodeJson(last));
  auto lines = drain(framer);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(decodeJson<ScanEvent>(lines[0]), first);
  EXPECT_EQ(decodeJson<ScanEvent>(framer.takeRemainder()), last);
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
