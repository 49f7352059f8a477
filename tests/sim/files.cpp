#include "tests/sim/files.h"

#include "tests/sim/pipes.h"

namespace sim {
namespace {

std::error_code systemError(platform::ErrorCode error) { return {static_cast<int>(error), std::system_category()}; }

std::wstring fromLatin1(const std::string& text) {
  std::wstring result;
  for (const char character : text) {
    result += static_cast<wchar_t>(static_cast<unsigned char>(character));
  }
  return result;
}

std::wstring fromUtf8(const std::string& text) {
  std::wstring result;
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    const int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    std::uint32_t code = more == 0 ? lead : lead & (0x3Fu >> more);
    for (int k = 0; k < more && i < text.size(); ++k) {
      code = code << 6 | (static_cast<unsigned char>(text[i++]) & 0x3Fu);
    }
    result += static_cast<wchar_t>(code);
  }
  return result;
}

}  // namespace

struct Files::OpenFile : KernelObject {
  const char* kind() const override { return "file"; }
  std::shared_ptr<FileContent> content;
  std::uint32_t access = 0;
  std::uint64_t position = 0;
};

int Files::_waccess(const std::wstring& path, int) {
  if (kernel_.faults.pass("_waccess")) {
    return -1;
  }
  return exists(path) ? 0 : -1;
}

platform::Status Files::CreateDirectoryW(const std::wstring& path) {
  if (const auto error = kernel_.faults.pass("CreateDirectoryW")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  if (hasFolder(path) || find(path) != nullptr) {
    return {false, platform::kErrorAlreadyExists};
  }
  if (!hasParent(path)) {
    return {false, platform::kErrorPathNotFound};
  }
  insert(path, nullptr);
  return {true, 0};
}

platform::Result<platform::KernelHandle> Files::CreateFileW(const std::wstring& path, std::uint32_t access,
                                                            std::uint32_t, std::uint32_t disposition, std::uint32_t) {
  if (const auto error = kernel_.faults.pass("CreateFileW")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  if (hasFolder(path)) {
    return {false, {}, platform::kErrorAccessDenied};
  }
  const Node* node = find(path);
  if (node == nullptr && (disposition != platform::kOpenAlways || !hasParent(path))) {
    return {false, {}, hasParent(path) ? platform::kErrorFileNotFound : platform::kErrorPathNotFound};
  }
  auto file = std::make_shared<OpenFile>();
  file->content = node != nullptr ? node->content : make(path);
  file->access = access;
  const bool existed = node != nullptr && disposition == platform::kOpenAlways;
  return {true, platform::KernelHandle(kernel_.add(file)), existed ? platform::kErrorAlreadyExists : 0};
}

platform::Result<std::uint32_t> Files::ReadFile(platform::NativeHandle handle, std::span<std::byte> buffer) {
  if (const auto error = kernel_.faults.pass("ReadFile")) {
    return {false, 0, *error};
  }
  Guard guard(kernel_.mutex);
  const auto object = kernel_.get<KernelObject>(handle, "ReadFile");
  if (const auto pipe = std::dynamic_pointer_cast<PipeEnd>(object)) {
    return pipe->writes ? platform::Result<std::uint32_t>{false, 0, platform::kErrorAccessDenied}
                        : pipe->read(guard, buffer);
  }
  const auto file = std::dynamic_pointer_cast<OpenFile>(object);
  if (file == nullptr) {
    return {false, 0, platform::kErrorInvalidHandle};
  }
  if ((file->access & platform::kGenericRead) == 0) {
    return {false, 0, platform::kErrorAccessDenied};
  }
  const std::size_t count = file->content->copy(file->position, buffer);
  file->position += count;
  return {true, static_cast<std::uint32_t>(count), 0};
}

platform::Result<std::uint32_t> Files::WriteFile(platform::NativeHandle handle, std::span<const std::byte> data) {
  if (const auto error = kernel_.faults.pass("WriteFile")) {
    return {false, 0, *error};
  }
  Guard guard(kernel_.mutex);
  const auto object = kernel_.get<KernelObject>(handle, "WriteFile");
  if (const auto pipe = std::dynamic_pointer_cast<PipeEnd>(object)) {
    return pipe->writes ? pipe->write(guard, data)
                        : platform::Result<std::uint32_t>{false, 0, platform::kErrorAccessDenied};
  }
  const auto file = std::dynamic_pointer_cast<OpenFile>(object);
  if (file == nullptr) {
    return {false, 0, platform::kErrorInvalidHandle};
  }
  if ((file->access & platform::kFileAppendData) == 0 || file->content->sparse) {
    return {false, 0, platform::kErrorAccessDenied};
  }
  file->content->data.insert(file->content->data.end(), data.begin(), data.end());
  return {true, static_cast<std::uint32_t>(data.size()), 0};
}

platform::Result<std::uint64_t> Files::GetFileSizeEx(platform::NativeHandle handle) {
  if (const auto error = kernel_.faults.pass("GetFileSizeEx")) {
    return {false, 0, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto file = kernel_.get<OpenFile>(handle, "GetFileSizeEx");
  return file == nullptr ? platform::Result<std::uint64_t>{false, 0, platform::kErrorInvalidHandle}
                         : platform::Result<std::uint64_t>{true, file->content->size(), 0};
}

std::uintmax_t Files::file_size(const std::wstring& path, std::error_code& error) {
  if (const auto fault = kernel_.faults.pass("file_size")) {
    error = systemError(*fault);
    return static_cast<std::uintmax_t>(-1);
  }
  const Guard guard(kernel_.mutex);
  const Node* node = find(path);
  if (node == nullptr || node->content == nullptr) {
    error = std::make_error_code(hasFolder(path) ? std::errc::is_a_directory : std::errc::no_such_file_or_directory);
    return static_cast<std::uintmax_t>(-1);
  }
  error.clear();
  return node->content->size();
}

bool Files::remove(const std::string& path, std::error_code& error) {
  const auto fault = kernel_.faults.pass("remove");
  const Guard guard(kernel_.mutex);
  removed_.push_back(path);
  error = fault ? systemError(*fault) : std::error_code();
  const std::wstring wide = ansiIsLatin1 ? fromLatin1(path) : fromUtf8(path);
  const Node* node = find(wide);
  if (fault || node == nullptr) {
    return false;
  }
  if (node->content == nullptr && !isEmptyFolder(wide)) {
    error = std::make_error_code(std::errc::directory_not_empty);
    return false;
  }
  forget(wide);
  return true;
}

}  // namespace sim
