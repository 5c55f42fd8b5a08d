#include "engine/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

extern char** environ;

namespace brisko {

namespace {

int openPidFd(pid_t pid) {
  return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

int sendSignal(int pidFd, int signal) {
  return static_cast<int>(::syscall(SYS_pidfd_send_signal, pidFd, signal, nullptr, 0));
}

void closeDescriptor(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

// A child that exits before it read all of its input must fail our write with
// EPIPE, not end the application with SIGPIPE. Children get the default back.
void ignoreBrokenPipes() {
  static const bool ignored = std::signal(SIGPIPE, SIG_IGN) != SIG_ERR;
  (void)ignored;
}

// Closes our descriptors on every way out of launch().
struct PipePair {
  int fds[2] = {-1, -1};
  ~PipePair() {
    closeDescriptor(fds[0]);
    closeDescriptor(fds[1]);
  }
  void open() {
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
  }
};

}  // namespace

ChildProcess::ChildProcess(std::string executable, std::vector<std::string> arguments,
                           bool takesInput)
    : executable_(std::move(executable)),
      arguments_(std::move(arguments)),
      takesInput_(takesInput) {}

ChildProcess::~ChildProcess() {
  closePipes();
  std::lock_guard guard(lock_);
  if (state_ == State::running) {
    sendSignal(pidFd_, SIGKILL);
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  closeDescriptor(pidFd_);
}

void ChildProcess::launch() {
  ignoreBrokenPipes();
  PipePair input, output, error;
  if (takesInput_) input.open();
  output.open();
  error.open();

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (takesInput_) {
    posix_spawn_file_actions_adddup2(&actions, input.fds[0], 0);
  } else {
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, output.fds[1], 1);
  posix_spawn_file_actions_adddup2(&actions, error.fds[1], 2);
  // Descriptors that other threads opened without O_CLOEXEC stay with us.
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  sigaddset(&signals, SIGPIPE);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::vector<char*> argv;
  std::string program = executable_;
  argv.push_back(program.data());
  std::vector<std::string> arguments = arguments_;
  for (auto& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);

  std::lock_guard guard(lock_);
  pid_t pid = -1;
  const int spawned =
      ::posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (spawned != 0) throw std::system_error(spawned, std::generic_category(), executable_);
  // The child is ours and not reaped yet, so its PID can't have been reused.
  pidFd_ = openPidFd(pid);
  pid_ = pid;
  state_ = State::running;
  if (pidFd_ < 0) {
    const int failure = errno;
    ::kill(pid, SIGKILL);
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    state_ = State::reaped;
    throw std::system_error(failure, std::generic_category(), executable_);
  }
  std::swap(inputFd_, input.fds[1]);
  std::swap(outputFd_, output.fds[0]);
  std::swap(errorFd_, error.fds[0]);
}

bool ChildProcess::isRunning() const {
  std::lock_guard guard(lock_);
  return state_ == State::running;
}

void ChildProcess::terminate() {
  std::lock_guard guard(lock_);
  if (state_ == State::running) sendSignal(pidFd_, SIGTERM);
}

void ChildProcess::closePipes() {
  closeDescriptor(inputFd_);
  closeDescriptor(outputFd_);
  closeDescriptor(errorFd_);
}

void ChildProcess::communicate(std::string_view input,
                               const std::function<bool(std::string_view)>& onOutput) {
  if (inputFd_ >= 0 && input.empty()) closeDescriptor(inputFd_);
  if (inputFd_ >= 0) ::fcntl(inputFd_, F_SETFL, O_NONBLOCK);
  size_t written = 0;
  char buffer[64 * 1024];
  while (outputFd_ >= 0 || errorFd_ >= 0 || inputFd_ >= 0) {
    pollfd fds[3];
    nfds_t count = 0;
    if (inputFd_ >= 0) fds[count++] = {inputFd_, POLLOUT, 0};
    if (outputFd_ >= 0) fds[count++] = {outputFd_, POLLIN, 0};
    if (errorFd_ >= 0) fds[count++] = {errorFd_, POLLIN, 0};
    if (::poll(fds, count, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (nfds_t i = 0; i < count; ++i) {
      if (fds[i].revents == 0) continue;
      const int fd = fds[i].fd;
      if (fd == inputFd_) {
        const ssize_t n = ::write(fd, input.data() + written, input.size() - written);
        if (n > 0) written += static_cast<size_t>(n);
        // A child that stopped reading gets no more; a close error is of no use.
        if ((n < 0 && errno != EAGAIN && errno != EINTR) || written == input.size())
          closeDescriptor(inputFd_);
        continue;
      }
      const ssize_t n = ::read(fd, buffer, sizeof buffer);
      if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (n <= 0) {
        closeDescriptor(fd == outputFd_ ? outputFd_ : errorFd_);
        continue;
      }
      if (fd == errorFd_) {
        standardError_.append(buffer, static_cast<size_t>(n));
      } else if (!onOutput(std::string_view(buffer, static_cast<size_t>(n)))) {
        closePipes();
        terminate();
        return;
      }
    }
  }
  closePipes();
}

int ChildProcess::wait() {
  pid_t pid;
  {
    std::lock_guard guard(lock_);
    if (state_ != State::running) return -1;
    pid = pid_;
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      status = 0;
      break;
    }
  }
  {
    std::lock_guard guard(lock_);
    state_ = State::reaped;
  }
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return WEXITSTATUS(status);
}

}  // namespace brisko
