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

TEST(EngineEntry, HomeFolderThatCannotBeReadFails) {
  TemporaryDirectory folder;
  expectOneLineFailure(engine({"overview"}, withHome(folder / "missing")), "missing");
  const std::string file = folder.writeFile("plain-file", "x");
  expectOneLineFailure(engine({"overview"}, withHome(file)), "not a folder");
  // A multi-line message still reaches standard error as one line.
  const std::string odd = folder / "two\nlines";
  expectOneLineFailure(engine({"overview"}, withHome(odd)), "two lines");
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
