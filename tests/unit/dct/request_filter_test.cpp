#include "tests/unit/dct/script_world.h"

namespace {

TEST(RequestFilter, Arguments) {
  using Names = std::vector<std::wstring>;
  const struct {
    std::vector<std::pair<const wchar_t*, const wchar_t*>> request;
    std::wstring want;
    Names unsupported;
  } rows[] = {
      {{}, L"-s", {}},
      {{{L"DCTFilterType", L"prod+sys"}, {L"Features", L"AgentCore,clipboard,Foo"}},
       L"-s -c AgentCore,clipboard -dumps prod,sys",
       {L"Foo"}},
      {{{L"Version", L"1"}, {L"DCTFilterType", L"sys prod"}, {L"Dumps", L"none"}}, L"-s -dumps prod,sys", {}},
      {{{L"Version", L"2"}, {L"DCTFilterType", L"prod"}}, L"-s", {}},
      {{{L"Version", L"2"}, {L"DCTFilterType", L"none"}, {L"Dumps", L"SYS"}}, L"-s -dumps sys", {}},
      {{{L"DCTFilterType", L"nonprod"}}, L"-s -dumps prod", {}},
      {{{L"DCTFilterType", L"none,prod,sys"}}, L"-s -dumps none", {}},
      {{{L"DCTFilterType", L"PROD"}}, L"-s -dumps prod", {}},
      {{{L"DCTFilterType", L"other"}}, L"-s", {}},
      {{{L"Features", L""}}, L"-s", {}},
      {{{L"Features", L",AgentCore,,agentcore,"}}, L"-s -c AgentCore,agentcore", {}},
      {{{L"Features", L"Agent, AgentCore,AgentCoreX"}}, L"-s", {L"Agent", L" AgentCore", L"AgentCoreX"}},
      // A bag in place of a text counts as missing.
      {{{L"Version", nullptr}, {L"DCTFilterType", nullptr}, {L"Features", nullptr}}, L"-s", {}},
  };
  ScriptWorld world;
  world.windows.processes.onStart(ScriptWorld::printing(R"({"featureData":{"AgentCore":{},"Clipboard":{}}})"));
  for (const auto& row : rows) {
    CORE::PropertyBag request;
    for (const auto& [name, value] : row.request) {
      if (value == nullptr) {
        request.addBag(name, CORE::PropertyBag(), true);
      } else {
        request.set(name, value);
      }
    }
    world.log.clear();
    EXPECT_EQ(world.agent.getDCTFilter(request), row.want);
    Names warnings;
    for (const std::wstring& name : row.unsupported) {
      warnings.push_back(L"dct_common::getDCTFilter(): Unsupported feature '" + name + L"' found in request.");
    }
    EXPECT_EQ(world.messages(CORE::kWarn), warnings);
  }
  EXPECT_EQ(world.windows.processes.children().size(), 1U) << "the query runs once per process";
}

}  // namespace
