#include "core/settings/configuration.h"

#include <gtest/gtest.h>

#include "core/base/unicode.h"
#include "core/settings/legacy_policy.h"
#include "core/settings/policy_lookup.h"
#include "core/settings/registry_value.h"
#include "core/text/text.h"
#include "tests/sim/windows.h"

namespace {

const std::wstring kProduct = L"Software\\Calvera\\Meridon";
const std::wstring kLegacy = L"Software\\Policies\\Vantix, Inc.\\";
const std::wstring kLog = kProduct + L"\\Log";
const std::wstring kLogPolicy = L"Software\\Policies\\Calvera\\Meridon\\Log";
const std::wstring kLogLegacy = kLegacy + L"Vantix VDX\\Log";
const std::wstring kValue = L"HKLM\\Key\\Value";

struct ConfigurationTest : testing::Test {
  void TearDown() override { EXPECT_EQ(windows_.openHandlesText(), ""); }

  std::uint32_t read(const std::wstring& path, std::uint32_t type = CORE::kAnyType) {
    return CORE::readConfig(path, type, false, text_, &foundAt_);
  }
  sim::Windows windows_;
  std::wstring text_, foundAt_;
};

TEST_F(ConfigurationTest, ValuesAsText) {
  using namespace std::literals;
  const std::tuple<const char*, std::uint32_t, std::string, std::wstring> rows[] = {
      {"largest number", platform::kRegDword, "\xFF\xFF\xFF\xFF", L"4294967295"},
      {"short number", platform::kRegDword, "\1\2", L"513"},
      {"long number", platform::kRegDword, "\1\0\0\0\x9\x9"s, L"1"},
      {"largest long one", platform::kRegQword, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", L"18446744073709551615"},
      {"text", platform::kRegSz, "\xE4\0b\0\0\0"s, L"\u00E4b"},
      {"no terminator", platform::kRegSz, "a\0b\0"s, L"ab"},
      {"expanded", platform::kRegExpandSz, "%\0S\0y\0s\0t\0e\0m\0R\0o\0o\0t\0%\0\\\0T\0\0\0"s, L"C:\\Windows\\T"},
      {"several texts", platform::kRegMultiSz, "a\0\0\0b\0\0\0\0\0"s, L"a\0b\0\0"s},
      {"unknown type", 99, "x\0"s, L"x"},
  };
  for (const auto& [name, type, data, text] : rows) {
    SCOPED_TRACE(name);
    const auto bytes = std::as_bytes(std::span(data));
    windows_.registry.setRaw(kValue, type, {bytes.begin(), bytes.end()});
    EXPECT_EQ(CORE::readPath(kValue, type, false, text_), type);
    EXPECT_EQ(CORE::readPath(kValue, type + 1, false, text_), CORE::kNotFound);
    EXPECT_EQ(text_, text);
  }
}

TEST_F(ConfigurationTest, NamesThatLeadNowhereAndFailures) {
  windows_.registry.set(kValue, L"x");
  for (const wchar_t* path : {L"", L"HKLM", L"Key\\Value", L"HKLM\\x", L"HKLM\\Key\\Other", L"HKLM\\Other\\Value",
                              L"HKEY_LOCAL_MACHINE\\Key\\Value", L"\\Key\\Value", L"HKCU\\Other\\Value"}) {
    EXPECT_EQ(read(path), CORE::kNotFound) << CORE::toUtf8Lossy(path);
  }
  EXPECT_EQ(CORE::readPathDefault(L"hklm\\Key\\Value", L"default", true), L"x");
  EXPECT_EQ(windows_.registry.latestAccess(), 0x101U);  // the 64-bit view

  windows_.registry.setRaw(kValue, platform::kRegExpandSz, sim::utf16Bytes(L"%SystemRoot%", true));
  windows_.faults.failNth("ExpandEnvironmentStringsW", 2, platform::kErrorNotEnoughMemory);
  EXPECT_EQ(CORE::readPathDefault(kValue, L"default", false), L"%SystemRoot%");
  windows_.faults.failNth("RegQueryValueExW", 2, platform::kErrorMoreData);  // grew: asked again
  EXPECT_EQ(CORE::readPathDefault(kValue, L"default", false), L"C:\\Windows");
  windows_.faults.failAll("RegQueryValueExW", platform::kErrorMoreData);
  EXPECT_EQ(CORE::readPathDefault(kValue, L"default", false), L"default");
}

/// Each place of a look-up holds its own name. The first one is found, then removed.
TEST_F(ConfigurationTest, PlacesInTheirOrder) {
  const std::wstring places[] = {L"HKCU\\" + kLogPolicy, L"HKCU\\" + kLogLegacy, L"HKLM\\" + kLogPolicy,
                                 L"HKLM\\" + kLogLegacy, L"HKCU\\" + kLog,       L"HKLM\\" + kLog};
  for (const std::wstring root : {L"HKLM\\", L"HKCU\\"}) {
    for (const std::wstring& place : places) {
      windows_.registry.set(place + L"\\Value", place);
    }
    for (const std::wstring& place : places) {
      SCOPED_TRACE(CORE::toUtf8Lossy(root + L" asked for, found in " + place));
      if (root == L"HKCU\\" || place.starts_with(root)) {
        EXPECT_EQ(read(root + kLog + L"\\Value"), platform::kRegSz);
        EXPECT_EQ(text_ + foundAt_, place + place + L"\\Value");
      }
      windows_.registry.eraseValue(place + L"\\Value");
    }
    EXPECT_EQ(read(root + kLog + L"\\Value"), CORE::kNotFound);
    EXPECT_EQ(text_, L"");
  }
}

TEST_F(ConfigurationTest, FallbackSwitchAndBooleans) {
  windows_.registry.set(L"HKLM\\" + kLogLegacy + L"\\Value", L"legacy");
  using namespace std::literals;
  const std::tuple<std::wstring, std::wstring, bool> rows[] = {
      {L"true\0"s, L"false", true}, {L"", L"FALSE", false},   {L"\0"s, L"on\0off"s, true}, {L"", L"", false},
      {L"0", L"true", false},       {L" Yes\r\n", L"", true}, {L"-1", L"", true},          {L"08", L"", false},
      {L"0x10 apples", L"", true},  {L"truely", L"", false}};
  for (const auto& [policy, plain, legacy] : rows) {
    SCOPED_TRACE(CORE::toUtf8Lossy(L"policy '" + policy + L"', plain '" + plain + L"'"));
    windows_.registry.set(L"HKLM\\Software\\Policies\\Calvera\\Meridon\\FallbackToLegacyGPO", policy);
    windows_.registry.set(L"HKLM\\" + kProduct + L"\\FallbackToLegacyGPO", plain);
    EXPECT_EQ(read(L"HKLM\\" + kLog + L"\\Value") == platform::kRegSz, legacy);
  }
}

TEST_F(ConfigurationTest, OddLookups) {
  constexpr CORE::Setting kSetting{L"Log\\Value", L"true"};
  EXPECT_TRUE(CORE::readSettingBool(kSetting));
  windows_.registry.set(kSetting.path(), std::wstring(L"text\0\0", 6));
  EXPECT_EQ(CORE::readSetting(kSetting), L"text");
  windows_.registry.set(L"HKLM\\" + kLogPolicy + L"\\Value", 7U);
  EXPECT_EQ(read(kSetting.path(), platform::kRegSz), platform::kRegSz);  // a value of another type does not count
  windows_.registry.set(L"HKLM\\Other\\Policies\\Key\\Value", L"policy");
  EXPECT_EQ(read(L"HKLM\\Other\\Key\\Value"), platform::kRegSz);  // outside the product: a policy, no legacy
  windows_.registry.set(L"HKLM\\Value", L"of the root key itself");
  EXPECT_EQ(read(L"HKLM\\Value"), platform::kRegSz);
  EXPECT_EQ(text_ + foundAt_, L"of the root key itselfHKLM\\\\Value");
  windows_.registry.set(L"HKCU\\" + kLogPolicy + L"\\Value", L"user");
  windows_.faults.failAll("RegOpenCurrentUser", platform::kErrorAccessDenied);
  EXPECT_EQ(read(L"HKCU\\" + kLog + L"\\Value"), platform::kRegDword);  // the hive is that of the thread's user
}

/// The agreed components. Their policies were below kLegacy, under a prefix and their own name.
const std::pair<std::wstring, std::wstring> kComponents[] = {
    {L"Vantix VDX\\",
     L"Agent,Authenticate,CA,Client,DaaS Agent,DeviceRedirectionCommon,Dump,Enrollment Service,KeyVaultCNG,Log,"
     L"Node Manager,Performance Alarms,Performance Stats,Plugins,PrintRedir,RdpVcBridge,RemoteExperienceAgent,RTAV,"
     L"ScannerRedirection,ScriptEvents,Security,SerialCOM,UnityShell,VDPOverlayHost,VDPUnityLib,VirtualChannels,Whfb"},
    {L"Vantix ",
     L"AppTap,Flare,BrowserRedir,Deployment Service,FIDO2,FlashMMR,GEOREDIR,Meridon HTML Access Printer,Html5mmr,"
     L"HTML5SERVER,MdMon,Input DevTap,Logon Monitor,MKSVchan,Remote Experience Generic Service,SdoSensorRedir,SDR,"
     L"SDRTrans,SVGA DevTap,TSDR,USB,UsbRedirection,VChanCI,vdpieutil,VDPService,WebRTCRedir"},
    {L"Vantix VDX\\Vantix ", L"Unity"},
    {L"Vantix", L"SetResolutionSDK"},
    {L"Meridon ", L"Monitoring Service Agent"},
    {L"", L"RdeLibsFramework"},
};

// The fuzz target has paths of every other shape.
TEST(LegacyPolicy, EveryComponent) {
  const sim::Windows windows;
  for (const auto& [prefix, names] : kComponents) {
    for (const std::wstring& name : CORE::splitText(names, L',')) {
      EXPECT_EQ(CORE::legacyPolicyPath(kProduct + L"\\" + name + L"\\Sub Key\\More"),
                kLegacy + prefix + name + L"\\Sub Key\\More");
    }
  }
  EXPECT_EQ(CORE::legacyPolicyPath(L"SOFTWARE\\calvera\\MERIDON"), kLegacy + L"Vantix VDX");
  EXPECT_EQ(CORE::legacyPolicyPath(kProduct + L"\\instant clone agent"), kLegacy + L"LensComposer");
  EXPECT_EQ(CORE::legacyPolicyPath(kProduct + L"\\AGENT\\configuration"),
            kLegacy + L"Vantix VDX\\Agent\\configuration");
  EXPECT_EQ(CORE::legacyPolicyPath(kProduct + L"XLog\\"), kLegacy + L"Vantix VDX\\Log") << "whatever the X is";
  EXPECT_EQ(CORE::legacyPolicyPath(kProduct + L"\\Unknown"), L"");
}

}  // namespace
