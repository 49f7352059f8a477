#include "dct/capability_query.h"

#include <functional>

#include "tests/unit/dct/script_world.h"

namespace {

using Names = std::vector<std::wstring>;
using Levels = std::set<std::wstring>;
using Script = std::function<void(sim::Child&)>;

const Names kDefaultFeatures = {L"AgentCore",
                                L"VirtualChannel",
                                L"Flare",
                                L"PCoIP",
                                L"VDPService",
                                L"CDR",
                                L"Clipboard",
                                L"DnD",
                                L"DPISync",
                                L"FA",
                                L"PerfTracker",
                                L"PrintRedir",
                                L"PublishedApp",
                                L"RTAV",
                                L"ScannerRedirection",
                                L"SerialPortRedirection",
                                L"SmartCard",
                                L"TSMMR",
                                L"USB",
                                L"Watermark"};
const Levels kDefaultLevels = {L"INFO", L"DEBUG", L"TRACE", L"VERBOSE"};

void load(dct_Agent& agent) {
  CORE::PropertyBag request;
  agent.getDCTFilter(request);
}

TEST(CapabilityQuery, AnswersAndWhatStandsInForThem) {
  const struct {
    const char* name;
    Script script;
    Names features;
    Levels levels;
    std::vector<std::wstring> errors;
  } rows[] = {
      {"a good answer",
       ScriptWorld::printing(R"({"featureData":{"b\u00E4":{"supportedLogLevels":"INFO,Debug,INFO"},)"
                             "\"A\xC3\xA4\":{\"supportedLogLevels\":\"TRACE,,\"}}}"),
       {L"b\\u00E4", L"A\u00E4"},
       {L"info", L"debug", L"trace"},
       {}},
      {"entries without a name or levels",
       ScriptWorld::printing(R"({"featureData":{"":{"supportedLogLevels":"x"}, "Text" : "only","Bag":{"other":"x"}}})"),
       {L"Text", L"Bag"},
       {},
       {}},
      {"no entry has a name",
       ScriptWorld::printing(R"({"featureData":{"":{"supportedLogLevels":"x"}}})"),
       kDefaultFeatures,
       kDefaultLevels,
       {}},
      {"featureData is a text", ScriptWorld::printing(R"({"featureData": "x"})"), kDefaultFeatures, kDefaultLevels, {}},
      {"another document", ScriptWorld::printing(R"({"a": "x"})"), kDefaultFeatures, kDefaultLevels, {}},
      {"no quotes",
       ScriptWorld::printing("{ 5 }"),
       kDefaultFeatures,
       kDefaultLevels,
       {L"dct_common::getLogLevel(): Failed to load json { 5 }."}},
      {"nothing",
       ScriptWorld::printing(""),
       kDefaultFeatures,
       kDefaultLevels,
       {L"dct_common::getLogLevel(): Failed to load json ."}},
      {"not UTF-8",
       ScriptWorld::printing("{\"featureData\":{\"\xFF\":{}}}"),
       kDefaultFeatures,
       kDefaultLevels,
       {L"dct_common::getLogLevel(): Failed to load json {\"featureData\":{\"\u00FF\":{}}}."}},
      {"exit code 5",
       [](sim::Child& child) { child.exit(5); },
       kDefaultFeatures,
       kDefaultLevels,
       {L"dct_common::runDctCommand(): DCT process failed with error Message 5.."}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptWorld world;
    world.windows.processes.onStart(row.script);
    load(world.agent);
    EXPECT_EQ(supportedFeatures(), row.features);
    EXPECT_EQ(supportedLogLevels(), row.levels);
    EXPECT_EQ(world.messages(CORE::kError), row.errors);
    load(world.agent);
    EXPECT_EQ(world.windows.processes.children().size(), 1U) << "asked again";
  }
}

TEST(CapabilityQuery, GetLogLevelAndItsErrors) {
  ScriptWorld world;
  world.windows.processes.onStart(ScriptWorld::printing(R"({"Version":"9","x":"y"})"));
  CORE::PropertyBag bag;
  EXPECT_TRUE(world.agent.getLogLevel(bag));
  EXPECT_EQ(bag.getInt(L"Version", 0), 2);
  EXPECT_EQ(bag.count(), 2U);

  world.windows.processes.onStart(ScriptWorld::printing("garbage " + std::string(100'000, 'x')));
  EXPECT_FALSE(world.agent.getLogLevel(bag));
  EXPECT_EQ(bag.getErrorCode(), 13U);
  EXPECT_TRUE(bag.getErrorText().str().starts_with(L"Failed to load json garbage x"));
  EXPECT_LE(bag.getErrorText().length(), 8192U);
}

}  // namespace
