#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "platform/certificates.h"
#include "platform/handle.h"

/// What a request demands of the server's certificates, on top of WinHTTP's own checks.
struct TrustSettings {
  bool ignoreAllErrors = false;
  bool ignoreName = false;
  bool checkRevocation = false;
  std::uint32_t retrievalTimeout = 0;  ///< of each retrieval that Windows makes for it, milliseconds; 0: Windows' own
  std::vector<std::string> pins;       ///< thumbprints, as WinCertImplementation::GetThumbprint writes them
};

/// The certificate and the chain that a server showed.
struct ServerCertificates {
  platform::CertificateHandle certificate;
  platform::ChainHandle chain;
};

/// SHA-256 of a certificate's DER encoding, 32 bytes.
using BinaryThumbprint = std::vector<std::byte>;

/// The program's own checks of a server's certificates, on top of WinHTTP's. Each logs why it fails. An object is used
/// by one thread; it borrows what it is given. performManualCRLCheck stands in manual_crl_check.cpp.
class ServerVerification {
 public:
  /// Downloads a CRL from a URL into `body`; false when that failed.
  using CrlDownload = std::function<bool(const std::string& url, std::string& body)>;

  /// Takes the server's certificate from a request whose TLS connection stands.
  /// \return null when WinHTTP has none, as before the connection stands (error 12019).
  /// Source: WINHTTP_OPTION_SERVER_CERT_CONTEXT.
  static platform::CertificateHandle GetServerCert(platform::NativeHandle request);

  /// Takes the chain of that certificate as WinHTTP has built it. Where WinHTTP does not know the option, builds it
  /// from the certificate's own store, without the network: a notification must not wait for that.
  /// \return null when there is none.
  /// Source: WINHTTP_OPTION_SERVER_CERT_CHAIN_CONTEXT.
  static platform::ChainHandle GetCertChain(platform::NativeHandle request, platform::NativeHandle certificate);

  /// \param host  the name that the leaf must carry
  ServerVerification(const ServerCertificates& server, const TrustSettings& trust, const std::wstring& host)
      : server_(server), trust_(trust), host_(host) {}

  /// Returns whether the chain reaches a root and satisfies the SSL policy. An untrusted root alone does not make it
  /// fail.
  /// \param untrustedRoot  true when only a pin may accept the chain; false on failure.
  bool verifyCertChain(bool& untrustedRoot) const;

  /// Returns whether a pin equals the thumbprint of one of the chain's certificates. Upper and lower case differ.
  bool thumbprintMatch() const;

  /// Returns whether the platform finds no certificate of the chain revoked. It may wait for the network, and does not
  /// use the request's proxy.
  bool automaticCRLCheck() const;

  /// Checks the same with CRLs that `download` brings. The first usable CRL of a certificate decides; a certificate
  /// that names CRLs, none of them usable, fails; one that names none passes.
  bool performManualCRLCheck(const CrlDownload& download) const;

  /// Returns the thumbprint of every certificate in the chain, leaf first; an empty one for a certificate that cannot
  /// be hashed. Empty when the chain holds none.
  std::vector<BinaryThumbprint> thumbprints() const;

 private:
  const ServerCertificates& server_;
  const TrustSettings& trust_;
  const std::wstring& host_;
};
