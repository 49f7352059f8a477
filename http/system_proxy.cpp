#include "http/system_proxy.h"

void SystemProxy::ChooseProxyServer(ChosenProxy& chosen, const std::wstring& /*targetUrl*/,
                                    const std::wstring& /*manualPacUrl*/, const std::wstring& manualServers,
                                    const std::wstring& manualBypass) {
  chosen.servers = manualServers;
  chosen.bypass = manualBypass;
}
