#include "core/configuration.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "core/convert.h"
#include "tests/sim/windows.h"

namespace {

const std::wstring kLog = L"Software\\Calvera\\Meridon\\Log";
const std::wstring kLogPolicy = L"Software\\Policies\\Calvera\\Meridon\\Log";
const std::wstring kLogLegacy = L"Software\\Policies\\Vantix, Inc.\\Vantix VDX\\Log";
const std::wstring kSwitch = L"HKLM\\Software\\Calvera\\Meridon\\FallbackToLegacyGPO";
const std::wstring kSwitchPolicy = L"HKLM\\Software\\Policies\\Calvera\\Meridon\\FallbackToLegacyGPO";

std::vector<std::byte> bytes(std::initializer_list<int> values) {
  std::vector<std::byte> out;
  for (const int value : values) {
    out.push_back(static_cast<std::byte>(value));
  }
  return out;
}

class ConfigurationTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(windows_.openHandlesText(), ""); }

  std::uint32_t read(const std::wstring& path, std::uint32_t type = CORE::kAnyType) {
    foundAt_.clear();
    return CORE::readConfig(path, type, false, text_, &foundAt_);
  }

  sim::Windows windows_;
  std::wstring text_;
  std::wstring foundAt_;
};

TEST_F(ConfigurationTest, ValuesAsText) {
  windows_.text.setVariable(L"SystemRoot", L"C:\\Windows");
  const auto expand = sim::utf16Bytes(L"%SystemRoot%\\Temp", true);
  struct Row {
    const char* name;
    std::uint32_t type;
    std::vector<std::byte> data;
    std::wstring text;
  };
  const Row rows[] = {
      {"number", platform::kRegDword, bytes({200, 0, 0, 0}), L"200"},
      {"largest number", platform::kRegDword, bytes({255, 255, 255, 255}), L"4294967295"},
      {"number of two bytes", platform::kRegDword, bytes({1, 2}), L"513"},
      {"number of no bytes", platform::kRegDword, {}, L"0"},
      {"number of six bytes", platform::kRegDword, bytes({1, 0, 0, 0, 9, 9}), L"1"},
      {"long number", platform::kRegQword, bytes({255, 255, 255, 255, 255, 255, 255, 255}), L"18446744073709551615"},
      {"long number cut", platform::kRegQword, bytes({7}), L"7"},
      {"text", platform::kRegSz, sim::utf16Bytes(L"\u00E4b", true), L"\u00E4b"},
      {"text without its end", platform::kRegSz, sim::utf16Bytes(L"ab", false), L"ab"},
      {"empty text", platform::kRegSz, {}, L""},
      {"terminator alone", platform::kRegSz, bytes({0, 0}), L""},
      {"odd length", platform::kRegSz, bytes({'a', 0, 'b'}), L"a"},
      {"NUL inside", platform::kRegSz, bytes({'a', 0, 0, 0, 'b', 0, 0, 0}), std::wstring(L"a\0b", 3)},
      {"expanded", platform::kRegExpandSz, expand, L"C:\\Windows\\Temp"},
      {"not set", platform::kRegExpandSz, sim::utf16Bytes(L"%Gone%\\x", true), L"%Gone%\\x"},
      {"empty expansion", platform::kRegExpandSz, bytes({0, 0}), L""},
      {"binary", platform::kRegBinary, bytes({'a', 0, 0, 0}), std::wstring(L"a\0", 2)},
      {"list", platform::kRegMultiSz, sim::utf16Bytes(std::wstring(L"a\0b\0", 4), true), std::wstring(L"a\0b\0\0", 5)},
      {"type nobody knows", 99, sim::utf16Bytes(L"x", false), L"x"},
  };
  for (const Row& row : rows) {
    windows_.registry.setRaw(L"HKLM\\Key\\Value", row.type, row.data);
    std::wstring text = L"before";
    EXPECT_EQ(CORE::readPath(L"HKLM\\Key\\Value", CORE::kAnyType, false, text), row.type) << row.name;
    EXPECT_EQ(text, row.text) << row.name;
    EXPECT_EQ(CORE::readPath(L"hklm\\Key\\Value", row.type, false, text), row.type) << row.name;
    text = L"before";
    EXPECT_EQ(CORE::readPath(L"HKLM\\Key\\Value", row.type + 1, false, text), CORE::kNotFound) << row.name;
    EXPECT_EQ(text, L"before") << row.name;
  }
}

