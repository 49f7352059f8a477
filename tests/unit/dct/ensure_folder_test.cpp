#include "dct/ensure_folder.h"

#include <gtest/gtest.h>

#include "tests/sim/windows.h"

namespace {

TEST(EnsureFolder, ParentsByTextAlone) {
  const std::pair<std::wstring, std::wstring> rows[] = {
      {L"C:\\a", L"C:\\"},
      {L"C:\\", L"C:\\"},
      {L"C:", L"C:"},
      {L"C:a", L"C:"},
      {L"C:\\a\\\\b\\", L"C:\\a"},
      {L"C:/a/b", L"C:/a"},
      {L"\\\\server\\share\\x", L"\\\\server\\share"},
      {L"\\\\server\\share\\", L"\\\\server\\share"},
      {L"\\\\server", L"\\\\server"},
      {L"\\\\?\\C:\\a", L"\\\\?\\C:"},
      {L"\\a", L"\\"},
      {L"a\\b", L"a"},
      {L"a", L""},
  };
  for (const auto& [path, parent] : rows) {
    EXPECT_EQ(parentPath(path), parent) << testing::PrintToString(path);
  }
}

TEST(EnsureFolder, CreatesTheMissingLevels) {
  sim::Windows windows;
  windows.files.makeFolder(L"D:\\there");
  EXPECT_TRUE(ensureFolder(L"D:\\there"));
  EXPECT_TRUE(ensureFolder(L"D:\\there\\a/b\\c\\"));
  EXPECT_TRUE(windows.files.isFolder(L"D:\\there\\a\\b\\c"));
  EXPECT_EQ(windows.faults.callCount("CreateDirectoryW"), 3U);

  windows.files.write(L"D:\\file", "a name that is taken counts as there");
  EXPECT_TRUE(ensureFolder(L"D:\\file"));
  EXPECT_FALSE(ensureFolder(L""));
}

TEST(EnsureFolder, AnyLevelThatFailsIsAFailure) {
  for (const std::size_t level : {1U, 2U, 3U}) {
    sim::Windows windows;
    windows.faults.failNth("CreateDirectoryW", level, platform::kErrorAlreadyExists);
    EXPECT_FALSE(ensureFolder(L"D:\\a\\b\\c")) << level;
    EXPECT_EQ(windows.faults.callCount("CreateDirectoryW"), level) << "goes on after a failure";
  }
  const sim::Windows windows;
  std::wstring hostile = L"C:";
  while (hostile.size() < 2'000'000) {
    hostile += L"\\a";
  }
  EXPECT_FALSE(ensureFolder(hostile));
}

}  // namespace
