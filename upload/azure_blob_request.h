#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/text/corestring.h"
#include "http/win_http_request.h"

/// What a storage request takes beside the HTTP request's own settings; before it is started.
class StorageRequest {
 public:
  /// The account key in base64. Empty: the request is not signed, its URL has to carry the authorisation.
  virtual void setKey(std::string_view base64Key) = 0;
  /// Whether the account name is the first segment of the path, and not the first label of the host name (the default).
  virtual void setPathStyle(bool pathStyle) = 0;

 protected:
  ~StorageRequest() = default;
};

/// The HTTP request to blob storage: just before it is sent it adds the service's headers ("x-ms-date",
/// "x-ms-version", "Content-Length") and, when it holds an account key, signs itself with the shared-key scheme.
/// The key alone decides whether it signs. Threads and lifetime as WinHttpRequest.
class AzureBlobRequest : public WinHttpRequest, public StorageRequest {
 public:
  static std::shared_ptr<AzureBlobRequest> create();

  explicit AzureBlobRequest(CreateKey key) : WinHttpRequest(key) {}

  void setKey(std::string_view base64Key) override;
  void setPathStyle(bool pathStyle) override { pathStyle_ = pathStyle; }

  /// Runs on the thread that sends. A signature that cannot be made is logged, and the request goes out unsigned.
  void finalizeHeaders() override;

 private:
  void sign();

  CORE::mstr accountKey_;  ///< decoded, marked secret
  std::string accountName_;
  bool pathStyle_ = false;
};
