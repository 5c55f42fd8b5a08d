// The engine's command frame, driven through the real executable.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "protocol/engine_records.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::ProcessOptions;
using testing::ProcessResult;
using testing::TemporaryDirectory;

ProcessResult engine(std::vector<std::string> args, ProcessOptions options = {}) {
  args.insert(args.begin(), BRISKO_ENGINE_PATH);
  return testing::runProcess(args, options);
}

ProcessOptions withHome(const std::string& home) {
  ProcessOptions options;
  options.environment = {{"HOME", home}};
  return options;
}

void expectOneLineFailure(const ProcessResult& result, const std::string& mentioning) {
  EXPECT_NE(result.exitStatus, 0);
  EXPECT_EQ(result.signal, 0) << "the engine crashed";
  EXPECT_EQ(result.standardOutput, "") << "standard output holds only JSON";
  const auto lines = testing::linesOf(result.standardError);
  ASSERT_EQ(lines.size(), 1u) << result.standardError;
  EXPECT_NE(lines[0].find(mentioning), std::string::npos) << lines[0];
}

TEST(EngineEntry, CapabilitiesNameTheProtocolVersionAndCommands) {
  const ProcessResult result = engine({"capabilities"});
  ASSERT_EQ(result.exitStatus, 0) << result.standardError;
  EXPECT_EQ(result.standardError, "");
  const auto answer = decodeJson<EngineCapabilities>(result.standardOutput);
  EXPECT_EQ(answer.protocolVersion, 3);
  EXPECT_FALSE(answer.engineVersion.empty());
  EXPECT_NE(std::find(answer.commands.begin(), answer.commands.end(), "overview"),
            answer.commands.end());
  // Every listed command is one the engine accepts as a command word.
  for (const auto& command : answer.commands) {
    const ProcessResult run = engine({command, "--no-such-flag"});
    EXPECT_NE(run.standardError.find("Unknown argument"), std::string::npos) << command;
  }
}

TEST(EngineEntry, OverviewMeasuresTheVolumeOfTheHomeFolder) {
  TemporaryDirectory home;
  const ProcessResult result = engine({"overview"}, withHome(home.path()));
  ASSERT_EQ(result.exitStatus, 0) << result.standardError;
  const auto snapshot = decodeJson<DiskSnapshot>(result.standardOutput);

  // df is the reference for the mount point and the capacity.
  const ProcessResult df = testing::runProcess({"df", "-B1", "--output=target,size", home.path()});
  ASSERT_EQ(df.exitStatus, 0);
  const auto lines = testing::linesOf(df.standardOutput);
  ASSERT_EQ(lines.size(), 2u);
  const std::string target = lines[1].substr(0, lines[1].find(' '));
  const std::int64_t size = std::stoll(lines[1].substr(lines[1].find_last_of(' ') + 1));
  EXPECT_EQ(snapshot.volumeName, target);
  EXPECT_EQ(snapshot.totalBytes, size);
  EXPECT_GT(snapshot.availableBytes, 0);
  EXPECT_LE(snapshot.availableBytes, snapshot.totalBytes);
}

TEST(EngineEntry, UnknownOrMissingCommandsFailWithOneLine) {
  expectOneLineFailure(engine({}), "Missing command");
  expectOneLineFailure(engine({"clean-everything"}), "Unknown command \"clean-everything\"");
  expectOneLineFailure(engine({""}), "Unknown command");
  expectOneLineFailure(engine({"Capabilities"}), "Unknown command");
}

TEST(EngineEntry, UnknownArgumentsFail) {
  expectOneLineFailure(engine({"capabilities", "--verbose"}), "Unknown argument \"--verbose\"");
  expectOneLineFailure(engine({"overview", "/"}), "Unknown argument \"/\"");
}

TEST(EngineEntry, BadRequestsGetOneShortPlainLineAndStatus65) {
  const std::string hugeField = "{\"planID\":\"" + std::string(1 << 20, 'A') + "\"}";
  const std::string tooLarge = std::string(17 << 20, ' ') + "{\"planID\":\"x\"}";
  const std::string request = R"({"findingIDs":["user-caches"],"itemIDs":[]})";
  const struct {
    const char* name;
    const char* command;
    std::string input;
    const char* mentioning;
  } rows[] = {
      {"a 1 MB field", "execute-plan", hugeField, "\"AAAA"},
      {"escapes and overrides", "execute-plan", R"({"planID":"\u001b[2J\u0007\u009b\u202ex"})",
       "\"\\u{1B}[2J\\u{7}\\u{9B}\\u{202E}x\""},
      {"raw bytes that aren't UTF-8", "execute-plan", "{\"planID\":\"\xff\x1b\"}",
       "not valid JSON"},
      {"a NUL and more after the request", "create-plan", request + std::string(1, '\0') + "junk",
       "NUL"},
      {"text after the request", "create-plan", request + " junk", "not valid JSON"},
      {"more than a request can be", "create-plan", tooLarge, "larger than 16 MiB"},
  };
  TemporaryDirectory home;
  for (const auto& row : rows) {
    ProcessOptions options = withHome(home.path());
    options.standardInput = row.input;
    const ProcessResult result = engine({row.command}, options);
    SCOPED_TRACE(row.name);
    EXPECT_EQ(result.exitStatus, 65) << result.standardError.substr(0, 300);
    expectOneLineFailure(result, row.mentioning);
    EXPECT_LT(result.standardError.size(), 600u);
    for (const char raw : {'\x1b', '\x07', '\0'}) {
      EXPECT_EQ(result.standardError.find(raw), std::string::npos) << int(raw);
    }
    EXPECT_EQ(result.standardError.find("\xe2\x80\xae"), std::string::npos) << "U+202E raw";
  }
  // The command line is quoted the same way.
  const std::string bell = "run\x07" + std::string(5000, 'x');
  const ProcessResult argument = engine({"capabilities", bell});
  expectOneLineFailure(argument, "\"run\\u{7}xxx");
  EXPECT_NE(argument.standardError.find("x\u2026\""), std::string::npos) << argument.standardError;
  EXPECT_LT(argument.standardError.size(), 600u);
}

TEST(EngineEntry, HomeFolderThatCannotBeReadFails) {
  TemporaryDirectory folder;
  expectOneLineFailure(engine({"overview"}, withHome(folder / "missing")), "missing");
  const std::string file = folder.writeFile("plain-file", "x");
  expectOneLineFailure(engine({"overview"}, withHome(file)), "not a folder");
  // A multi-line message still reaches standard error as one line, its line
  // break written as an escape.
  const std::string odd = folder / "two\nlines";
  expectOneLineFailure(engine({"overview"}, withHome(odd)), "two\\u{A}lines");
}

TEST(EngineEntry, StandardInputIsIgnoredByCommandsWithoutARequest) {
  ProcessOptions options;
  options.standardInput = "not json at all\n";
  const ProcessResult result = engine({"capabilities"}, options);
  EXPECT_EQ(result.exitStatus, 0) << result.standardError;
}

TEST(EngineEntry, AClosedReaderEndsTheEngineWithoutACrash) {
  // `true` never reads its input, so the engine's write meets a closed pipe.
  const ProcessResult result = testing::runProcess(
      {"/bin/sh", "-c", std::string("'") + BRISKO_ENGINE_PATH + "' capabilities | true; echo $?"});
  ASSERT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.standardError.find("Segmentation"), std::string::npos);
}

}  // namespace
}  // namespace brisko
