#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kLoadLibrarySearchSystem32 = 0x800;  ///< LOAD_LIBRARY_SEARCH_SYSTEM32

/// The process's surroundings. Every operation is one platform call of that name; any thread may call.
class System {
 public:
  virtual ~System() = default;

  virtual Status SetDefaultDllDirectories(std::uint32_t flags) = 0;
  virtual Result<std::wstring> GetSystemDirectoryW() = 0;
  virtual Status SetCurrentDirectoryW(const std::wstring& path) = 0;
  /// The full path of the program.
  virtual Result<std::wstring> GetModuleFileNameW() = 0;
  /// A loaded module by its file name, not owned; null when it is not loaded.
  virtual NativeHandle GetModuleHandleW(const std::wstring& name) = 0;

  /// Bytes that GetFileVersionInfoW needs for the version resource of a file.
  virtual Result<std::uint32_t> GetFileVersionInfoSizeW(const std::wstring& path) = 0;
  virtual Status GetFileVersionInfoW(const std::wstring& path, std::span<std::byte> block) = 0;
  /// A part of that block by its name ("\\VarFileInfo\\Translation"): its bytes, which stay the block's. A text keeps
  /// its terminator.
  virtual Result<std::span<const std::byte>> VerQueryValueW(std::span<const std::byte> block,
                                                            const std::wstring& name) = 0;

  /// Joins the parent's console.
  virtual Status AttachConsole() = 0;
  /// Writes text to a console (CONOUT$).
  virtual Status WriteConsoleW(NativeHandle console, const std::wstring& text) = 0;
};

}  // namespace platform
