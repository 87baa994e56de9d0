#include "platform/posix_processes.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

extern char** environ;

namespace tavlin::platform {
namespace {

struct Pipe {
  int read = -1;
  int write = -1;
  bool open() {
    int fds[2];
    if (::pipe(fds) != 0) return false;
    read = fds[0];
    write = fds[1];
    ::fcntl(read, F_SETFD, FD_CLOEXEC);
    ::fcntl(write, F_SETFD, FD_CLOEXEC);
    return true;
  }
  void closeRead() {
    if (read >= 0) ::close(read);
    read = -1;
  }
  void closeWrite() {
    if (write >= 0) ::close(write);
    write = -1;
  }
  ~Pipe() {
    closeRead();
    closeWrite();
  }
};

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& extra) {
  std::vector<std::string> out;
  for (char** e = environ; e && *e; ++e) {
    std::string entry(*e);
    std::string name = entry.substr(0, entry.find('='));
    if (!extra.count(name)) out.push_back(entry);
  }
  for (const auto& [name, value] : extra) out.push_back(name + "=" + value);
  return out;
}

}  // namespace

ProcessResult PosixProcesses::run(const ProcessRequest& request) {
  ProcessResult result;
  Pipe in, out, err;
  if ((request.standardInput && !in.open()) || (request.captureOutput && (!out.open() || !err.open()))) {
    result.launchError = std::strerror(errno);
    return result;
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (request.standardInput) {
    posix_spawn_file_actions_adddup2(&actions, in.read, 0);
  } else {
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  }
  if (request.captureOutput) {
    posix_spawn_file_actions_adddup2(&actions, out.write, 1);
    posix_spawn_file_actions_adddup2(&actions, err.write, 2);
  } else {
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  }

  std::vector<std::string> argvStrings{request.executable};
  argvStrings.insert(argvStrings.end(), request.arguments.begin(), request.arguments.end());
  std::vector<char*> argv;
  for (auto& s : argvStrings) argv.push_back(s.data());
  argv.push_back(nullptr);
  std::vector<std::string> envStrings = mergedEnvironment(request.extraEnvironment);
  std::vector<char*> envp;
  for (auto& s : envStrings) envp.push_back(s.data());
  envp.push_back(nullptr);

  // The child starts clean whatever this process blocks or ignores (the status item
  // blocks SIGINT and SIGTERM to take them in order; a shell's TERM trap must still run).
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGCHLD}) sigaddset(&defaults, signal);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t child = -1;
  int spawnError =
      ::posix_spawn(&child, request.executable.c_str(), &actions, &attributes, argv.data(), envp.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (spawnError != 0) {
    result.launchError = std::strerror(spawnError);
    return result;
  }
  result.launched = true;
  in.closeRead();
  out.closeWrite();
  err.closeWrite();

  // Feed stdin and drain both outputs while the child runs, so that neither side can
  // block on a full pipe.
  std::string_view pendingInput = request.standardInput ? std::string_view(*request.standardInput) : "";
  if (request.standardInput && pendingInput.empty()) in.closeWrite();
  for (int fd : {in.write, out.read, err.read}) {
    if (fd >= 0) ::fcntl(fd, F_SETFL, O_NONBLOCK);
  }
  auto transfer = [&](int waitMilliseconds) {
    std::vector<pollfd> fds;
    if (in.write >= 0) fds.push_back({in.write, POLLOUT, 0});
    if (out.read >= 0) fds.push_back({out.read, POLLIN, 0});
    if (err.read >= 0) fds.push_back({err.read, POLLIN, 0});
    if (fds.empty()) {
      if (waitMilliseconds > 0) ::usleep(static_cast<useconds_t>(waitMilliseconds) * 1000);
      return;
    }
    if (::poll(fds.data(), fds.size(), waitMilliseconds) <= 0) return;
    for (const pollfd& p : fds) {
      if (!p.revents) continue;
      if (p.fd == in.write) {
        ssize_t n = ::write(in.write, pendingInput.data(), pendingInput.size());
        if (n > 0) pendingInput.remove_prefix(static_cast<size_t>(n));
        if (n < 0 && errno != EAGAIN && errno != EINTR) pendingInput = {};
        if (pendingInput.empty()) in.closeWrite();
        continue;
      }
      Pipe& pipe = p.fd == out.read ? out : err;
      std::string& sink = p.fd == out.read ? result.standardOutput : result.standardError;
      char buf[65536];
      ssize_t n = ::read(p.fd, buf, sizeof buf);
      if (n > 0) {
        sink.append(buf, static_cast<size_t>(n));
      } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
        pipe.closeRead();
      }
    }
  };
  using Clock = std::chrono::steady_clock;
  auto deadline = request.timeoutSeconds
                      ? Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(*request.timeoutSeconds))
                      : Clock::time_point::max();
  // Waits until the child has ended or `until` has come; true when it has ended.
  int status = 0;
  auto waitForExit = [&](Clock::time_point until, bool mayAbandon) {
    for (;;) {
      pid_t reaped = ::waitpid(child, &status, WNOHANG);
      if (reaped == child || (reaped < 0 && errno != EINTR)) return true;
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
      if (left <= 0) return false;
      if (mayAbandon && request.abandonWhen && request.abandonWhen()) return false;
      transfer(static_cast<int>(std::min<long long>(left, request.whileWaiting || request.abandonWhen ? 10 : 20)));
      if (request.whileWaiting) request.whileWaiting();
    }
  };
  if (!waitForExit(deadline, true)) {
    result.timedOut = true;
    ::kill(child, SIGTERM);
    if (!waitForExit(Clock::now() + std::chrono::seconds(5), false)) {
      ::kill(child, SIGKILL);
      while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
      }
    }
  }
  // What the child wrote before it ended; a grandchild still holding a pipe adds nothing.
  for (Pipe* pipe : {&out, &err}) {
    std::string& sink = pipe == &out ? result.standardOutput : result.standardError;
    char buf[65536];
    ssize_t n;
    while (pipe->read >= 0 && ((n = ::read(pipe->read, buf, sizeof buf)) > 0 || (n < 0 && errno == EINTR))) {
      if (n > 0) sink.append(buf, static_cast<size_t>(n));
    }
  }
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  else if (WIFSIGNALED(status)) result.exitStatus = 128 + WTERMSIG(status);
  return result;
}

}  // namespace tavlin::platform
