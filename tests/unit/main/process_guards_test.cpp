#include "main/process_guards.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

constexpr const wchar_t* kMutexName = L"Global\\meridon_lumen_dct_mutex";

TEST(IsSystemProcess, TheAccountAndEveryFailure) {
  const struct {
    const char* name;
    std::function<void(sim::Windows&)> prepare;
    bool want;
    std::wstring error;
  } rows[] = {
      {"local system", [](sim::Windows&) {}, true, L""},
      {"somebody else", [](sim::Windows& windows) { windows.security.localSystem = false; }, false, L""},
      {"token", [](sim::Windows& windows) { windows.faults.failNth("OpenProcessToken", 1, 5); }, false,
       L"IsSystemProcess(): OpenProcessToken: Message 5."},
      {"size", [](sim::Windows& windows) { windows.faults.failNth("GetTokenInformation", 1, 5); }, false,
       L"IsSystemProcess(): GetTokenInformation (size): Message 5.. Return Length: 0."},
      {"user", [](sim::Windows& windows) { windows.faults.failNth("GetTokenInformation", 2, 5); }, false,
       L"IsSystemProcess(): GetTokenInformation: Message 5.. Return Length: 0."},
      {"identity", [](sim::Windows& windows) { windows.faults.failNth("AllocateAndInitializeSid", 1, 5); }, false,
       L"IsSystemProcess(): AllocateAndInitializeSid: Message 5."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    sim::Windows windows;
    sim::LogCapture log(windows);
    const std::size_t before = windows.openHandles();
    row.prepare(windows);
    EXPECT_EQ(IsSystemProcess(), row.want);
    EXPECT_EQ(windows.openHandles(), before) << windows.openHandlesText();
    EXPECT_EQ(windows.misuse(), std::vector<std::string>());
    const auto want =
        row.error.empty() ? std::vector<sim::LogLine>() : std::vector<sim::LogLine>{{CORE::kError, row.error}};
    EXPECT_EQ(log.lines(), want) << log.text();
  }
}

TEST(DCTMutex, OwnedFromTakingToTheEnd) {
  sim::Windows windows;
  {
    DCTMutex mutex;
    EXPECT_FALSE(windows.objects.mutexExists(kMutexName));
    EXPECT_TRUE(mutex.GetMutex());
    EXPECT_TRUE(windows.objects.mutexHeld(kMutexName));
  }
  EXPECT_FALSE(windows.objects.mutexExists(kMutexName));
  EXPECT_EQ(windows.faults.callCount("ReleaseMutex"), 1U);
  { DCTMutex untouched; }
  EXPECT_EQ(windows.faults.callCount("ReleaseMutex"), 1U);
  EXPECT_EQ(windows.misuse(), std::vector<std::string>());
}

TEST(DCTMutex, TakenOrNotToBeHad) {
  sim::Windows windows;
  sim::LogCapture log(windows);
  const std::size_t before = windows.openHandles();
  windows.objects.addMutex(kMutexName);
  {
    DCTMutex mutex;
    EXPECT_FALSE(mutex.GetMutex());
    EXPECT_EQ(log.lines(), (std::vector<sim::LogLine>{{CORE::kError, L"DCTMutex::GetMutex(): Mutex already exists"}}));
  }
  EXPECT_EQ(windows.openHandles(), before + 1) << "kept: the handle of the foreign mutex stays open";
  EXPECT_EQ(windows.faults.callCount("ReleaseMutex"), 0U);
  log.clear();
  windows.faults.failNth("CreateMutexW", 1, 5);
  DCTMutex mutex;
  EXPECT_FALSE(mutex.GetMutex());
  EXPECT_EQ(log.lines(),
            (std::vector<sim::LogLine>{{CORE::kError, L"DCTMutex::GetMutex(): CreateMutex failed: Message 5."}}));
}

TEST(DCTDeleter, RemovesTheBundleOrWarns) {
  sim::Windows windows;
  sim::LogCapture log(windows);
  windows.files.write(L"D:\\bundle.zip", "PK");
  { DCTDeleter deleter("D:\\bundle.zip"); }
  EXPECT_FALSE(windows.files.exists(L"D:\\bundle.zip"));
  { DCTDeleter deleter(""); }
  EXPECT_EQ(windows.files.removed(), std::vector<std::string>{"D:\\bundle.zip"});
  EXPECT_EQ(log.lines(), std::vector<sim::LogLine>());

  { DCTDeleter gone("D:\\bundle.zip"); }
  const auto warning = [](const std::wstring& code) {
    return sim::LogLine{CORE::kWarn, L"DCTDeleter::~DCTDeleter(): Unable to clean DCT bundle. Error code: " + code +
                                         L". Error msg: Message " + code + L"."};
  };
  EXPECT_EQ(log.lines(), std::vector<sim::LogLine>{warning(L"0")});
  log.clear();
  windows.files.write(L"D:\\folder\\file", "x");
  windows.faults.failNth("remove", 1, 5);
  { DCTDeleter deleter("D:\\folder\\file"); }
  EXPECT_EQ(log.lines(), std::vector<sim::LogLine>{warning(L"5")});
  EXPECT_TRUE(windows.files.exists(L"D:\\folder\\file"));
}

}  // namespace
