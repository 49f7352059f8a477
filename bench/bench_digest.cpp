#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/harness.h"
#include "bench/real_windows.h"
#include "upload/digest/base64.h"
#include "upload/digest/hash_generator.h"

namespace bench {
namespace {

constexpr int kRounds = 9;
const std::string kKey(32, 'k');

/// Returns data that holds every byte value.
std::string dataOf(std::size_t size) {
  std::string data(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    data[i] = static_cast<char>(i * 131 >> 3);
  }
  return data;
}

const unsigned char* bytesOf(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

/// Ends the program when the two sides gave different results.
void require(bool same) {
  if (!same) {
    std::fputs("the two sides differ\n", stderr);
    std::exit(1);
  }
}

/// Runs both sides on `size` bytes until each has handled some 32 MiB, and prints the row.
template <class Ours, class Theirs>
void printPair(const std::string& what, std::size_t size, double wanted, const Ours& ours, const Theirs& theirs) {
  const std::size_t calls = size < 4096 ? 100'000 : (std::size_t{32} << 20) / size;
  const auto repeat = [calls](const auto& body) {
    return secondsOf([&] {
      for (std::size_t i = 0; i < calls; ++i) {
        body();
      }
    });
  };
  const Pair pair = inRounds(
      kRounds, [&] { return repeat(ours); }, [&] { return repeat(theirs); });
  char text[32];
  std::snprintf(text, sizeof(text), "at least %.1f", wanted);
  const std::string length = size < 4096 ? std::to_string(size) + " bytes" : std::to_string(size >> 20) + " MiB";
  printRow(what + " of " + length, "OpenSSL", pair, Unit::kRate, static_cast<double>(calls * size) / 1e6, "MB", text,
           rateRatio(pair) >= wanted);
}

void benchDigest(std::size_t size) {
  const std::string data = dataOf(size);
  std::vector<std::byte> digest;
  unsigned char peer[EVP_MAX_MD_SIZE];
  HashGenerator plain;
  plain.SetAlgorithm(HashAlgorithm::kSha256, false);
  printPair(
      "SHA-256", size, 0.9, [&] { sink = sink + plain.GenerateHash(data, {}, digest); },
      [&] { EVP_Digest(data.data(), data.size(), peer, nullptr, sha256(), nullptr); });
  require(std::memcmp(digest.data(), peer, digest.size()) == 0);
  HashGenerator keyed;
  keyed.SetAlgorithm(HashAlgorithm::kSha256, true);
  printPair(
      "HMAC-SHA-256", size, 0.9, [&] { sink = sink + keyed.GenerateHash(data, kKey, digest); },
      [&] {
        EVP_MAC_CTX* const context = newMacContext();
        EVP_MAC_init(context, bytesOf(kKey), kKey.size(), nullptr);
        EVP_MAC_update(context, bytesOf(data), size);
        EVP_MAC_final(context, peer, nullptr, sizeof(peer));
        EVP_MAC_CTX_free(context);
      });
  require(std::memcmp(digest.data(), peer, digest.size()) == 0);
}

/// Measures encoding and decoding.
/// \param size  a multiple of 3, because the peer's decoder does not tell padding from data.
void benchBase64(std::size_t size) {
  const std::string data = dataOf(size);
  std::string text;
  std::vector<unsigned char> peer(size / 3 * 4 + 1);
  printPair(
      "base64 encoding", size, 1, [&] { base64Encode(data, text); },
      [&] { EVP_EncodeBlock(peer.data(), bytesOf(data), static_cast<int>(size)); });
  require(text == reinterpret_cast<const char*>(peer.data()));
  const CORE::mstr encoded{std::string_view(text)};
  CORE::mstr decoded;
  std::string peerDecoded;
  printPair(
      "base64 decoding", size, 1, [&] { base64Decode(encoded, decoded); },
      [&] {
        std::string result(size, '\0');
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(result.data()), bytesOf(text), static_cast<int>(text.size()));
        peerDecoded = std::move(result);
      });
  require(std::string_view(decoded) == data && peerDecoded == data);
}

}  // namespace

void benchDigests(const std::filesystem::path& folder) {
  const RealWindows windows(folder);
  benchDigest(300);
  benchDigest(std::size_t{1} << 20);
  benchBase64(48);
  benchBase64(std::size_t{3} << 20);
}

}  // namespace bench
