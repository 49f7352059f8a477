#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "platform/handle.h"

class HttpRequest;

/// Called once when an asynchronous request has ended, but not when it was cancelled. It is given the request, which
/// stays alive until the function has returned, and a copy of the response body. Runs on one of WinHTTP's threads, or
/// inside the starting call.
using HttpCompletion = std::function<void(HttpRequest*, std::string)>;

/// Names and values, ordered byte-wise by name.
using HttpMap = std::map<std::string, std::string>;

/// Request methods of the perform operations; any other value leaves the verb empty.
enum class HttpMethod : std::uint32_t { kGet = 0, kPost = 1, kPut = 2, kDelete = 3 };

/// Content types; each but kNone sets the header "Content-Type".
enum class ContentType : std::uint32_t {
  kNone = 0,
  kCss = 1,
  kCsv = 2,
  kHtml = 3,
  kJson = 4,
  kPlainText = 5,
  kXml = 6,
  kOctetStream = 7,
  kZip = 8,
};

/// One HTTP exchange: configured, performed once, read. Every HTTP call of the program goes through this interface.
///
/// Synchronous operations return true when the exchange succeeded with a status from 200 to 299, and get() only when
/// the whole body has come. They hand out the response body in either case, at most 100 MiB of it. Asynchronous
/// operations return true when the request was started; then, and only then, the completion comes. URLs and narrow
/// texts are UTF-8. One thread uses an object until it is started.
///
/// The operations stand in the order of their slots. There is no virtual destructor: owners delete the concrete class.
class HttpRequest {
 public:
  virtual bool get(const std::string& url, std::string& response) = 0;
  virtual bool post(ContentType type, const std::string& url, const std::string& body, std::string& response) = 0;
  virtual bool put(ContentType type, const std::string& url, const std::string& body, std::string& response) = 0;
  virtual bool putFile(ContentType type, const std::string& url, const std::string& path, std::string& response) = 0;
  virtual bool deleteRequest(const std::string& url, std::string& response) = 0;

  virtual bool getAsync(const std::string& url, HttpCompletion completion) = 0;
  virtual bool postAsync(ContentType type, const std::string& url, const std::string& body,
                         HttpCompletion completion) = 0;
  /// Sends the first `length` bytes of the buffer.
  virtual bool putAsync(ContentType type, const std::string& url, std::span<const std::byte> buffer, std::size_t length,
                        HttpCompletion completion) = 0;
  virtual bool putStringAsync(ContentType type, const std::string& url, const std::string& body,
                              HttpCompletion completion) = 0;
  virtual bool putFileAsync(ContentType type, const std::string& url, const std::string& path,
                            HttpCompletion completion) = 0;

  virtual void ignoreCertErrors() = 0;
  virtual void ignoreCertNameMismatch() = 0;
  /// Stores a value with the request. kept: nobody reads it.
  virtual void setUserValue(std::uint64_t value) = 0;
  virtual void enableRevocationCheck() = 0;
  virtual void setHeaders(const HttpMap& headers) = 0;
  virtual void setQueryParameters(const HttpMap& parameters) = 0;
  /// Pins are SHA-256 digests of a certificate's DER encoding in upper-case hexadecimal pairs joined by colons.
  virtual void addThumbprint(const std::string& thumbprint) = 0;
  virtual void setThumbprints(const std::vector<std::string>& thumbprints) = 0;
  /// Replaces the pins by those of the certificates, whose contexts stay the caller's.
  virtual void setThumbprintsFromCerts(const std::vector<platform::NativeHandle>& certificates) = 0;
  /// Limits the whole exchange, in seconds; the four limits of WinHTTP are shares of it. Values above 4294967 count as
  /// 4294967.
  virtual void setTimeout(std::uint32_t seconds) = 0;
  /// Sets each limit, in seconds. Values above 4294967 count as 4294967.
  /// \throws CORE::coreException when the sum in milliseconds does not fit in 32 bits.
  virtual void setTimeouts(std::uint32_t resolve, std::uint32_t connect, std::uint32_t send, std::uint32_t receive) = 0;
  virtual void setProxy(const std::wstring& proxy) = 0;
  virtual void setProxy(const std::string& proxy) = 0;
  virtual void setProxyBypass(const std::wstring& bypass) = 0;
  virtual void setProxyBypass(const std::string& bypass) = 0;
  virtual void setProxyCredentials(const std::wstring& user, const std::wstring& password) = 0;
  virtual void setProxyCredentials(const std::string& user, const std::wstring& password) = 0;
  virtual void setPacUrl(const std::wstring& url) = 0;
  virtual void setPacUrl(const std::string& url) = 0;

  /// Ends the exchange; its completion is not called. May be called from another thread, and from a completion.
  /// \return true when nothing was in flight, or when the end was seen within ten seconds.
  virtual bool cancelRequest() = 0;
  /// Returns the status; 0 until headers have arrived.
  virtual std::uint32_t getResponseCode() = 0;
  /// Hands out the raw headers, lines ended by CRLF.
  virtual void getResponseHeaders(std::string& headers) = 0;
  virtual std::wstring getUrl() = 0;
  /// Called once per send, when body length and all of the caller's headers are known, before the header block is
  /// built.
  virtual void finalizeHeaders() = 0;
  virtual bool isSuccess() = 0;

 protected:
  ~HttpRequest() = default;
};
