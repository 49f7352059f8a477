#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "core/base/memory_guard.h"

namespace CORE {

/// Overwrites memory with zeros. The optimiser cannot leave this out.
void wipe(void* memory, std::size_t bytes) noexcept;

/// The framework string, wide (wstr) or narrow (mstr). It holds a text with its length, and two marks:
///
/// - The binary mark says that the content is raw bytes, not text. Bags and log texts show it as "<BINARY>".
/// - The secret mark says that the content must not be shown. Log texts show a mask instead, and the string overwrites
///   its memory before it frees it.
///
/// Copies and moves keep the marks. One thread at a time uses a string.
/// \throws coreException "OutOfMem" from every operation that allocates.
template <class C>
class corestring {
 public:
  using Text = std::basic_string<C>;
  using View = std::basic_string_view<C>;

  corestring() = default;
  corestring(View text) : text_(guardMemory([&] { return Text(text); })) {}
  corestring(const Text& text) : corestring(View(text)) {}
  corestring(Text&& text) noexcept : text_(std::move(text)) {}
  corestring(const C* text) : corestring(text == nullptr ? View() : View(text)) {}

  corestring(const corestring& other)
      : text_(guardMemory([&] { return Text(other.text_); })),
        binaryBytes_(other.binaryBytes_),
        secret_(other.secret_) {}
  corestring(corestring&& other) noexcept { take(other); }
  corestring& operator=(const corestring& other) {
    corestring copy(other);
    swap(copy);
    return *this;
  }
  corestring& operator=(corestring&& other) noexcept {
    if (this != &other) {
      release();
      take(other);
    }
    return *this;
  }
  ~corestring() { release(); }

  /// Makes a string with the binary mark that holds a copy of the bytes (fewer than 2^31).
  /// kept: nothing in the program makes one, but bags and log texts have to handle it.
  static corestring fromBytes(const void* bytes, std::size_t count) {
    corestring out;
    out.text_ = guardMemory([&] { return Text((count + sizeof(C) - 1) / sizeof(C), C{}); });
    if (count != 0) {
      std::memcpy(out.text_.data(), bytes, count);
    }
    out.binaryBytes_ = static_cast<std::uint32_t>(count) | kBinaryMark;
    return out;
  }

  /// Makes a string with the secret mark. The string is marked before it is moved, so that the move wipes what it
  /// leaves.
  static corestring secret(View text) {
    corestring out(text);
    out.markSecret();
    return out;
  }

  /// Returns the characters; those of a binary string are its raw bytes.
  const Text& str() const noexcept { return text_; }
  operator View() const noexcept { return text_; }
  bool empty() const noexcept { return text_.empty(); }
  /// Returns the number of characters; of a binary string, the number of those that its bytes fill.
  std::size_t length() const noexcept { return text_.size(); }

  bool isBinary() const noexcept { return (binaryBytes_ & kBinaryMark) != 0; }
  /// Returns the number of bytes of the content.
  std::size_t byteLength() const noexcept {
    return isBinary() ? (binaryBytes_ & ~kBinaryMark) : text_.size() * sizeof(C);
  }

  void markSecret() noexcept { secret_ = true; }
  bool isSecret() const noexcept { return secret_; }

  void swap(corestring& other) noexcept {
    corestring kept;
    kept.take(other);
    other.take(*this);
    take(kept);
  }

 private:
  /// The top bit of `binaryBytes_`.
  static constexpr std::uint32_t kBinaryMark = 0x80000000U;

  /// Takes over the text and the marks. The other string is left empty and, when it was secret, wiped: the move of a
  /// short text, which lives inside the object, is a copy.
  void take(corestring& other) noexcept {
    text_ = std::move(other.text_);
    binaryBytes_ = std::exchange(other.binaryBytes_, 0);
    secret_ = other.secret_;
    other.release();
    other.secret_ = false;
  }

  void release() noexcept {
    if (secret_) {
      // All of the memory: an earlier, longer content may have left characters behind the end of this one.
      text_.resize(text_.capacity());
      wipe(text_.data(), text_.size() * sizeof(C));
    }
    text_.clear();
    binaryBytes_ = 0;
  }

  Text text_;
  std::uint32_t binaryBytes_ = 0;  ///< the byte length and kBinaryMark; 0 for a text
  bool secret_ = false;
};

using wstr = corestring<wchar_t>;
using mstr = corestring<char>;

}  // namespace CORE
