#include "tests/unit/dct/script_world.h"

namespace {

constexpr const char* kAnswer =
    R"({"featureData":{"AgentCore":{"supportedLogLevels":"INFO"},"Clipboard":{"supportedLogLevels":"DEBUG"}}})";

TEST(RequestFilter, Arguments) {
  const struct {
    const wchar_t* version;
    const wchar_t* filterType;
    const wchar_t* dumps;
    const wchar_t* features;
    std::wstring want;
    std::vector<std::wstring> unsupported;
  } rows[] = {
      {nullptr, nullptr, nullptr, nullptr, L"-s", {}},
      {nullptr,
       L"prod+sys",
       nullptr,
       L"AgentCore,clipboard,Foo",
       L"-s -c AgentCore,clipboard -dumps prod,sys",
       {L"Foo"}},
      {L"1", L"sys prod", L"none", nullptr, L"-s -dumps prod,sys", {}},
      {L"2", L"prod", nullptr, nullptr, L"-s", {}},
      {L"2", L"none", L"SYS", nullptr, L"-s -dumps sys", {}},
      {nullptr, L"nonprod", nullptr, nullptr, L"-s -dumps prod", {}},
      {nullptr, L"none,prod,sys", nullptr, nullptr, L"-s -dumps none", {}},
      {nullptr, L"PROD", nullptr, nullptr, L"-s -dumps prod", {}},
      {nullptr, L"other", nullptr, nullptr, L"-s", {}},
      {nullptr, nullptr, nullptr, L"", L"-s", {}},
      {nullptr, nullptr, nullptr, L",AgentCore,,agentcore,", L"-s -c AgentCore,agentcore", {}},
      {nullptr, nullptr, nullptr, L"Agent, AgentCore,AgentCoreX", L"-s", {L"Agent", L" AgentCore", L"AgentCoreX"}},
  };
  ScriptWorld world;
  world.windows.processes.onStart(ScriptWorld::printing(kAnswer));
  for (const auto& row : rows) {
    CORE::PropertyBag request;
    const auto put = [&request](const wchar_t* name, const wchar_t* value) {
      if (value != nullptr) {
        request.set(name, value);
      }
    };
    put(L"Version", row.version);
    put(L"DCTFilterType", row.filterType);
    put(L"Dumps", row.dumps);
    put(L"Features", row.features);
    world.log.clear();
    EXPECT_EQ(world.agent.getDCTFilter(request), row.want);
    std::vector<std::wstring> warnings;
    for (const std::wstring& name : row.unsupported) {
      warnings.push_back(L"dct_common::getDCTFilter(): Unsupported feature '" + name + L"' found in request.");
    }
    EXPECT_EQ(world.messages(CORE::kWarn), warnings);
  }
  EXPECT_EQ(world.windows.processes.children().size(), 1U) << "the query runs once per process";
}

TEST(RequestFilter, BagsInPlaceOfTextsCountAsMissing) {
  ScriptWorld world;
  world.windows.processes.onStart(ScriptWorld::printing(kAnswer));
  CORE::PropertyBag request;
  for (const wchar_t* name : {L"Version", L"DCTFilterType", L"Features"}) {
    request.addBag(name, CORE::PropertyBag(), true);
  }
  EXPECT_EQ(world.agent.getDCTFilter(request), L"-s");
}

}  // namespace
