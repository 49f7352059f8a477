#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "core/base/exception.h"

namespace CORE {

/// Overwrites memory with zeros in a way that the optimiser keeps.
void wipe(void* memory, std::size_t bytes) noexcept;

/// The framework string, wide (wstr) or narrow (mstr): text with its length, and two marks.
///
/// - The binary mark says that it holds raw bytes, not text; storedLength() then has its top bit set. Bags and log
/// texts
///   show such a value as "<BINARY>".
/// - The secret mark says that the content must not be shown: log texts print a mask instead, and the memory is
///   overwritten when the string lets go of it.
///
/// Copies and moves carry the marks. Allocation failure throws coreException("OutOfMem"). One thread at a time.
template <class C>
class corestring {
 public:
  using Text = std::basic_string<C>;
  using View = std::basic_string_view<C>;

  /// Top bit of storedLength() of a binary string.
  static constexpr std::uint32_t kBinaryMark = 0x80000000U;

  corestring() = default;
  corestring(View text) : text_(guarded([&] { return Text(text); })) {}
  corestring(const Text& text) : corestring(View(text)) {}
  corestring(Text&& text) noexcept : text_(std::move(text)) {}
  corestring(const C* text) : corestring(text == nullptr ? View() : View(text)) {}

  corestring(const corestring& other)
      : text_(guarded([&] { return Text(other.text_); })), binaryBytes_(other.binaryBytes_), secret_(other.secret_) {}
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

  /// A string with the binary mark that holds a copy of those bytes (fewer than 2^31).
  static corestring fromBytes(const void* bytes, std::size_t count) {
    corestring out;
    out.text_ = guarded([&] { return Text((count + sizeof(C) - 1) / sizeof(C), C{}); });
    if (count != 0) {
      std::memcpy(out.text_.data(), bytes, count);
    }
    out.binaryBytes_ = static_cast<std::uint32_t>(count) | kBinaryMark;
    return out;
  }

  /// A string with the secret mark, which it has before it moves: nothing of the text stays behind.
  static corestring secret(View text) {
    corestring out(text);
    out.markSecret();
    return out;
  }

  const Text& str() const noexcept { return text_; }
  operator View() const noexcept { return text_; }
  const C* c_str() const noexcept { return text_.c_str(); }
  bool empty() const noexcept { return text_.empty(); }
  /// Characters (of a binary string: of its storage).
  std::size_t length() const noexcept { return text_.size(); }

  bool isBinary() const noexcept { return (binaryBytes_ & kBinaryMark) != 0; }
  /// Bytes of the content.
  std::size_t byteLength() const noexcept {
    return isBinary() ? (binaryBytes_ & ~kBinaryMark) : text_.size() * sizeof(C);
  }
  /// The byte length, with the top bit set on a binary string.
  std::uint32_t storedLength() const noexcept {
    return isBinary() ? binaryBytes_ : static_cast<std::uint32_t>(byteLength());
  }

  void markSecret() noexcept { secret_ = true; }
  bool isSecret() const noexcept { return secret_; }

  void swap(corestring& other) noexcept {
    corestring kept(std::move(other));
    other.take(*this);
    take(kept);
  }

 private:
  template <class F>
  static Text guarded(F make) {
    try {
      return make();
    } catch (const std::bad_alloc&) {
      throwOutOfMemory();
    }
  }

  /// Takes over text and marks; leaves the other empty and wiped (a short text lives inside the object itself).
  void take(corestring& other) noexcept {
    text_ = std::move(other.text_);
    binaryBytes_ = std::exchange(other.binaryBytes_, 0);
    secret_ = other.secret_;
    other.release();
    other.secret_ = false;
  }

  void release() noexcept {
    if (secret_) {
      text_.resize(text_.capacity());
      wipe(text_.data(), text_.size() * sizeof(C));
    }
    text_.clear();
    binaryBytes_ = 0;
  }

  Text text_;
  std::uint32_t binaryBytes_ = 0;
  bool secret_ = false;
};

using wstr = corestring<wchar_t>;
using mstr = corestring<char>;

}  // namespace CORE
