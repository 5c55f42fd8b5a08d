// Round trips and the decoding rules of every engine record.

#include <gtest/gtest.h>

#include "protocol/engine_records.h"
#include "protocol/plan_records.h"
#include "protocol/receipt_records.h"
#include "protocol/scan_records.h"
#include "protocol/space_records.h"

namespace brisko {
namespace {

Date at(std::int64_t secondsSinceEpoch) {
  return Date{std::chrono::seconds{secondsSinceEpoch}};
}

Uuid uuid(const char* text) {
  return *Uuid::parse(text);
}

ScanFinding fullFinding() {
  ScanFinding finding;
  finding.id = "xcode-derived-data";
  finding.kind = FindingKind::developer;
  finding.title = "Xcode Derived Data";
  finding.subtitle = "Build products";
  finding.path = "/home/ada/Library/Developer/Xcode/DerivedData";
  finding.bytes = 9'000'000'000;
  finding.itemCount = 12;
  finding.risk = RiskLevel::protected_;
  finding.explanation = "Rebuilt on the next build.";
  finding.isPartial = true;
  finding.items = std::vector<ScanFindingItem>{{"xcode-derived-data:/home/ada/D/App-abc", "App",
                                                "Derived data", "/home/ada/D/App-abc", 4096, 3}};
  finding.action = RuleAction::reportOnly;
  finding.guidance = "Delete it in Xcode.";
  return finding;
}

ScanReport fullReport() {
  ScanReport report;
  report.scannedAt = at(1'790'000'000);
  report.disk = {"/", 500'000'000'000, 120'000'000'000};
  report.findings = {fullFinding()};
  report.warnings = {
      "\x01key\x02"
      "arg",
      "plain"};
  report.blocked = {{"mail", "Mail", "/home/ada/Library/Mail", true}};
  return report;
}

CleanupPlan fullPlan() {
  CleanupPlan plan;
  plan.id = uuid("0F8FAD5B-D9CB-469F-A165-70867728950E");
  plan.createdAt = at(1'790'000'000);
  plan.expiresAt = at(1'790'000'900);
  plan.items = {{"user-caches:2049:77",
                 "user-caches",
                 "com.example",
                 "/home/ada/.cache/com.example",
                 8192,
                 {2049, 77, 0040000, 4096, 1'790'000'000'123'456'789}}};
  plan.skipped = {{"protectedPath:/etc", "/etc", CleanupPlanSkipReason::protectedPath,
                   "This location is protected."}};
  return plan;
}

CleanupReceipt fullReceipt() {
  CleanupReceipt receipt;
  receipt.id = uuid("7C9E6679-7425-40DE-944B-E07FC1F90AE7");
  receipt.planID = uuid("0F8FAD5B-D9CB-469F-A165-70867728950E");
  receipt.startedAt = at(1'790'000'100);
  receipt.completedAt = at(1'790'000'101);
  receipt.results = {
      {"/home/ada/.cache/a", "/home/ada/.cache/a", 8192, CleanupItemOutcome::deleted, "Deleted."},
      {"/home/ada/.cache/b", "/home/ada/.cache/b", 0, CleanupItemOutcome::failed,
       "Permission denied"}};
  return receipt;
}

SpaceNode spaceTree() {
  SpaceNode file{"f", "big.iso", "/h/big.iso", 4096, 1, false, SpaceNodeKind::file, false, 0, {}};
  SpaceNode denied{"d", "Private", "/h/Private", 0, 0, true, SpaceNodeKind::directory, true, 0, {}};
  return {"root", "h", "/h", 4096, 1, true, SpaceNodeKind::directory, false, 512, {file, denied}};
}

template <class T>
T roundTrip(const T& value) {
  return decodeJson<T>(encodeJson(value));
}

TEST(RecordRoundTrip, EveryRecordReadsBackEqual) {
  EXPECT_EQ(roundTrip(EngineCapabilities{3, "1.2.3", {"capabilities", "overview"}}),
            (EngineCapabilities{3, "1.2.3", {"capabilities", "overview"}}));
  EXPECT_EQ(roundTrip(DiskSnapshot{"/", INT64_MAX, 0}), (DiskSnapshot{"/", INT64_MAX, 0}));
  EXPECT_EQ(roundTrip(fullFinding()), fullFinding());
  EXPECT_EQ(roundTrip(fullReport()), fullReport());

  ScanEvent started;
  started.kind = ScanEventKind::started;
  started.disk = DiskSnapshot{"/", 10, 5};
  started.progress = ScanProgress{0, 19, std::nullopt};
  EXPECT_EQ(roundTrip(started), started);
  ScanEvent completed;
  completed.kind = ScanEventKind::completed;
  completed.report = fullReport();
  completed.warning = "w";
  completed.blocked = BlockedLocation{"id", "t", "/p", false};
  completed.finding = fullFinding();
  EXPECT_EQ(roundTrip(completed), completed);

  EXPECT_EQ(roundTrip(CreateCleanupPlanRequest{{"a"}, {"b:/x", "c:/y"}}),
            (CreateCleanupPlanRequest{{"a"}, {"b:/x", "c:/y"}}));
  const ExecuteCleanupPlanRequest execute{uuid("0F8FAD5B-D9CB-469F-A165-70867728950E")};
  EXPECT_EQ(roundTrip(execute), execute);
  EXPECT_EQ(roundTrip(fullPlan()), fullPlan());
  EXPECT_EQ(roundTrip(fullReceipt()), fullReceipt());

  CleanupEvent item;
  item.kind = CleanupEventKind::item;
  item.result = fullReceipt().results[1];
  EXPECT_EQ(roundTrip(item), item);
  CleanupEvent cleanupStarted;
  cleanupStarted.totalItems = 2;
  EXPECT_EQ(roundTrip(cleanupStarted), cleanupStarted);

  SpaceReport space;
  space.scannedAt = at(1'790'000'000);
  space.root = spaceTree();
  space.largeFiles = {{"f", "big.iso", "/h/big.iso", 4096, at(1'700'000'000)},
                      {"g", "other", "/h/other", 1, std::nullopt}};
  space.warnings = {"w"};
  EXPECT_EQ(roundTrip(space), space);
  SpaceEvent progress;
  progress.kind = SpaceEventKind::progress;
  progress.progress = SpaceScanProgress{1, 4, "Library", 0.25, 123};
  EXPECT_EQ(roundTrip(progress), progress);
}

TEST(RecordRoundTrip, DatesLoseTheirFractionAtTheFirstCrossing) {
  ScanReport report = fullReport();
  report.scannedAt = at(1'790'000'000) + std::chrono::milliseconds(999);
  const ScanReport back = roundTrip(report);
  EXPECT_EQ(back.scannedAt, at(1'790'000'000));
  EXPECT_EQ(roundTrip(back), back);
}

TEST(RecordEncoding, KeysAndValuesAreSpelledAsOnTheWire) {
  const Json plan = Json::parse(encodeJson(fullPlan()));
  EXPECT_EQ(plan["id"], "0F8FAD5B-D9CB-469F-A165-70867728950E");
  EXPECT_EQ(plan["createdAt"], "2026-09-21T14:13:20Z");
  EXPECT_EQ(plan["protocolVersion"], 3);
  EXPECT_EQ(plan["skipped"][0]["reason"], "protectedPath");
  EXPECT_EQ(plan["items"][0]["identity"]["fileType"], 0040000);

  const Json finding = Json::parse(encodeJson(fullFinding()));
  EXPECT_EQ(finding["risk"], "protected");
  EXPECT_EQ(finding["action"], "reportOnly");
  EXPECT_EQ(finding["kind"], "developer");

  // Pretty output for files keeps keys sorted.
  const std::string pretty = encodeJson(DiskSnapshot{"/", 1, 2}, true);
  EXPECT_LT(pretty.find("availableBytes"), pretty.find("totalBytes"));
  EXPECT_LT(pretty.find("totalBytes"), pretty.find("volumeName"));
}

TEST(RecordEncoding, AbsentOptionalsAreLeftOut) {
  ScanFinding finding = fullFinding();
  finding.items.reset();
  finding.guidance.reset();
  const Json json = Json::parse(encodeJson(finding));
  EXPECT_FALSE(json.contains("items"));
  EXPECT_FALSE(json.contains("guidance"));
  const ScanFinding back = decodeJson<ScanFinding>(json.dump());
  EXPECT_FALSE(back.items.has_value());
  EXPECT_FALSE(back.guidance.has_value());

  const Json event = Json::parse(encodeJson(ScanEvent{}));
  EXPECT_EQ(event.size(), 2u) << event.dump();

  // An empty item list is a value, not an absence.
  finding.items = std::vector<ScanFindingItem>{};
  EXPECT_TRUE(Json::parse(encodeJson(finding)).contains("items"));
}

TEST(RecordEncoding, SpaceNodeWritesEveryKey) {
  const Json node = Json::parse(encodeJson(SpaceNode{"a", "b", "/c", 0, 0}));
  for (const char* key : {"id", "name", "path", "bytes", "itemCount", "isPartial", "kind",
                          "accessDenied", "sharedBytes", "children"}) {
    EXPECT_TRUE(node.contains(key)) << key;
  }
}

TEST(RecordEncoding, TextThatIsNotUtf8IsRefusedRatherThanWrittenBroken) {
  ScanFindingItem item{"a", "b", "c", "/home/\xff", 0, 0};
  EXPECT_THROW(encodeJson(item), EncodingError);
}

// --- decoding rules ---

Json findingJson() {
  return Json::parse(encodeJson(fullFinding()));
}

TEST(RecordDecoding, MissingRequiredKeyFails) {
  for (const char* key : {"id", "kind", "title", "subtitle", "path", "bytes", "itemCount", "risk",
                          "explanation", "isPartial", "action"}) {
    Json json = findingJson();
    json.erase(key);
    try {
      decodeJson<ScanFinding>(json.dump());
      ADD_FAILURE() << "decoded without " << key;
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.path(), key);
    }
  }
}

TEST(RecordDecoding, OptionalKeysMayBeNullOrAbsent) {
  Json json = findingJson();
  json["items"] = nullptr;
  json["guidance"] = nullptr;
  const ScanFinding finding = decodeJson<ScanFinding>(json.dump());
  EXPECT_FALSE(finding.items);
  EXPECT_FALSE(finding.guidance);

  Json event = {
      {"protocolVersion", 3}, {"kind", "warning"}, {"warning", nullptr}, {"report", nullptr}};
  EXPECT_EQ(decodeJson<ScanEvent>(event.dump()).kind, ScanEventKind::warning);
}

TEST(RecordDecoding, RequiredKeyThatIsNullFails) {
  Json json = findingJson();
  json["title"] = nullptr;
  EXPECT_THROW(decodeJson<ScanFinding>(json.dump()), DecodingError);
}

TEST(RecordDecoding, UnknownKeysAreIgnored) {
  Json json = findingJson();
  json["futureField"] = {{"nested", true}};
  EXPECT_EQ(decodeJson<ScanFinding>(json.dump()), fullFinding());
}

TEST(RecordDecoding, UnknownEnumerationFailsTheWholeRecord) {
  Json report = Json::parse(encodeJson(fullReport()));
  report["findings"][0]["kind"] = "systemCache";
  try {
    decodeJson<ScanReport>(report.dump());
    ADD_FAILURE() << "decoded an unknown kind";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.path(), "findings[0].kind");
  }
  // Case matters.
  Json skip = {{"id", "x"}, {"path", "/x"}, {"reason", "PathMissing"}, {"message", ""}};
  EXPECT_THROW(decodeJson<CleanupPlanSkip>(skip.dump()), DecodingError);
}

TEST(RecordDecoding, IntegersMustBeWholeAndFitTheirWidth) {
  Json identity = Json::parse(encodeJson(fullPlan().items[0].identity));
  const auto decodes = [&](const char* key, const Json& value) {
    Json copy = identity;
    copy[key] = value;
    try {
      decodeJson<FileIdentitySnapshot>(copy.dump());
      return true;
    } catch (const DecodingError&) {
      return false;
    }
  };
  // uint32
  EXPECT_TRUE(decodes("fileType", 4294967295u));
  EXPECT_FALSE(decodes("fileType", 4294967296u));
  EXPECT_FALSE(decodes("fileType", -1));
  // uint64
  EXPECT_TRUE(decodes("deviceID", UINT64_MAX));
  EXPECT_FALSE(decodes("deviceID", -1));
  // int64
  EXPECT_TRUE(decodes("logicalBytes", INT64_MIN));
  EXPECT_TRUE(decodes("logicalBytes", INT64_MAX));
  EXPECT_FALSE(decodes("logicalBytes", static_cast<std::uint64_t>(INT64_MAX) + 1));
  // fractions and other types
  EXPECT_FALSE(decodes("logicalBytes", 1.5));
  EXPECT_TRUE(decodes("logicalBytes", 2.0));
  EXPECT_FALSE(decodes("logicalBytes", 9.3e18));
  EXPECT_FALSE(decodes("logicalBytes", "12"));
  EXPECT_FALSE(decodes("logicalBytes", true));

  // Text with an integer beyond 64 bits is read by the parser as a float.
  const std::string huge =
      R"({"volumeName":"/","totalBytes":99999999999999999999,"availableBytes":0})";
  EXPECT_THROW(decodeJson<DiskSnapshot>(huge), DecodingError);
}

TEST(RecordDecoding, DatesAcceptOnlyWholeSecondsInUtc) {
  Json plan = Json::parse(encodeJson(fullPlan()));
  const auto decodes = [&](const Json& value) {
    Json copy = plan;
    copy["createdAt"] = value;
    try {
      decodeJson<CleanupPlan>(copy.dump());
      return true;
    } catch (const DecodingError&) {
      return false;
    }
  };
  EXPECT_TRUE(decodes("2026-02-28T23:59:59Z"));
  EXPECT_TRUE(decodes("2024-02-29T00:00:00Z"));
  EXPECT_FALSE(decodes("2026-02-28T23:59:59.5Z"));
  EXPECT_FALSE(decodes("2026-02-28T23:59:59+00:00"));
  EXPECT_FALSE(decodes("2026-02-28T23:59:59"));
  EXPECT_FALSE(decodes("2026-02-28"));
  EXPECT_FALSE(decodes("2026-02-28t23:59:59z"));
  EXPECT_FALSE(decodes("2025-02-29T00:00:00Z"));
  EXPECT_FALSE(decodes("2026-13-01T00:00:00Z"));
  EXPECT_FALSE(decodes("2026-01-01T24:00:00Z"));
  EXPECT_FALSE(decodes(1790000000));
}

TEST(RecordDecoding, UuidsReadInEitherCaseAndWriteUpperCase) {
  Json request = {{"planID", "0f8fad5b-d9cb-469f-a165-70867728950e"}};
  const auto decoded = decodeJson<ExecuteCleanupPlanRequest>(request.dump());
  EXPECT_EQ(Json::parse(encodeJson(decoded))["planID"], "0F8FAD5B-D9CB-469F-A165-70867728950E");
  for (const char* bad :
       {"", "0F8FAD5B-D9CB-469F-A165-70867728950", "0F8FAD5BD9CB-469F-A165-70867728950E0",
        "0F8FAD5B-D9CB-469F-A165-70867728950G", "{0F8FAD5B-D9CB-469F-A165-708677289}"}) {
    EXPECT_THROW(decodeJson<ExecuteCleanupPlanRequest>(Json{{"planID", bad}}.dump()), DecodingError)
        << bad;
  }
}

TEST(RecordDecoding, SpaceNodeTakesItsDefaults) {
  const auto node =
      decodeJson<SpaceNode>(R"({"id":"a","name":"b","path":"/c","bytes":5,"itemCount":1})");
  EXPECT_EQ(node.kind, SpaceNodeKind::directory);
  EXPECT_TRUE(node.children.empty());
  EXPECT_FALSE(node.isPartial);
  EXPECT_FALSE(node.accessDenied);
  EXPECT_EQ(node.sharedBytes, 0);
  EXPECT_THROW(decodeJson<SpaceNode>(R"({"id":"a","name":"b","path":"/c","bytes":5})"),
               DecodingError);
  // A default applies to absence, not to a wrong value.
  EXPECT_THROW(decodeJson<SpaceNode>(
                   R"({"id":"a","name":"b","path":"/c","bytes":5,"itemCount":1,"kind":"x"})"),
               DecodingError);
}

TEST(RecordDecoding, ErrorsNameTheirPlaceDeepInTheTree) {
  Json report = {{"protocolVersion", 3},
                 {"scannedAt", "2026-01-01T00:00:00Z"},
                 {"root", Json::parse(encodeJson(spaceTree()))},
                 {"largeFiles", Json::array()},
                 {"warnings", Json::array()}};
  report["root"]["children"][1]["bytes"] = -0.5;
  try {
    decodeJson<SpaceReport>(report.dump());
    ADD_FAILURE();
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.path(), "root.children[1].bytes");
  }
}

TEST(RecordDecoding, TextThatIsNotAnObjectFails) {
  for (const char* text : {"", "null", "[]", "42", "{", "{\"kind\":\"started\"} trailing",
                           "\xff\xfe", "{\"protocolVersion\":3,\"kind\":\"started\"}\n{}"}) {
    EXPECT_THROW(decodeJson<ScanEvent>(text), DecodingError) << text;
  }
}

}  // namespace
}  // namespace brisko
