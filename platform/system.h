#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kLoadLibrarySearchSystem32 = 0x800;  ///< LOAD_LIBRARY_SEARCH_SYSTEM32

/// Folders, modules, version resources and the console of the process. Every operation is one platform call of that
/// name; any thread may call.
class System {
 public:
  virtual ~System() = default;

  virtual Status SetDefaultDllDirectories(std::uint32_t flags) = 0;
  virtual Result<std::wstring> GetSystemDirectoryW() = 0;
  virtual Status SetCurrentDirectoryW(const std::wstring& path) = 0;
  /// Returns the full path of the program.
  virtual Result<std::wstring> GetModuleFileNameW() = 0;
  /// Returns a loaded module by its file name; null when it is not loaded. The caller does not own it.
  virtual NativeHandle GetModuleHandleW(const std::wstring& name) = 0;

  /// Returns the bytes that GetFileVersionInfoW needs for the version resource of a file.
  virtual Result<std::uint32_t> GetFileVersionInfoSizeW(const std::wstring& path) = 0;
  virtual Status GetFileVersionInfoW(const std::wstring& path, std::span<std::byte> block) = 0;
  /// Finds a part of that block by its name ("\\VarFileInfo\\Translation").
  /// \return its bytes, which belong to the block; those of a text include its terminator.
  virtual Result<std::span<const std::byte>> VerQueryValueW(std::span<const std::byte> block,
                                                            const std::wstring& name) = 0;

  /// Attaches the process to its parent's console.
  virtual Status AttachConsole() = 0;
  /// Writes a text to a console (CONOUT$).
  virtual Status WriteConsoleW(NativeHandle console, const std::wstring& text) = 0;
};

}  // namespace platform
