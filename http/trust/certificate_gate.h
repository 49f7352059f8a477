#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/base/mutex.h"
#include "http/trust/server_verification.h"

/// How a gate gets what its own request cannot give it. Each call sends another request, synchronously.
struct CertificateSources {
  /// Returns the certificates that the server shows to a probe; null when the probe captured none.
  std::function<std::shared_ptr<const ServerCertificates>()> probe;
  /// Downloads a CRL.
  ServerVerification::CrlDownload downloadCrl;
};

/// The gate between a request and its server: no data leaves before the server's certificates have passed.
///
/// It checks in two places. The preflight, before the session is opened, checks the chain that a probe brought and
/// remembers the thumbprints in it. The live check, in the sending-request notification, compares the live chain with
/// these thumbprints, or makes the whole check when the preflight has none. The gate of a probe captures the
/// certificates and lets nothing through.
///
/// The settings and the preflight belong to the thread that starts the request. The live check runs on WinHTTP's
/// threads, one at a time; it reads what the preflight wrote before the send. captured() may be called on any thread.
class CertificateGate {
 public:
  /// What the owner demands; written before the request is started.
  TrustSettings& settings() { return settings_; }
  const TrustSettings& settings() const { return settings_; }

  /// Makes the gate that of a probe.
  void actAsProbe() { isProbe_ = true; }
  bool isProbe() const { return isProbe_; }

  // The settings that the request makes in WinHTTP for the gate. viaProxy: the request goes through a named proxy.

  /// Whether the request has to watch the sending-request notification.
  bool watchesSending(bool viaProxy) const;
  /// The flags of WINHTTP_OPTION_SECURITY_FLAGS; 0 for none.
  std::uint32_t securityFlags() const;
  /// Whether WinHTTP's own revocation check is to be switched on.
  bool usesPlatformRevocation(bool viaProxy) const;
  /// Whether no other server may answer in place of the one that is checked.
  bool bindsToServer() const;

  /// Checks the server before the session is opened.
  /// \param host  the name that the leaf must carry.
  /// \return false when the request must not be made; the reason is logged. True, too, when the probe captured
  ///         nothing: the live check then does all of it.
  bool preflight(const std::wstring& host, bool viaProxy, const CertificateSources& sources);

  /// Whether the live chain has passed already. WinHTTP may send the notification several times.
  bool hasPassed() const { return passed_; }

  /// Whether the live check is due and has not passed. Once the headers have left, this means that the sending-request
  /// notification never came.
  bool lacksLiveCheck(bool viaProxy) const;

  /// Takes the server's certificate and chain from a request whose TLS connection stands, and keeps them for
  /// captured().
  /// \return null, with an ERROR line, when one of them is missing.
  std::shared_ptr<const ServerCertificates> capture(platform::NativeHandle request) EXCLUDES(mutex_);

  /// Checks the live chain. False ends the exchange; a probe's gate always gives false.
  bool checkLive(const ServerCertificates& server, const std::wstring& host);

  /// Returns what capture() took last; null when it took nothing.
  std::shared_ptr<const ServerCertificates> captured() const EXCLUDES(mutex_);

 private:
  bool verifyPreflight(const ServerVerification& verification, bool viaProxy, const CertificateSources& sources);
  static bool checkPreflightRevocation(const ServerVerification& verification, bool automatic,
                                       const CertificateSources& sources);
  bool matchesPreflight(const ServerVerification& verification) const;
  bool verifyLive(const ServerVerification& verification) const;

  TrustSettings settings_;
  bool isProbe_ = false;
  std::vector<BinaryThumbprint> preflightThumbprints_;  ///< of the chain that the probe brought
  std::atomic<bool> passed_{false};

  mutable CORE::Mutex mutex_;
  std::shared_ptr<const ServerCertificates> captured_ GUARDED_BY(mutex_);
};
