#include "dct/capability_query.h"

#include <functional>

#include "core/text.h"
#include "tests/unit/dct/script_world.h"

namespace {

using Names = std::vector<std::wstring>;
using Levels = std::set<std::wstring>;
using Script = std::function<void(sim::Child&)>;

const Names kDefaultFeatures = CORE::splitText(
    L"AgentCore,VirtualChannel,Flare,PCoIP,VDPService,CDR,Clipboard,DnD,DPISync,FA,PerfTracker,PrintRedir,"
    L"PublishedApp,RTAV,ScannerRedirection,SerialPortRedirection,SmartCard,TSMMR,USB,Watermark",
    L',');
const Levels kDefaultLevels = {L"INFO", L"DEBUG", L"TRACE", L"VERBOSE"};

TEST(CapabilityQuery, AnswersAndWhatStandsInForThem) {
  const auto& printing = ScriptWorld::printing;
  const std::wstring failed = L"dct_common::getLogLevel(): Failed to load json ";
  const std::wstring exited = L"dct_common::runDctCommand(): DCT process failed with error Message 5..";
  const struct {
    Script script;
    Names errors;
    Names features = kDefaultFeatures;
    Levels levels = kDefaultLevels;
  } rows[] = {
      {printing(R"({"featureData":{"b\u00E4":{"supportedLogLevels":"INFO,Debug,INFO"},)"
                "\"A\xC3\xA4\":{\"supportedLogLevels\":\"TRACE,,\"}}}"),
       {},
       {L"b\\u00E4", L"A\u00E4"},
       {L"info", L"debug", L"trace"}},
      {printing(R"({"featureData":{"":{"supportedLogLevels":"x"}, "Text" : "only","Bag":{"other":"x"}}})"),
       {},
       {L"Text", L"Bag"},
       {}},
      {printing(R"({"featureData":{"":{"supportedLogLevels":"x"}}})"), {}},
      {printing(R"({"featureData": "x"})"), {}},
      {printing(R"({"a": "x"})"), {}},
      {printing("{ 5 }"), {failed + L"{ 5 }."}},
      {printing(""), {failed + L"."}},
      {printing("{\"featureData\":{\"\xFF\":{}}}"), {failed + L"{\"featureData\":{\"\u00FF\":{}}}."}},
      {[](sim::Child& child) { child.exit(5); }, {exited}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE("row " + std::to_string(&row - rows));
    ScriptWorld world;
    world.windows.processes.onStart(row.script);
    for (int i = 0; i < 2; ++i) {
      CORE::PropertyBag request;
      world.agent.getDCTFilter(request);
      EXPECT_EQ(supportedFeatures(), row.features);
      EXPECT_EQ(supportedLogLevels(), row.levels);
      EXPECT_EQ(world.messages(CORE::kError), row.errors);
      EXPECT_EQ(world.windows.processes.children().size(), 1U) << "asked again";
    }
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
