#include <thread>

#include "dct/pipe_reader.h"
#include "tests/unit/dct/script_world.h"

namespace {

struct CommandWorld : ScriptWorld {
  bool run(const std::function<void(sim::Child&)>& script) {
    windows.processes.onStart(script);
    return agent.runDctCommand(L"powershell.exe -x", result, output);
  }

  /// Keeps a child from going on before it is in its job.
  void untilAwaited() const {
    while (windows.faults.callCount("WaitForSingleObject") == 0) {
      std::this_thread::yield();
    }
  }

  CORE::PropertyBag result;
  std::string output = "old";
};

TEST(RunDctCommand, GivesTheOutput) {
  CommandWorld world;
  EXPECT_TRUE(world.run([](sim::Child& child) {
    child.write("in:" + child.readInput() + ";" + std::string(20'000, 'x'));  // no input; more than the pipe takes
  }));
  EXPECT_EQ(world.output, "in:;" + std::string(20'000, 'x'));
  EXPECT_EQ(world.result.count(), 0U);
  EXPECT_TRUE(world.log.has(CORE::kTrace,
                            L"dct_common::runDctCommand(): Retrieved the following output from calling "
                            L"DCT with command 'powershell.exe -x' - 'in:;xxx"));
  const sim::ChildRecord child = world.windows.processes.children().at(0);
  EXPECT_EQ(child.folder, L"C:\\Agent\\dct");
  EXPECT_EQ(child.flags, 0x20U);
  EXPECT_TRUE(child.inheritsOnlyStandardHandles);
}

TEST(RunDctCommand, FailuresAreLoggedAndStored) {
  const std::wstring ofCommand = L"using command 'powershell.exe -x' with error Message 5..";
  // The n-th of these calls fails; "": something else goes wrong, with this error code.
  const std::tuple<std::string, std::uint32_t, std::wstring> rows[] = {
      {"CreatePipe", 1, L"Failed to create std pipe with error Message 5.."},
      {"SetHandleInformation", 1, L"Failed to set handle information with error Message 5.."},
      {"CreatePipe", 2, L"Failed to create stdin pipe with error Message 5.."},
      {"SetHandleInformation", 2, L"Failed to set stdin handle information with error Message 5.."},
      {"CreateProcessW", 1, L"Failed to start DCT " + ofCommand},
      {"WaitForSingleObject", 1, L"Failed to wait for DCT to complete " + ofCommand},
      {"GetExitCodeProcess", 1, L"Failed to get DCT process exit code with error Message 5.."},
      {"", 7, L"DCT process failed with error Message 7.."},
      {"", 80, L"Cannot get the AgentInstallPath from registry"},
  };
  for (const auto& [call, n, text] : rows) {
    SCOPED_TRACE(testing::PrintToString(text));
    CommandWorld world;
    world.windows.faults.failNth(call, n, 5);
    if (n == 80) {
      world.windows.registry.clear();
    }
    EXPECT_FALSE(world.run([&world](sim::Child& child) {
      world.untilAwaited();
      child.exit(7);
    }));
    EXPECT_EQ(world.output, "old");
    EXPECT_EQ(world.result.getErrorCode(), call.empty() ? n : 5);
    EXPECT_EQ(world.result.getErrorText().str(), text);
    EXPECT_EQ(world.log.messages(CORE::kError), Texts{L"dct_common::runDctCommand(): " + text});
    EXPECT_EQ(world.windows.processes.running(), 0U);
  }
}

TEST(RunDctCommand, EndsTheWholeTreeAfterAMinute) {
  for (const std::string failing : {"nothing", "CreateJobObjectW", "AssignProcessToJobObject", "TerminateJobObject"}) {
    SCOPED_TRACE(failing);
    CommandWorld world;
    world.windows.faults.failNth(failing, 1, 5);
    const std::uint32_t before = world.windows.clock.GetTickCount();
    EXPECT_FALSE(world.run([&world](sim::Child& child) {
      world.untilAwaited();
      child.spawn([](sim::Child& grandchild) { grandchild.hang(); });
      child.hang();
    }));
    EXPECT_GE(world.windows.clock.GetTickCount() - before, 60000U);
    EXPECT_EQ(world.result.getErrorCode(), 258U);
    EXPECT_EQ(world.result.getErrorText().str(),
              L"Timed out reading script output from the pipe when using command powershell.exe -x.");
    const auto children = world.windows.processes.children();
    const bool whole = failing == "nothing";
    EXPECT_EQ(children.at(0).ending, whole ? sim::Ending::kJobTerminated : sim::Ending::kTerminated);
    EXPECT_EQ(children.at(1).ending, whole ? sim::Ending::kJobTerminated : sim::Ending::kRunning);
    EXPECT_EQ(world.log.messages(CORE::kWarn),
              whole || failing == "TerminateJobObject"
                  ? Texts{}
                  : Texts{L"ScriptChild::start(): No job, only the child itself can be ended: Message 5."});
  }
}

// One that only holds it: see the tests under Wine.
TEST(RunDctCommand, AGrandchildThatFillsThePipeHoldsNothingUp) {
  CommandWorld world;
  EXPECT_TRUE(world.run([](sim::Child& child) {
    child.write("answer");
    child.spawn([](sim::Child& grandchild) {
      while (grandchild.write(std::string(100, 'y'))) {
      }
    });
  }));
  EXPECT_TRUE(world.output.starts_with("answer"));
}

TEST(RunDctCommand, ReadErrorsAreLoggedAndEndTheReading) {
  for (const char* call : {"PeekNamedPipe", "ReadFile"}) {
    CommandWorld world;
    world.windows.faults.failAll(call, 5);
    EXPECT_TRUE(world.run([](sim::Child& child) {
      while (child.write(std::string(1000, 'x'))) {  // until the reader has gone
      }
    })) << "the exit code decides";
    EXPECT_EQ(world.output, "");
    EXPECT_EQ(world.log.messages(CORE::kError), Texts{L"dct_common::runDctCommand::<lambda_1>::operator ()(): Failed "
                                                      L"to read pipe with error Message 5.."});
  }
}

TEST(PipeReader, DropsWhatIsTooMuch) {
  ScriptWorld world;
  auto pipe = world.windows.processes.CreatePipe(false);
  PipeReader reader(std::move(pipe.value.read), 1000);
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
