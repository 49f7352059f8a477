#include <algorithm>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "upload/azure_blob_uploader.h"

// The storage service's error body: whatever a server sends. What is found is a piece of it, between the right tags.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(fuzz::bytes(data, size));
  const std::string code = storageErrorCode(input);
  FUZZ_CHECK(code.find("</Code>") == code.npos);
  const auto error = input.find("<Error>");
  const auto whole = error == input.npos ? error : input.find("<Code>" + code + "</Code>", error);
  FUZZ_CHECK(code.empty() || whole != input.npos);

  // A well-formed document, with the input for its code and for what stands round it.
  if (input.find('<') == input.npos) {
    FUZZ_CHECK(storageErrorCode(input + "<Error>" + input + "<Code>" + input + "</Code>" + input) == input);
    FUZZ_CHECK(storageErrorCode("<Code>" + input + "</Code><Error>" + input).empty());
  }
  return 0;
}
