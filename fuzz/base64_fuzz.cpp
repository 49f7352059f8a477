#include <openssl/evp.h>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "upload/digest/base64.h"

// Beside OpenSSL, both ways. The account key comes as base64 from outside, the signature goes out so.

namespace {

std::string encodedByPeer(std::string_view bytes) {
  std::string out(bytes.size() / 3 * 4 + 5, '\0');
  const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
  const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()), data, static_cast<int>(bytes.size()));
  out.resize(static_cast<std::size_t>(size));
  return out;
}

std::string decodedByPeer(std::string_view text, std::size_t padding) {
  std::string out(text.size(), '\0');
  const auto* const data = reinterpret_cast<const unsigned char*>(text.data());
  const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()), data, static_cast<int>(text.size()));
  FUZZ_CHECK(size >= 0);
  out.resize(static_cast<std::size_t>(size) - padding);  // it gives a zero byte for each "="
  return out;
}

void checkDecoding(std::string_view text) {
  CORE::mstr decoded("old");
  base64Decode(CORE::mstr::secret(text), decoded);
  FUZZ_CHECK(decoded.isSecret());
  FUZZ_CHECK(decoded.length() <= text.size());
  std::size_t end = text.find_first_not_of(kBase64Alphabet);
  end = end == text.npos ? text.size() : end;
  const std::string_view padding = text.substr(end);
  if (text.size() % 4 == 0 && (padding.empty() || padding == "=" || padding == "==")) {
    FUZZ_CHECK(decoded.str() == decodedByPeer(text, padding.size()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::bytes(data, size);
  std::string text = "old";
  base64Encode(input, text);
  FUZZ_CHECK(text == encodedByPeer(input));
  CORE::mstr back;
  base64Decode(CORE::mstr(text), back);
  FUZZ_CHECK(back.str() == input);

  checkDecoding(input);
  checkDecoding(text);
  return 0;
}
