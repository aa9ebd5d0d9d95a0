#include "Tarnwick/Platform/Log.hpp"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "Tarnwick/Platform/Memory.hpp"
#include "Tarnwick/Platform/Mutex.hpp"
#include "Tarnwick/Platform/NSThread.hpp"
#include "Tarnwick/Platform/NeverDestroyed.hpp"

namespace tarnwick {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t maximumWaiting = std::size_t{1} << 20;  // in bytes

/// The timeout of one poll() of a blocked output, in milliseconds. The next poll() notices if the
/// application has redirected standard output meanwhile.
constexpr int outputWait = 100;

/// The log's thread checks for lines at this interval: waking it would cost the caller up to 25
/// microseconds. After idleTime without a line, it sleeps until a caller wakes it.
constexpr auto interval = 10ms;
constexpr auto idleTime = 1s;

/// How many bytes of `text` to write at once: whole lines, up to what a pipe accepts atomically.
std::size_t pieceOf(std::string_view text) {
  if (text.size() <= PIPE_BUF) return text.size();
  const std::size_t newline = text.rfind('\n', PIPE_BUF - 1);
  return newline == std::string_view::npos ? PIPE_BUF : newline + 1;
}

/// Writes the beginning of `text` to standard output as soon as that does not block, and returns
/// its length. Avoids stdio: a thread that is blocked inside it holds the lock of `stdout`, which
/// std::exit() needs.
std::size_t writeSome(std::string_view text) {
  const std::size_t size = pieceOf(text);
  for (;;) {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, outputWait) < 1) continue;
    const ssize_t written = write(STDOUT_FILENO, text.data(), size);
    if (written >= 0) return static_cast<std::size_t>(written);
    if (errno != EAGAIN && errno != EINTR) return size;  // a failing output is ignored
  }
}

/// The waiting lines, and the thread that writes them.
class Log {
 public:
  static Log& shared() {
    static NeverDestroyed<Log> log;
    return *log;
  }

  /// Queues a line, or drops it if too much waits. Returns false if no thread would write it.
  bool add(std::string_view line) {
    if (isForked_) return false;
    const MutexLock lock(lock_);
    if (!isRunning_ && !start()) return false;
    if (added_ - written_ + line.size() > maximumWaiting) return true;
    waiting_ += line;
    added_ += line.size();
    if (isIdle_) lineAdded_.notify_one();
    if (isExiting_) isExiting_ = waitUntilWritten(exitPatience);
    return true;
  }

  bool flush(std::chrono::milliseconds patience) {
    if (isForked_) return true;
    const MutexLock lock(lock_);
    return waitUntilWritten(patience);
  }

 private:
  static constexpr std::chrono::milliseconds exitPatience = 1s;

  bool start() TARNWICK_REQUIRES(lock_) {
    try {
      NSThread::detachNewThread([this] { run(); });
    } catch (...) {
      return false;
    }
    isRunning_ = true;
    std::atexit([] { shared().prepareForExit(); });
    // A child process has only the thread that called fork(), and the lock may be locked in it.
    pthread_atfork(nullptr, nullptr, [] { shared().isForked_ = true; });
    return true;
  }

  [[noreturn]] void run() {
    sigset_t closedPipe;
    sigemptyset(&closedPipe);
    sigaddset(&closedPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &closedPipe, nullptr);
    for (std::string lines;; lines.clear()) {
      {
        const MutexLock lock(lock_);
        waitForLines();
        lines.swap(waiting_);
      }
      for (std::string_view rest = lines; !rest.empty();) {
        const std::size_t size = writeSome(rest);
        rest.remove_prefix(size);
        const MutexLock lock(lock_);
        written_ += size;
        linesWritten_.notify_all();
      }
    }
  }

  void waitForLines() TARNWICK_REQUIRES(lock_) {
    const auto idleFrom = std::chrono::steady_clock::now() + idleTime;
    while (waiting_.empty()) {
      isIdle_ = std::chrono::steady_clock::now() >= idleFrom;
      if (isIdle_) {
        lineAdded_.wait(lock_);
      } else {
        lineAdded_.wait_for(lock_, interval);
      }
    }
    isIdle_ = false;
  }

  /// Waits until the lines so far are written. Static destructors may log later: each such call
  /// waits for its own line. After the first wait that fails, no call waits any more.
  void prepareForExit() {
    if (isForked_) return;
    const MutexLock lock(lock_);
    isExiting_ = waitUntilWritten(exitPatience);
  }

  bool waitUntilWritten(std::chrono::milliseconds patience) TARNWICK_REQUIRES(lock_) {
    const std::uint64_t goal = added_;
    while (written_ < goal) {
      const std::uint64_t before = written_;
      const auto deadline = std::chrono::steady_clock::now() + patience;
      while (written_ == before) {
        if (linesWritten_.wait_until(lock_, deadline) == std::cv_status::timeout &&
            written_ == before) {
          return false;
        }
      }
    }
    return true;
  }

  Mutex lock_;
  std::condition_variable_any lineAdded_, linesWritten_;
  std::string waiting_ TARNWICK_GUARDED_BY(lock_);
  std::uint64_t added_ TARNWICK_GUARDED_BY(lock_) = 0;    // in bytes, since the process began
  std::uint64_t written_ TARNWICK_GUARDED_BY(lock_) = 0;  // also in bytes
  bool isRunning_ TARNWICK_GUARDED_BY(lock_) = false;
  bool isIdle_ TARNWICK_GUARDED_BY(lock_) = false;
  bool isExiting_ TARNWICK_GUARDED_BY(lock_) = false;
  std::atomic<bool> isForked_ = false;
};

}  // namespace

void logLine(std::string line) noexcept {
  ifMemoryAllows([&] {
    line += '\n';
    if (Log::shared().add(line)) return;
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
  });
}

bool flushLog(std::chrono::milliseconds patience) { return Log::shared().flush(patience); }

}  // namespace tarnwick
