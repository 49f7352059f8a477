#include "upload/pending_request.h"

#include <utility>

#include "upload/azure_blob_uploader.h"

PendingRequest::~PendingRequest() { takeReference(); }

void PendingRequest::holdReference(AzureBlobUploader& uploader) {
  uploader_.store(CORE::addReference(uploader).release());
}

CORE::Reference<AzureBlobUploader> PendingRequest::takeReference() {
  return CORE::Reference<AzureBlobUploader>(uploader_.exchange(nullptr));
}

void PendingRequest::setEarlyResponse(std::string response) {
  if (!earlyResponse_) {
    earlyResponse_ = std::move(response);
  }
}
