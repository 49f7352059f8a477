#include "fuzz/fuzz.h"
#include "upload/azure_blob_uploader.h"

// The storage service's error document, which may be any text. The code that is found must stand between the right tags
// in it.

void fuzz::target(std::string_view text) {
  const std::string input(text);
  const std::string code = storageErrorCode(input);
  FUZZ_CHECK(code.find("</Code>") == code.npos);
  const auto error = input.find("<Error>");
  FUZZ_CHECK(code.empty() || (error != input.npos && input.find("<Code>" + code + "</Code>", error) != input.npos));

  // A well-formed document with the input as its code and around it.
  if (input.find('<') == input.npos) {
    FUZZ_CHECK(storageErrorCode(input + "<Error>" + input + "<Code>" + input + "</Code>" + input) == input);
    FUZZ_CHECK(storageErrorCode("<Code>" + input + "</Code><Error>" + input).empty());
  }
}
