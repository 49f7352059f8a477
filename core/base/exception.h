#pragma once

#include <exception>
#include <string>

namespace CORE {

/// The framework exception, which carries a message. It is thrown only for programming and resource errors ("OutOfMem",
/// "to_wstr Failed"); a look-up that finds nothing returns a default instead.
class coreException : public std::exception {
 public:
  explicit coreException(std::wstring message);

  /// Returns the message.
  const std::wstring& message() const noexcept { return message_; }
  /// Returns the message in UTF-8; the text lives as long as the exception.
  const char* what() const noexcept override { return narrow_.c_str(); }

 private:
  std::wstring message_;
  std::string narrow_;
};

/// \throws coreException "OutOfMem", always.
[[noreturn]] void throwOutOfMemory();

/// Returns the message of the exception that is being handled: the text of a framework exception, "OutOfMem" for
/// std::bad_alloc, what() of another standard exception, "unknown exception" for anything else. Call it inside a catch
/// block only.
std::wstring currentExceptionText();

}  // namespace CORE
