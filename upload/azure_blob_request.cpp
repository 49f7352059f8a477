#include "upload/azure_blob_request.h"

#include "core/format/format.h"
#include "core/log/log.h"
#include "platform/clock.h"
#include "platform/platform.h"
#include "upload/digest/base64.h"
#include "upload/digest/hash_generator.h"
#include "upload/storage_signing.h"

std::shared_ptr<AzureBlobRequest> AzureBlobRequest::create() { return std::make_shared<AzureBlobRequest>(CreateKey()); }

void AzureBlobRequest::setKey(std::string_view base64Key) {
  base64Decode(CORE::mstr::secret(base64Key), accountKey_);
  accountKey_.markSecret();
}

void AzureBlobRequest::finalizeHeaders() {
  HttpMap& list = headers();
  list["x-ms-date"] = StorageSigning::dateText(platform::current().clock.GetSystemTime());
  list["x-ms-version"] = StorageSigning::kServiceVersion;
  if (bodyLength() != 0) {  // an empty body gets no such header: the scheme signs an empty text for it
    std::string& length = list["Content-Length"];
    if (length.empty()) {
      length = std::to_string(bodyLength());
    }
  }
  if (!accountKey_.empty()) {
    sign();
  }
}

// The text names finalizeHeaders, of which this is the last step.
void AzureBlobRequest::sign() {
  const std::string headerLines = StorageSigning::canonicalizedHeaders(headers());
  accountName_ = StorageSigning::accountName(hostName(), urlPath(), pathStyle_);
  const std::string resource = StorageSigning::canonicalizedResource(accountName_, urlPath(), canonicalQuery());
  const std::string text = StorageSigning::stringToSign(verb(), headers(), headerLines, resource);

  HashGenerator generator;
  generator.SetAlgorithm(HashAlgorithm::kSha256, !accountKey_.empty());
  std::string signature;
  if (!generator.HashAndFormat(text, accountKey_, HashOutputFormat::Base64, signature)) {
    CORE::log(CORE::kWarn, L"AzureBlobRequest::finalizeHeaders(): Unable to generate hash");
    return;
  }
  headers()["Authorization"] = CORE::formatNarrow("SharedKey %s:%s", accountName_, signature);
}
