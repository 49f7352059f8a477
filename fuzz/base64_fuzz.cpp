#include <openssl/evp.h>

#include "fuzz/fuzz.h"
#include "upload/digest/base64.h"

// Compares encoding and decoding with OpenSSL's. The account key comes in base64, and the signature is sent in it.

namespace {

std::string byPeer(decltype(&EVP_EncodeBlock) code, std::string_view text) {
  std::string out(text.size() * 2 + 5, '\0');
  const int size = code(reinterpret_cast<unsigned char*>(out.data()),
                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  FUZZ_CHECK(size >= 0);
  return out.substr(0, static_cast<std::size_t>(size));
}

void checkDecoding(std::string_view text) {
  CORE::mstr decoded("old");
  base64Decode(CORE::mstr::secret(text), decoded);
  FUZZ_CHECK(decoded.isSecret() && decoded.length() <= text.size());
  const std::string_view padding = text.substr(std::min(text.find_first_not_of(kBase64Alphabet), text.size()));
  if (text.size() % 4 == 0 && (padding.empty() || padding == "=" || padding == "==")) {
    const std::string whole = byPeer(EVP_DecodeBlock, text);  // has a byte for each "="
    FUZZ_CHECK(decoded.str() == whole.substr(0, whole.size() - padding.size()));
  }
}

}  // namespace

void fuzz::target(std::string_view input) {
  std::string text = "old";
  base64Encode(input, text);
  FUZZ_CHECK(text == byPeer(EVP_EncodeBlock, input));
  CORE::mstr back;
  base64Decode(CORE::mstr(text), back);
  FUZZ_CHECK(back.str() == input);
  checkDecoding(input);
  checkDecoding(text);
}
