#include <thread>

#include "dct/query/pipe_reader.h"
#include "tests/unit/dct/script_world.h"

namespace {

struct CommandWorld : ScriptWorld {
  bool run(const std::function<void(sim::Child&)>& script) {
    windows.processes.onStart(script);
    return agent.runDctCommand(L"powershell.exe -x", result, output);
  }

  CORE::PropertyBag result;
  std::string output = "old";
};

/// No input, more output than the pipe takes, and a grandchild that fills it until nobody reads any more. One that only
/// holds it: see the tests under Wine.
TEST(RunDctCommand, GivesTheOutputAndWaitsForNobodyElse) {
  CommandWorld world;
  const std::string answer = "in:;" + std::string(1'000'000, 'x');
  std::size_t reads = 0;
  EXPECT_TRUE(world.run([&](sim::Child& child) {
    child.write("in:" + child.readInput() + ";" + std::string(1'000'000, 'x'));
    reads = world.windows.faults.callCount("ReadFile");
    child.spawn([](sim::Child& grandchild) {
      while (grandchild.write("yyy")) {
      }
    });
  }));
  EXPECT_LT(reads, 50U) << "Windows may rest for a tick of its clock after each";
  EXPECT_TRUE(world.output.starts_with(answer));
  EXPECT_EQ(world.output.find_first_not_of('y', answer.size()), std::string::npos);
  EXPECT_EQ(world.result.count(), 0U);
  const sim::ChildRecord child = world.windows.processes.children().at(0);
  EXPECT_TRUE(child.folder == L"C:\\Agent\\dct" && child.flags == 0x20 && child.inheritsOnlyStandardHandles);
}

// The other calls that can fail: see the sweep.
TEST(RunDctCommand, AReadErrorEndsTheReading) {
  CommandWorld world;
  world.windows.faults.failNth("PeekNamedPipe", 1, 5);
  EXPECT_TRUE(world.run([](sim::Child& child) { child.write(std::string(1'000'000, 'x')); }))
      << "the exit code decides";
  EXPECT_EQ(world.output, "");
  EXPECT_EQ(world.log.messages(CORE::kError), Texts{L"dct_common::runDctCommand::<lambda_1>::operator ()(): Failed "
                                                    L"to read pipe with error Message 5.."});
}

TEST(RunDctCommand, EndsTheWholeTreeAfterAMinute) {
  CommandWorld world;
  const std::uint32_t before = world.windows.clock.GetTickCount();
  EXPECT_FALSE(world.run([&world](sim::Child& child) {
    while (world.windows.faults.callCount("WaitForSingleObject") == 0) {
      std::this_thread::yield();  // it is not in its job yet
    }
    child.spawn([](sim::Child& grandchild) { grandchild.hang(); });
    child.hang();
  }));
  EXPECT_GE(world.windows.clock.GetTickCount() - before, 60000U);
  EXPECT_EQ(world.result.getErrorCode(), 258U);
  EXPECT_EQ(world.result.getErrorText().str(),
            L"Timed out reading script output from the pipe when using command powershell.exe -x.");
  for (const sim::ChildRecord& child : world.windows.processes.children()) {
    EXPECT_EQ(child.ending, sim::Ending::kJobTerminated);
  }
  EXPECT_EQ(world.windows.processes.children().size(), 2U);
}

TEST(PipeReader, DropsWhatIsTooMuch) {
  ScriptWorld world;
  auto pipe = world.windows.processes.CreatePipe(false, 0);
  PipeReader reader(std::move(pipe.value.read), {}, 1000);
  ASSERT_TRUE(reader.start());
  const std::string text(10'000, 'x');  // more than one read gives
  ASSERT_TRUE(world.windows.files.WriteFile(pipe.value.write.get(), std::as_bytes(std::span(text))).ok);
  pipe.value.write.reset();
  reader.finish();
  EXPECT_EQ(reader.takeOutput(), std::string(1000, 'x'));
  EXPECT_EQ(world.log.messages(CORE::kWarn),
            Texts{L"dct_common::runDctCommand(): Script output beyond 1000 bytes is dropped."});
}

}  // namespace
