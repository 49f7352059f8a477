#include <windows.h>

#include <array>
#include <string_view>

#include "platform/files.h"
#include "platform/platform.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

platform::Files& files_() { return platform::current().files; }

platform::Result<platform::KernelHandle> openForAppend(const std::wstring& path) {
  return files_().CreateFileW(path, platform::kFileAppendData, platform::kFileShareAll, platform::kOpenAlways,
                              platform::kFileAttributeNormal);
}

platform::Result<platform::KernelHandle> openForRead(const std::wstring& path) {
  return files_().CreateFileW(path, platform::kGenericRead, platform::kFileShareAll, platform::kOpenExisting,
                              platform::kFileFlagSequentialScan);
}

bool write(platform::NativeHandle file, std::string_view text) {
  const auto written = files_().WriteFile(file, std::as_bytes(std::span(text)));
  return written.ok && written.value == text.size();
}

std::string ansi(const std::wstring& text) {
  std::array<char, 1024> buffer{};
  ::WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, buffer.data(), static_cast<int>(buffer.size()), nullptr, nullptr);
  return buffer.data();
}

void folders() {
  const std::wstring folder = scratchFolder() + L"\\folder";
  equal(static_cast<std::uint64_t>(files_()._waccess(folder, 0)), static_cast<std::uint64_t>(-1),
        "files: a missing folder is not accessible");
  that(files_().CreateDirectoryW(folder).ok && files_()._waccess(folder, 0) == 0, "files: a folder is made");
  equal(files_().CreateDirectoryW(folder).error, platform::kErrorAlreadyExists, "files: an existing folder says so");
  equal(files_().CreateDirectoryW(folder + L"\\a\\b").error, platform::kErrorPathNotFound,
        "files: a missing parent says so");
}

void sharedAppending() {
  const std::wstring path = scratchFolder() + L"\\log.txt";
  const auto first = openForAppend(path);
  const auto second = openForAppend(path);
  that(first.ok && second.ok, "files: two writers share a file");
  that(write(first.value.get(), "one,") && write(second.value.get(), "two,") && write(first.value.get(), "three"),
       "files: both write");
  const auto reader = openForRead(path);
  std::array<std::byte, 64> buffer{};
  const auto read = files_().ReadFile(reader.value.get(), buffer);
  that(std::string_view(reinterpret_cast<const char*>(buffer.data()), read.value) == "one,two,three",
       "files: every write went to the end");
  const auto atEnd = files_().ReadFile(reader.value.get(), buffer);
  that(atEnd.ok && atEnd.value == 0, "files: reading at the end succeeds with nothing");
  equal(files_().GetFileSizeEx(reader.value.get()).value, 13, "files: size by handle");
  std::error_code error;
  equal(files_().file_size(path, error), 13, "files: size by name");
  DWORD flags = HANDLE_FLAG_INHERIT;
  ::GetHandleInformation(first.value.get(), &flags);
  equal(flags & HANDLE_FLAG_INHERIT, 0, "files: an open file is not inheritable");
  that(files_().remove(ansi(path), error) && !error, "files: an open file that shares its deletion is removed");
}

void failures() {
  const std::wstring missing = scratchFolder() + L"\\missing.txt";
  const auto opened = openForRead(missing);
  that(!opened.ok && !opened.value && opened.error == platform::kErrorFileNotFound,
       "files: a missing file is not opened");
  std::error_code error;
  that(files_().file_size(missing, error) == static_cast<std::uintmax_t>(-1) && error.value() == ERROR_FILE_NOT_FOUND,
       "files: a missing file has no size");
  error.clear();
  that(!files_().remove(ansi(missing), error) && !error, "files: a missing file is not removed, without error");
  error.clear();
  that(!files_().remove(ansi(scratchFolder()), error) && error, "files: a folder in use stays, with an error");
}

void removal() {
  std::error_code error;
  const std::wstring german = scratchFolder() + L"\\b\u00fcndel.zip";
  openForAppend(german);
  const std::string name = ansi(german);
  that(files_().remove(name, error) && files_()._waccess(german, 0) != 0,
       "files: a name of the ANSI code page is removed");
  const std::wstring held = scratchFolder() + L"\\held.zip";
  const HANDLE file = ::CreateFileW(held.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  that(!files_().remove(ansi(held), error) && error.value() == ERROR_SHARING_VIOLATION,
       "files: a file in use stays, with the system's error number");
  ::CloseHandle(file);
  error.clear();
  that(files_().remove(ansi(held), error) && !error, "files: a closed file is removed");
  that(files_().remove(ansi(scratchFolder() + L"\\folder"), error), "files: an empty folder is removed");
  if (::GetACP() == CP_UTF8) {
    that(!files_().remove("C:\\\xFF.zip", error) && error, "files: a name that is no text is refused");
  } else {
    skip("files: a name that is no text is refused", "the ANSI code page is not UTF-8");
  }
}

}  // namespace

void files() {
  folders();
  sharedAppending();
  failures();
  removal();
}

}  // namespace check