TEST_F(ConfigurationTest, NamesThatLeadNowhere) {
  windows_.registry.set(L"HKLM\\Key\\Value", L"x");
  for (const wchar_t* path : {L"", L"HKLM", L"Key\\Value", L"HKLM\\Value", L"HKLM\\Key\\Other", L"HKLM\\Other\\Value",
                              L"HKEY_LOCAL_MACHINE\\Key\\Value", L"\\Key\\Value", L"HKCU\\Other\\Value"}) {
    EXPECT_EQ(CORE::readPath(path, CORE::kAnyType, false, text_), CORE::kNotFound) << CORE::toUtf8Lossy(path);
    EXPECT_EQ(read(path), CORE::kNotFound) << CORE::toUtf8Lossy(path);
    EXPECT_EQ(CORE::readPathDefault(path, L"default", false), L"default");
  }
  EXPECT_EQ(CORE::readPathDefault(L"HKLM\\Key\\Value", L"default", false), L"x");
}

TEST_F(ConfigurationTest, FailingCallsCountAsNotFound) {
  windows_.registry.setExpandSz(L"HKLM\\Key\\Value", L"%SystemRoot%");
  windows_.text.setVariable(L"SystemRoot", L"C:\\Windows");
  const auto readNow = [&] { return CORE::readPath(L"HKLM\\Key\\Value", CORE::kAnyType, false, text_); };
  windows_.faults.failNth("RegOpenKeyExW", 1, platform::kErrorAccessDenied);
  EXPECT_EQ(readNow(), CORE::kNotFound);
  for (const std::size_t n : {1U, 2U}) {
    windows_.faults.failNth("RegQueryValueExW", n, platform::kErrorAccessDenied);
    EXPECT_EQ(readNow(), CORE::kNotFound) << n;
  }
  for (const std::size_t n : {1U, 2U}) {  // what cannot be expanded stays as it is
    windows_.faults.failNth("ExpandEnvironmentStringsW", n, platform::kErrorNotEnoughMemory);
    EXPECT_EQ(readNow(), platform::kRegExpandSz) << n;
    EXPECT_EQ(text_, L"%SystemRoot%") << n;
  }
  windows_.faults.failNth("RegQueryValueExW", 2, platform::kErrorMoreData);  // it grew in between: asked again
  EXPECT_EQ(readNow(), platform::kRegExpandSz);
  EXPECT_EQ(text_, L"C:\\Windows");
  windows_.faults.failAll("RegQueryValueExW", platform::kErrorMoreData);
  EXPECT_EQ(readNow(), CORE::kNotFound);
}

TEST_F(ConfigurationTest, ThirtyTwoBitProgramsMayAskForTheOtherView) {
  windows_.registry.set(L"HKLM\\Key\\Value", L"x");
  CORE::readPath(L"HKLM\\Key\\Value", CORE::kAnyType, false, text_);
  CORE::readPath(L"HKLM\\Key\\Value", CORE::kAnyType, true, text_);
  const auto openings = windows_.registry.openings();
  ASSERT_EQ(openings.size(), 2U);
  EXPECT_EQ(openings[0].access, 0x001U);
  EXPECT_EQ(openings[1].access, 0x101U);
}

/// Each place of a look-up holds its own name; the first is found, then taken away.
TEST_F(ConfigurationTest, PlacesInTheirOrder) {
  struct Row {
    const wchar_t* root;
    std::vector<std::wstring> places;
  };
  const Row rows[] = {
      {L"HKLM\\", {L"HKLM\\" + kLogPolicy, L"HKLM\\" + kLogLegacy, L"HKLM\\" + kLog}},
      {L"HKCU\\",
       {L"HKCU\\" + kLogPolicy, L"HKCU\\" + kLogLegacy, L"HKLM\\" + kLogPolicy, L"HKLM\\" + kLogLegacy,
        L"HKCU\\" + kLog, L"HKLM\\" + kLog}},
  };
  for (const bool legacy : {true, false}) {
    for (const Row& row : rows) {
      windows_.registry.clear();
      windows_.registry.set(kSwitch, legacy ? L"true" : L"false");
      for (const std::wstring& place : row.places) {
        windows_.registry.set(place + L"\\Value", place);
      }
      for (const std::wstring& place : row.places) {
        if (legacy || place.find(L"Vantix") == std::wstring::npos) {
          EXPECT_EQ(read(row.root + kLog + L"\\Value"), platform::kRegSz);
          EXPECT_EQ(CORE::toUtf8Lossy(text_), CORE::toUtf8Lossy(place));
          EXPECT_EQ(CORE::toUtf8Lossy(foundAt_), CORE::toUtf8Lossy(place + L"\\Value"));
        }
        windows_.registry.eraseValue(place + L"\\Value");
      }
      EXPECT_EQ(read(row.root + kLog + L"\\Value"), CORE::kNotFound);
      EXPECT_EQ(text_ + foundAt_, L"");
    }
  }
}

