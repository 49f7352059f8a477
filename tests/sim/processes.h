#pragma once

#include "platform/processes.h"
#include "tests/sim/kernel.h"

namespace sim {

class Processes;
struct ChildState;

enum class Ending : std::uint8_t { kRunning, kExited, kTerminated, kJobTerminated };

/// What is known about a child process.
struct ChildRecord {
  std::uint32_t id = 0;
  std::wstring commandLine;
  std::wstring folder;
  std::uint32_t flags = 0;
  bool inheritHandles = false;
  bool inheritsOnlyStandardHandles = true;  ///< nothing but the two standard handles came over
  Ending ending = Ending::kRunning;
  std::uint32_t exitCode = 259;
};

/// Ends the script of a child that has been terminated; scripts let it pass.
struct ChildTerminated {};

/// A running child, as its script sees it. The script runs on a thread of its own; the child ends with exit code 0
/// when it returns, unless it has called exit.
class Child {
 public:
  std::wstring argumentAfter(const std::wstring& option) const;  ///< or empty
  /// Writes to the standard output; false when nobody reads any more or none is there.
  bool write(std::string_view text);
  std::string readInput();        ///< until its end (an inline child: what there is)
  void exit(std::uint32_t code);  ///< the code to end with; the script should return
  [[noreturn]] void hang();       ///< until somebody terminates the child
  /// Starts a process below this one with the same standard handles (and so holding the same pipe), in the same job.
  void spawn(std::function<void(Child&)> script);

 private:
  friend class Processes;
  Child(Processes& owner, std::shared_ptr<ChildState> state) : owner_(owner), state_(std::move(state)) {}
  Guard runningGuard() const;

  Processes& owner_;
  const std::shared_ptr<ChildState> state_;
};

/// Command lines, scripted children, jobs and pipes.
class Processes : public platform::Processes {
 public:
  explicit Processes(Kernel& kernel) : kernel_(kernel) {}

  std::wstring commandLine = L"mdDCT.exe";
  /// Runs each child's script inside CreateProcessW on the calling thread, with pipes that never fill: cheaper and in a
  /// fixed order, but such a script cannot hang.
  bool inlineChildren = false;

  /// The script of every child started from now on; without one a child ends at once with code 0.
  void onStart(std::function<void(Child&)> script);
  std::vector<ChildRecord> children() const;  ///< grandchildren, too, in the order of their starts
  std::size_t running() const;                ///< how many of them
  void endAll();                              ///< terminates every one

  std::wstring GetCommandLineW() override;
  Result<ArgumentVector> CommandLineToArgvW(const std::wstring& text, int& count) override;
  void LocalFree(wchar_t** arguments) override;
  NativeHandle GetCurrentProcess() override;
  std::uint32_t GetCurrentProcessId() override;
  std::uint32_t GetCurrentThreadId() override;
  Result<std::uint32_t> ProcessIdToSessionId(std::uint32_t id) override;
  Result<ProcessInformation> CreateProcessW(const std::wstring& childCommandLine, bool inheritHandles,
                                            std::uint32_t creationFlags, const std::wstring& currentDirectory,
                                            const StandardHandles& standardHandles) override;
  Status TerminateProcess(NativeHandle process, std::uint32_t exitCode) override;
  Result<std::uint32_t> GetExitCodeProcess(NativeHandle process) override;
  Result<KernelHandle> CreateJobObjectW() override;
  Status AssignProcessToJobObject(NativeHandle job, NativeHandle process) override;
  Status TerminateJobObject(NativeHandle job, std::uint32_t exitCode) override;
  Result<Pipe> CreatePipe(bool inheritable) override;
  Result<std::uint32_t> PeekNamedPipe(NativeHandle pipe) override;
  void Sleep(std::uint32_t milliseconds) override;

 private:
  friend class Child;
  std::shared_ptr<ChildState> addChild(const std::wstring& childCommandLine, const std::wstring& folder);
  void inherit(ChildState& state, const StandardHandles& standardHandles);
  void run(const std::shared_ptr<ChildState>& state, const std::function<void(Child&)>& script);
  void end(ChildState& state, Ending ending, std::uint32_t code);

  Kernel& kernel_;
  std::function<void(Child&)> script_;
  std::vector<std::shared_ptr<ChildState>> children_;
  std::uint32_t nextId_ = 5000;
};

/// Splits a command line at each blank outside of quotes, which is what CommandLineToArgvW does to ordinary ones.
std::vector<std::wstring> splitCommandLine(const std::wstring& text);

}  // namespace sim
