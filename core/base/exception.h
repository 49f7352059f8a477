#pragma once

#include <exception>
#include <string>

namespace CORE {

/// The framework exception: one message text. Thrown only for programming and resource errors ("OutOfMem",
/// "to_wstr Failed"); look-ups that may miss return defaults instead.
class coreException : public std::exception {
 public:
  explicit coreException(std::wstring message);

  /// The message, as given.
  const std::wstring& message() const noexcept { return message_; }
  /// The message in UTF-8; lives as long as the exception.
  const char* what() const noexcept override { return narrow_.c_str(); }

 private:
  std::wstring message_;
  std::string narrow_;
};

/// Throws coreException("OutOfMem").
[[noreturn]] void throwOutOfMemory();

/// The message of the exception being handled: a framework exception's text, "OutOfMem" for std::bad_alloc, what() of
/// any other standard exception, and a fixed text for the rest. Call it inside a catch block only.
std::wstring currentExceptionText();

}  // namespace CORE
