#pragma once

// One child process of the application, on Linux: its standard output and
// standard error are pipes to us, its standard input a pipe when it takes
// input and /dev/null otherwise. Every other descriptor is closed in the
// child, and ours are close-on-exec.
//
// The process is signalled through a pidfd taken at spawn, before it can be
// reaped, so a terminate that races the reaping reaches that very process or
// nobody, never a recycled PID.
//
// Threads: one thread launches, talks to and waits for the process;
// `isRunning` and `terminate` may be called from any thread meanwhile.

#include <sys/types.h>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace brisko {

class ChildProcess {
 public:
  ChildProcess(std::string executable, std::vector<std::string> arguments, bool takesInput);
  // A process that was launched and not waited for is killed and reaped.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  const std::vector<std::string>& arguments() const { return arguments_; }

  // Starts the process. Throws std::system_error with the system's words.
  void launch();

  // True from launch until the process was reaped.
  bool isRunning() const;

  // Asks the process to end with SIGTERM when it is running; else nothing.
  void terminate();

  // Writes `input` (when the process takes input) and closes it, and reads
  // standard output and standard error together until both end, so that a
  // process that writes much to either never stalls. Each piece of standard
  // output goes to `onOutput` as it arrives; when that answers false, the
  // pipes are closed and the process is terminated. Standard error is kept.
  void communicate(std::string_view input, const std::function<bool(std::string_view)>& onOutput);

  // What the process wrote to standard error so far.
  const std::string& standardError() const { return standardError_; }

  // Reaps the process: its exit status, or 128 plus the signal that ended it.
  int wait();

 private:
  enum class State { created, running, reaped };

  void closePipes();

  const std::string executable_;
  const std::vector<std::string> arguments_;
  const bool takesInput_;

  int inputFd_ = -1;  // our ends of the pipes; used by the talking thread only
  int outputFd_ = -1;
  int errorFd_ = -1;
  std::string standardError_;

  mutable std::mutex lock_;
  State state_ = State::created;  // guarded by lock_
  pid_t pid_ = -1;                // guarded by lock_
  int pidFd_ = -1;                // guarded by lock_; open from launch until destruction
};

}  // namespace brisko
