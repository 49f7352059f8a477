#include "dct/query/capability_query.h"

#include "core/text/text.h"
#include "tests/unit/dct/script_world.h"

namespace {

using Levels = std::set<std::wstring>;

const Texts kDefaultFeatures = CORE::splitText(
    L"AgentCore,VirtualChannel,Flare,PCoIP,VDPService,CDR,Clipboard,DnD,DPISync,FA,PerfTracker,PrintRedir,"
    L"PublishedApp,RTAV,ScannerRedirection,SerialPortRedirection,SmartCard,TSMMR,USB,Watermark",
    L',');
const Levels kDefaultLevels = {L"INFO", L"DEBUG", L"TRACE", L"VERBOSE"};

struct AnswerRow {
  const char* name;
  std::string answer;
  std::uint32_t exitCode;
  Texts errors, warnings;
  Texts features = kDefaultFeatures;
  Levels levels = kDefaultLevels;
  bool hangs = false;
};

// How an answer is read: see the fuzz target, too.
TEST(CapabilityQuery, AnswersAndWhatStandsInForThem) {
  const std::wstring failed = L"dct_common::getLogLevel(): Failed to load json ";
  const std::wstring complained =
      L"dct_common::getDCTFilter(): Standard error of the query: " + std::wstring(4096, L'e');
  const std::wstring timedOut =
      L"dct_common::runDctCommand(): Timed out reading script output from the pipe when using command " +
      std::wstring(kQueryCommand) + L".";
  const std::wstring noFeature =
      L"loadSupportedLists(): The answer of the query has no featureData with a feature in it.";
  const std::string usable = R"({"featureData":{"A":""}})";
  const AnswerRow rows[] = {
      {"names and levels",
       R"({"featureData":{"":{"supportedLogLevels":"x"},"b\u00E4":{"supportedLogLevels":"INFO,Debug,INFO"},)"
       "\"\x84\xC3\xA4\":{\"supportedLogLevels\":\"TRACE,,\"}, \"Text\" : \"only\"}}",
       0,
       {},
       {},
       {L"", L"b\\u00E4", L"\uFFFD\u00E4", L"Text"},
       {L"", L"x", L"info", L"debug", L"trace"}},
      {"no name", R"({"featureData":{"":{"supportedLogLevels":""}}})", 0, {}, {}, {L""}, {}},
      {"featureData as text", R"({"featureData":"A"})", 0, {}, {noFeature, complained}},
      {"no featureData", R"({"Version":"2"})", 0, {}, {noFeature, complained}},
      {"no JSON", "\xFF", 0, {failed + L"\u00FF."}, {complained}},
      {"an exit code",
       usable,
       7,
       {L"dct_common::runDctCommand(): DCT process failed with error Message 7.."},
       {complained}},
      {"a hang", usable, 0, {timedOut}, {complained}, kDefaultFeatures, kDefaultLevels, true},
  };
  for (const AnswerRow& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptWorld world;
    world.windows.processes.onStart([&row](sim::Child& child) {
      child.complain(std::string(10'000, 'e'));
      child.write(row.answer);
      child.exit(row.exitCode);
      if (row.hangs) {
        child.hang();
      }
    });
    for (int i = 0; i < 2; ++i) {
      CORE::PropertyBag request;
      world.agent.getDCTFilter(request);
      EXPECT_EQ(supportedFeatures(), row.features);
      EXPECT_EQ(supportedLogLevels(), row.levels);
      EXPECT_EQ(world.log.messages(CORE::kError), row.errors);
      EXPECT_EQ(world.log.messages(CORE::kWarn), row.warnings);
      EXPECT_EQ(world.windows.processes.children().size(), 1U) << "asked again";
    }
  }
}

TEST(CapabilityQuery, LogLevelsAndTheArgumentsOfARequest) {
  using Request = std::vector<std::pair<const wchar_t*, const wchar_t*>>;
  const std::tuple<const char*, Request, std::wstring> rows[] = {
      {"features and dumps",
       {{L"DCTFilterType", L"prod+sys"}, {L"Features", L",clipboard,,AgentCore,Foo"}},
       L"-s -c clipboard,AgentCore -dumps prod,sys"},
      {"version 1", {{L"Version", L"1"}, {L"DCTFilterType", L"sys PROD"}, {L"Dumps", L"none"}}, L"-s -dumps prod,sys"},
      {"version 2", {{L"Version", L"2"}, {L"DCTFilterType", L"none"}, {L"Dumps", L"SYS"}}, L"-s -dumps sys"},
      {"none wins", {{L"DCTFilterType", L"none,prod,sys"}}, L"-s -dumps none"},
      {"inside of words", {{L"DCTFilterType", L"nonprod"}, {L"Features", L"Agent, AgentCore"}}, L"-s -dumps prod"},
  };
  ScriptWorld world;
  CORE::PropertyBag answer;
  world.print("garbage " + std::string(100'000, 'x'));
  EXPECT_FALSE(world.agent.getLogLevel(answer));
  EXPECT_TRUE(answer.getErrorCode() == 13 && answer.getErrorText().length() == 8192);
  world.windows.processes.onStart([](sim::Child& child) {
    child.write("because");
    child.exit(7);
  });
  EXPECT_FALSE(world.agent.getLogLevel(answer));
  EXPECT_TRUE(world.log.has(CORE::kDebug, L"runDctCommand(): The failed command wrote: because"));
  EXPECT_EQ(answer.getErrorText().str(), L"DCT process failed with error Message 7..");
  world.print(R"({"Version":"9","featureData":{"AgentCore":"","Clipboard":""}})");
  EXPECT_TRUE(world.agent.getLogLevel(answer) && answer.getInt(L"Version", 0) == 2);
  for (const auto& [name, request, wanted] : rows) {
    CORE::PropertyBag bag;
    for (const auto& [key, value] : request) {
      bag.set(key, value);
    }
    EXPECT_EQ(world.agent.getDCTFilter(bag), wanted) << name;
  }
  const std::wstring unsupported = L"dct_common::getDCTFilter(): Unsupported feature '", found = L"' found in request.";
  EXPECT_EQ(world.log.messages(CORE::kWarn),
            (Texts{unsupported + found, unsupported + found, unsupported + L"Foo" + found,
                   unsupported + L"Agent" + found, unsupported + L" AgentCore" + found}));
}

}  // namespace
