#pragma once

#include "platform/processes.h"
#include "tests/sim/kernel.h"

namespace sim {

class Processes;
struct ChildState;
struct PipeEnd;

enum class Ending : std::uint8_t { kRunning, kExited, kTerminated, kJobTerminated };

/// What is known about a child process.
struct ChildRecord {
  std::uint32_t id = 0;
  std::wstring commandLine;
  std::wstring folder;
  std::uint32_t flags = 0;
  bool inheritHandles = false;
  bool inheritsOnlyStandardHandles = true;  ///< it inherits nothing else
  Ending ending = Ending::kRunning;
  std::uint32_t exitCode = 259;
};

/// The exception that ends the script of a child that has been terminated. Scripts do not catch it.
struct ChildTerminated {};

/// A running child, as its script sees it. The script runs on a thread of its own. When it returns the child ends, with
/// the code that it has passed to exit, or 0.
class Child {
 public:
  std::wstring argumentAfter(const std::wstring& option) const;  ///< empty when there is none
  /// Writes to the standard output. Returns false when there is none or nobody reads from it any more.
  bool write(std::string_view text);
  /// Writes to the standard error. Without one it is the console of the child's own: PowerShell, whose output is then
  /// the only one that is redirected, writes its errors to the standard output.
  bool complain(std::string_view text);
  std::string readInput();        ///< reads to the end (an inline child: what there is)
  void exit(std::uint32_t code);  ///< sets the exit code; the script should then return
  [[noreturn]] void hang();       ///< waits until somebody terminates the child
  /// Starts a child of this process in the same job. It has the same standard handles, and so keeps the pipe open.
  void spawn(std::function<void(Child&)> script);

 private:
  friend class Processes;
  Child(Processes& owner, std::shared_ptr<ChildState> state) : owner_(owner), state_(std::move(state)) {}
  Guard runningGuard() const;
  bool writeTo(std::shared_ptr<PipeEnd> ChildState::*stream, std::string_view text);

  Processes& owner_;
  const std::shared_ptr<ChildState> state_;
};

/// Command lines, scripted children, jobs and pipes.
class Processes : public platform::Processes {
 public:
  explicit Processes(Kernel& kernel) : kernel_(kernel) {}

  std::wstring commandLine = L"mdDCT.exe";
  /// Runs each child's script inside CreateProcessW on the calling thread, with pipes that never fill. That is cheaper
  /// and has a fixed order, but such a script cannot hang.
  bool inlineChildren = false;

  /// Sets the script of every child that starts from now on. Without one a child ends at once with code 0.
  void onStart(std::function<void(Child&)> script);
  std::vector<ChildRecord> children() const;  ///< and grandchildren, in the order of their starts
  std::size_t running() const;                ///< how many have not ended
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
  Result<Pipe> CreatePipe(bool inheritable, std::uint32_t bytes) override;
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

/// Splits a command line at each blank outside quotes, as CommandLineToArgvW does with a simple one.
std::vector<std::wstring> splitCommandLine(const std::wstring& text);

}  // namespace sim
