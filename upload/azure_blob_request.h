#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/text/corestring.h"
#include "http/win_http_request.h"

/// The settings of a storage request beside those of every HTTP request. Set them before the request is started.
class StorageRequest {
 public:
  /// Takes the account key in base64. With an empty key the request is not signed, and its URL has to carry the
  /// authorisation.
  virtual void setKey(std::string_view base64Key) = 0;
  /// Says where the account name stands in the URL: in the first segment of the path (true), or in the first label of
  /// the host name (false, the default).
  virtual void setPathStyle(bool pathStyle) = 0;

 protected:
  ~StorageRequest() = default;
};

/// An HTTP request to blob storage. Just before it is sent it adds the service's headers ("x-ms-date", "x-ms-version",
/// "Content-Length") and, when it has an account key, signs itself with the shared-key scheme (storage_signing.h). The
/// key alone decides whether it signs. Threads and lifetime as WinHttpRequest.
class AzureBlobRequest : public WinHttpRequest, public StorageRequest {
 public:
  static std::shared_ptr<AzureBlobRequest> create();

  explicit AzureBlobRequest(CreateKey key) : WinHttpRequest(key) {}

  void setKey(std::string_view base64Key) override;
  void setPathStyle(bool pathStyle) override { pathStyle_ = pathStyle; }

  /// Adds the service's headers and the signature. Runs on the thread that sends. A signature that cannot be made is
  /// logged, and the request goes out unsigned.
  void finalizeHeaders() override;

 private:
  /// Signs the request: sets the header "Authorization".
  void sign();

  CORE::mstr accountKey_;    ///< decoded, marked secret
  std::string accountName_;  ///< found when the request is signed
  bool pathStyle_ = false;
};