TEST_F(ConfigurationTest, FallbackSwitch) {
  struct Row {
    const wchar_t* policy;  ///< null: none
    const wchar_t* plain;
    bool legacy;
  };
  const Row rows[] = {
      {nullptr, nullptr, true},   {L"false", nullptr, false}, {L"true", L"false", true}, {L"", L"false", false},
      {nullptr, L"FALSE", false}, {nullptr, L"Yes", true},    {nullptr, L"", false},     {L"0", L"true", false},
  };
  windows_.registry.set(L"HKLM\\" + kLogLegacy + L"\\Value", L"legacy");
  for (const Row& row : rows) {
    windows_.registry.eraseValue(kSwitchPolicy);
    windows_.registry.eraseValue(kSwitch);
    if (row.policy != nullptr) {
      windows_.registry.set(kSwitchPolicy, row.policy);
    }
    if (row.plain != nullptr) {
      windows_.registry.set(kSwitch, row.plain);
    }
    EXPECT_EQ(read(L"HKLM\\" + kLog + L"\\Value") == platform::kRegSz, row.legacy) << &row - rows;
  }
}

TEST_F(ConfigurationTest, WrongTypeSendsTheLookupOn) {
  windows_.registry.set(L"HKLM\\" + kLogPolicy + L"\\Value", L"policy");
  windows_.registry.set(L"HKLM\\" + kLog + L"\\Value", 7U);
  EXPECT_EQ(read(L"HKLM\\" + kLog + L"\\Value", platform::kRegDword), platform::kRegDword);
  EXPECT_EQ(text_, L"7");
}

TEST_F(ConfigurationTest, PathsOutsideTheProductHavePoliciesButNoLegacy) {
  windows_.registry.set(L"HKLM\\Other\\Policies\\Key\\Value", L"policy");
  EXPECT_EQ(read(L"HKLM\\Other\\Key\\Value"), platform::kRegSz);
  EXPECT_EQ(text_, L"policy");
  windows_.registry.set(L"HKLM\\Other\\Policies\\Value", L"above");
  EXPECT_EQ(read(L"HKLM\\Other\\Value"), platform::kRegSz);
  EXPECT_EQ(foundAt_, L"HKLM\\Other\\Policies\\Value");
}

TEST_F(ConfigurationTest, UsersHiveIsThatOfTheThread) {
  windows_.registry.set(L"HKCU\\" + kLog + L"\\Value", L"user");
  windows_.registry.set(L"HKLM\\" + kLog + L"\\Value", L"machine");
  EXPECT_EQ(read(L"HKCU\\" + kLog + L"\\Value"), platform::kRegSz);
  EXPECT_EQ(text_, L"user");
  windows_.faults.failAll("RegOpenCurrentUser", platform::kErrorAccessDenied);
  EXPECT_EQ(read(L"HKCU\\" + kLog + L"\\Value"), platform::kRegSz);
  EXPECT_EQ(text_, L"machine");
}

TEST_F(ConfigurationTest, SettingsOfTheProgram) {
  const std::wstring path = L"HKLM\\" + kLog + L"\\Value";
  EXPECT_EQ(CORE::readSetting(path, L"default"), L"default");
  EXPECT_TRUE(CORE::readSettingBool(path, true));
  EXPECT_FALSE(CORE::readSettingBool(path, false));
  windows_.registry.setRaw(path, platform::kRegSz, sim::utf16Bytes(std::wstring(L"true\0\0", 6), true));
  EXPECT_EQ(CORE::readSetting(path, L"default"), L"true");
  EXPECT_TRUE(CORE::readSettingBool(path, false));
  windows_.registry.set(path, 0U);
  EXPECT_FALSE(CORE::readSettingBool(path, true));
  windows_.registry.set(path, L"");
  EXPECT_EQ(CORE::readSetting(path, L"default"), L"");
  EXPECT_FALSE(CORE::readSettingBool(path, true));
}

}  // namespace
