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

TEST(RecordDecoding, RequiredOptionalAndUnknownKeys) {
  // Each row changes one key of a whole finding; `failsAt` is the path that
  // the error names, empty when the record must still decode.
  const struct {
    const char* key;
    Json value;  // null erases the key when `erase` is set
    bool erase;
    const char* failsAt;
  } rows[] = {
      {"id", nullptr, true, "id"},
      {"kind", nullptr, true, "kind"},
      {"title", nullptr, true, "title"},
      {"subtitle", nullptr, true, "subtitle"},
      {"path", nullptr, true, "path"},
      {"bytes", nullptr, true, "bytes"},
      {"itemCount", nullptr, true, "itemCount"},
      {"risk", nullptr, true, "risk"},
      {"explanation", nullptr, true, "explanation"},
      {"isPartial", nullptr, true, "isPartial"},
      {"action", nullptr, true, "action"},
      {"title", nullptr, false, "title"},    // a required key that is null
      {"kind", "Developer", false, "kind"},  // enumerations are case-sensitive
      {"items", nullptr, false, ""},
      {"guidance", nullptr, true, ""},
      {"futureField", {{"nested", true}}, false, ""},
  };
  for (const auto& row : rows) {
    Json json = Json::parse(encodeJson(fullFinding()));
    if (row.erase) {
      json.erase(row.key);
    } else {
      json[row.key] = row.value;
    }
    try {
      const ScanFinding finding = decodeJson<ScanFinding>(json.dump());
      EXPECT_STREQ(row.failsAt, "") << row.key << " decoded";
      if (std::string(row.key) == "futureField") {
        EXPECT_EQ(finding, fullFinding());
      }
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.path(), row.failsAt) << row.key;
    }
  }
  Json event = {
      {"protocolVersion", 3}, {"kind", "warning"}, {"warning", nullptr}, {"report", nullptr}};
  EXPECT_EQ(decodeJson<ScanEvent>(event.dump()).kind, ScanEventKind::warning);
  Json report = Json::parse(encodeJson(fullReport()));
  report["findings"][0]["kind"] = "systemCache";
  try {
    decodeJson<ScanReport>(report.dump());
    ADD_FAILURE() << "decoded an unknown kind";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.path(), "findings[0].kind");
  }
}

TEST(RecordDecoding, NumbersAndDatesMustFitTheirField) {
  const Json identity = Json::parse(encodeJson(fullPlan().items[0].identity));
  const struct {
    const char* key;
    Json value;
    bool decodes;
  } rows[] = {
      {"fileType", 4294967295u, true},  // uint32
      {"fileType", 4294967296u, false},
      {"fileType", -1, false},
      {"deviceID", UINT64_MAX, true},  // uint64
      {"deviceID", -1, false},
      {"logicalBytes", INT64_MIN, true},  // int64
      {"logicalBytes", INT64_MAX, true},
      {"logicalBytes", static_cast<std::uint64_t>(INT64_MAX) + 1, false},
      {"logicalBytes", 1.5, false},
      {"logicalBytes", 2.0, true},
      {"logicalBytes", 9.3e18, false},
      {"logicalBytes", "12", false},
      {"logicalBytes", true, false},
  };
  for (const auto& row : rows) {
    Json copy = identity;
    copy[row.key] = row.value;
    bool decoded = true;
    try {
      decodeJson<FileIdentitySnapshot>(copy.dump());
    } catch (const DecodingError&) {
      decoded = false;
    }
    EXPECT_EQ(decoded, row.decodes) << row.key << " = " << row.value;
  }
  // Text with an integer beyond 64 bits is read by the parser as a float.
  const std::string huge =
      R"({"volumeName":"/","totalBytes":99999999999999999999,"availableBytes":0})";
  EXPECT_THROW(decodeJson<DiskSnapshot>(huge), DecodingError);
  // Dates go through the one ISO 8601 reader (its forms are tested with it),
  // from the first year to the last.
  Json plan = Json::parse(encodeJson(fullPlan()));
  plan["createdAt"] = "0001-01-01T00:00:00Z";
  plan["expiresAt"] = "9999-12-31T23:59:59Z";
  const CleanupPlan far = decodeJson<CleanupPlan>(plan.dump());
  EXPECT_EQ(far.createdAt, kEarliestDate);
  EXPECT_EQ(far.expiresAt, kLatestDate);
  EXPECT_EQ(roundTrip(far), far);
  for (const Json& bad : {Json("2026-02-28T23:59:59.5Z"), Json(1790000000)}) {
    plan["createdAt"] = bad;
    EXPECT_THROW(decodeJson<CleanupPlan>(plan.dump()), DecodingError) << bad;
  }
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
  const std::string event = R"({"protocolVersion":3,"kind":"started"})";
  for (const std::string& text :
       {std::string(), std::string("null"), std::string("[]"), std::string("42"), std::string("{"),
        event + " trailing", std::string("\xff\xfe"), event + "\n{}",
        event + std::string(1, '\0') + "{}", std::string(1, '\0') + event}) {
    EXPECT_THROW(decodeJson<ScanEvent>(text), DecodingError) << text;
  }
  EXPECT_EQ(decodeJson<ScanEvent>(event + " \n\t\r").kind, ScanEventKind::started);
}

}  // namespace
}  // namespace brisko
