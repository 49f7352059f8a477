#include "core/settings/legacy_policy.h"

#include "core/settings/setting_names.h"
#include "core/text/text.h"

namespace CORE {
namespace {

constexpr std::wstring_view kLegacyRoot = L"Software\\Policies\\Vantix, Inc.";

struct Row {
  std::wstring_view key;     ///< first component below the product's key, lower case
  std::wstring_view subkey;  ///< below kLegacyRoot
};

/// The places where the former maker's policy templates put each component's policies.
constexpr Row kRows[] = {
    {L"agent", L"Vantix VDX\\Agent"},
    // kept: a look-up has one component only, so it never finds this row.
    {L"agent\\Configuration", L"Vantix VDX\\Agent\\Configuration"},
    {L"apptap", L"Vantix AppTap"},
    {L"authenticate", L"Vantix VDX\\Authenticate"},
    {L"flare", L"Vantix Flare"},
    {L"browserredir", L"Vantix BrowserRedir"},
    {L"ca", L"Vantix VDX\\CA"},
    {L"client", L"Vantix VDX\\Client"},
    {L"daas agent", L"Vantix VDX\\DaaS Agent"},
    {L"deployment service", L"Vantix Deployment Service"},
    {L"deviceredirectioncommon", L"Vantix VDX\\DeviceRedirectionCommon"},
    {L"dump", L"Vantix VDX\\Dump"},
    {L"enrollment service", L"Vantix VDX\\Enrollment Service"},
    {L"fido2", L"Vantix FIDO2"},
    {L"flashmmr", L"Vantix FlashMMR"},
    {L"georedir", L"Vantix GEOREDIR"},
    {L"meridon html access printer", L"Vantix Meridon HTML Access Printer"},
    {L"html5mmr", L"Vantix Html5mmr"},
    {L"html5server", L"Vantix HTML5SERVER"},
    {L"mdmon", L"Vantix MdMon"},
    {L"input devtap", L"Vantix Input DevTap"},
    {L"instant clone agent", L"LensComposer"},
    {L"keyvaultcng", L"Vantix VDX\\KeyVaultCNG"},
    {L"log", L"Vantix VDX\\Log"},
    {L"logon monitor", L"Vantix Logon Monitor"},
    {L"mksvchan", L"Vantix MKSVchan"},
    {L"monitoring service agent", L"Meridon Monitoring Service Agent"},
    {L"node manager", L"Vantix VDX\\Node Manager"},
    {L"performance alarms", L"Vantix VDX\\Performance Alarms"},
    {L"performance stats", L"Vantix VDX\\Performance Stats"},
    {L"plugins", L"Vantix VDX\\Plugins"},
    {L"printredir", L"Vantix VDX\\PrintRedir"},
    {L"rdelibsframework", L"RdeLibsFramework"},
    {L"rdpvcbridge", L"Vantix VDX\\RdpVcBridge"},
    {L"remote experience generic service", L"Vantix Remote Experience Generic Service"},
    {L"remoteexperienceagent", L"Vantix VDX\\RemoteExperienceAgent"},
    {L"rtav", L"Vantix VDX\\RTAV"},
    {L"scannerredirection", L"Vantix VDX\\ScannerRedirection"},
    {L"scriptevents", L"Vantix VDX\\ScriptEvents"},
    {L"sdosensorredir", L"Vantix SdoSensorRedir"},
    {L"sdr", L"Vantix SDR"},
    {L"sdrtrans", L"Vantix SDRTrans"},
    {L"security", L"Vantix VDX\\Security"},
    {L"serialcom", L"Vantix VDX\\SerialCOM"},
    {L"setresolutionsdk", L"VantixSetResolutionSDK"},
    {L"svga devtap", L"Vantix SVGA DevTap"},
    {L"tsdr", L"Vantix TSDR"},
    {L"unity", L"Vantix VDX\\Vantix Unity"},
    {L"unityshell", L"Vantix VDX\\UnityShell"},
    {L"usb", L"Vantix USB"},
    {L"usbredirection", L"Vantix UsbRedirection"},
    {L"vchanci", L"Vantix VChanCI"},
    {L"vdpieutil", L"Vantix vdpieutil"},
    {L"vdpoverlayhost", L"Vantix VDX\\VDPOverlayHost"},
    {L"vdpservice", L"Vantix VDPService"},
    {L"vdpunitylib", L"Vantix VDX\\VDPUnityLib"},
    {L"virtualchannels", L"Vantix VDX\\VirtualChannels"},
    {L"webrtcredir", L"Vantix WebRTCRedir"},
    {L"whfb", L"Vantix VDX\\Whfb"},
};

const Row* findRow(std::wstring_view key) {
  for (const Row& row : kRows) {
    if (equalText(key, row.key, false)) {
      return &row;
    }
  }
  return nullptr;
}

}  // namespace

std::wstring legacyPolicyPath(std::wstring_view keyPath) {
  if (!equalText(keyPath.substr(0, kProductPath.size()), kProductPath, true)) {
    return {};
  }
  std::wstring out(kLegacyRoot);
  if (keyPath.size() == kProductPath.size()) {
    return out += L"\\Vantix VDX";
  }
  // kept: one character is skipped, whatever it is, so "...\MeridonX\Agent" leaves an empty first component.
  const std::wstring_view below = keyPath.substr(kProductPath.size() + 1);
  const std::size_t end = below.find(L'\\');
  const Row* row = findRow(lowered(below.substr(0, end)));
  if (row == nullptr) {
    return {};
  }
  out.append(L"\\").append(row->subkey);
  if (end != std::wstring_view::npos && end + 1 < below.size()) {
    out.append(L"\\").append(below.substr(end + 1));
  }
  return out;
}

}  // namespace CORE
