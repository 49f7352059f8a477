#include "core/legacy_policy.h"

#include <gtest/gtest.h>

#include "core/convert.h"
#include "core/text.h"
#include "tests/sim/windows.h"

namespace {

/// The agreed table: component, and where its policies were.
constexpr wchar_t kTable[] =
    LR"(agent>Vantix VDX\Agent
agent\Configuration>Vantix VDX\Agent\Configuration
apptap>Vantix AppTap
authenticate>Vantix VDX\Authenticate
flare>Vantix Flare
browserredir>Vantix BrowserRedir
ca>Vantix VDX\CA
client>Vantix VDX\Client
daas agent>Vantix VDX\DaaS Agent
deployment service>Vantix Deployment Service
deviceredirectioncommon>Vantix VDX\DeviceRedirectionCommon
dump>Vantix VDX\Dump
enrollment service>Vantix VDX\Enrollment Service
fido2>Vantix FIDO2
flashmmr>Vantix FlashMMR
georedir>Vantix GEOREDIR
meridon html access printer>Vantix Meridon HTML Access Printer
html5mmr>Vantix Html5mmr
html5server>Vantix HTML5SERVER
mdmon>Vantix MdMon
input devtap>Vantix Input DevTap
instant clone agent>LensComposer
keyvaultcng>Vantix VDX\KeyVaultCNG
log>Vantix VDX\Log
logon monitor>Vantix Logon Monitor
mksvchan>Vantix MKSVchan
monitoring service agent>Meridon Monitoring Service Agent
node manager>Vantix VDX\Node Manager
performance alarms>Vantix VDX\Performance Alarms
performance stats>Vantix VDX\Performance Stats
plugins>Vantix VDX\Plugins
printredir>Vantix VDX\PrintRedir
rdelibsframework>RdeLibsFramework
rdpvcbridge>Vantix VDX\RdpVcBridge
remote experience generic service>Vantix Remote Experience Generic Service
remoteexperienceagent>Vantix VDX\RemoteExperienceAgent
rtav>Vantix VDX\RTAV
scannerredirection>Vantix VDX\ScannerRedirection
scriptevents>Vantix VDX\ScriptEvents
sdosensorredir>Vantix SdoSensorRedir
sdr>Vantix SDR
sdrtrans>Vantix SDRTrans
security>Vantix VDX\Security
serialcom>Vantix VDX\SerialCOM
setresolutionsdk>VantixSetResolutionSDK
svga devtap>Vantix SVGA DevTap
tsdr>Vantix TSDR
unity>Vantix VDX\Vantix Unity
unityshell>Vantix VDX\UnityShell
usb>Vantix USB
usbredirection>Vantix UsbRedirection
vchanci>Vantix VChanCI
vdpieutil>Vantix vdpieutil
vdpoverlayhost>Vantix VDX\VDPOverlayHost
vdpservice>Vantix VDPService
vdpunitylib>Vantix VDX\VDPUnityLib
virtualchannels>Vantix VDX\VirtualChannels
webrtcredir>Vantix WebRTCRedir
whfb>Vantix VDX\Whfb)";

TEST(LegacyPolicy, EveryRowOfTheTable) {
  const sim::Windows windows;
  const auto rows = CORE::splitText(kTable, L'\n');
  ASSERT_EQ(rows.size(), 59U);
  for (const std::wstring& row : rows) {
    const std::size_t middle = row.find(L'>');
    const std::wstring key = L"Software\\Calvera\\Meridon\\" + row.substr(0, middle);
    const std::wstring legacy = L"Software\\Policies\\Vantix, Inc.\\" + row.substr(middle + 1);
    EXPECT_EQ(CORE::legacyPolicyPath(key), legacy) << CORE::toUtf8Lossy(row);
    if (row != rows[1]) {  // two components: the first one's row gives its path
      EXPECT_EQ(CORE::legacyPolicyPath(key + L"\\Sub Key\\More"), legacy + L"\\Sub Key\\More");
    }
  }
}

TEST(LegacyPolicy, PathsAtTheEdge) {
  const sim::Windows windows;
  struct Row {
    const wchar_t* path;
    const wchar_t* legacy;
  };
  const Row rows[] = {
      {L"Software\\Calvera\\Meridon", L"Software\\Policies\\Vantix, Inc.\\Vantix VDX"},
      {L"SOFTWARE\\CALVERA\\MERIDON", L"Software\\Policies\\Vantix, Inc.\\Vantix VDX"},
      {L"software\\calvera\\meridon\\NODE MANAGER\\Sub",
       L"Software\\Policies\\Vantix, Inc.\\Vantix VDX\\Node Manager\\Sub"},
      {L"Software\\Calvera\\Meridon\\Agent\\configuration",
       L"Software\\Policies\\Vantix, Inc.\\Vantix VDX\\Agent\\configuration"},
      {L"Software\\Calvera\\Meridon\\Log\\", L"Software\\Policies\\Vantix, Inc.\\Vantix VDX\\Log"},
      {L"Software\\Calvera\\Meridon\\Unknown", L""},
      {L"Software\\Calvera\\Meridon\\", L""},
      {L"Software\\Calvera\\MeridonX\\Agent", L""},
      {L"Software\\Calvera\\MeridonXAgent",
       L"Software\\Policies\\Vantix, Inc.\\Vantix VDX\\Agent"},  // whatever the 25th character is
      {L"Software\\Calvera\\Merido", L""},
      {L"Software\\Calvera", L""},
      {L"", L""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(CORE::toUtf8Lossy(CORE::legacyPolicyPath(row.path)), CORE::toUtf8Lossy(row.legacy))
        << CORE::toUtf8Lossy(row.path);
  }
}

}  // namespace
