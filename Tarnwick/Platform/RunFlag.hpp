#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

namespace [[gnu::visibility("default")]] tarnwick {

/// The running flag of an endpoint that starts a thread for each run. A thread asks whether its own
/// run is still in progress. If that run has ended, the thread ends, even if the next run began
/// before it asked. Any thread may call any member.
class RunFlag {
 public:
  /// One run, from begin() to end().
  using Run = std::uint64_t;

  /// Begins a run. Returns no value and changes nothing while another run is in progress.
  [[nodiscard]] std::optional<Run> begin() noexcept {
    std::uint64_t count = count_;
    if (isOdd(count) || !count_.compare_exchange_strong(count, count + 1)) return std::nullopt;
    return count + 1;
  }

  /// Ends the run in progress, if any.
  void end() noexcept {
    std::uint64_t count = count_;
    if (isOdd(count)) count_.compare_exchange_strong(count, count + 1);
  }

  /// Ends this run, if it is still in progress.
  void end(Run run) noexcept { count_.compare_exchange_strong(run, run + 1); }

  [[nodiscard]] bool isRunning(Run run) const noexcept { return count_ == run; }

 private:
  static bool isOdd(std::uint64_t count) noexcept { return count % 2 == 1; }

  std::atomic<std::uint64_t> count_ = 0;  // of beginnings and ends; odd during a run
};

}  // namespace tarnwick
