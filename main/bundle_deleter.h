#pragma once

#include <string>
#include <utility>

/// Removes the collection bundle from disk when it is destroyed. A failed removal is logged at WARN and has no other
/// effect. With an empty path there is nothing to remove.
class DCTDeleter {
 public:
  /// \param path  UTF-8. The file system takes narrow paths in the process's ANSI code page, which agrees with UTF-8 on
  ///              ASCII characters.
  explicit DCTDeleter(const std::string& path) : path_(path) {}
  /// \param path  a path that cannot be converted to UTF-8. It goes to Windows as it is.
  explicit DCTDeleter(std::wstring path) : widePath_(std::move(path)) {}
  DCTDeleter(const DCTDeleter&) = delete;
  DCTDeleter& operator=(const DCTDeleter&) = delete;
  ~DCTDeleter();

 private:
  void removeBundle() const;

  std::string path_;
  std::wstring widePath_;  ///< empty when path_ names the bundle
};
