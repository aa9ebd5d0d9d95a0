#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

namespace [[gnu::visibility("default")]] tarnwick {

/// The running flag of an endpoint that starts a thread for each run. A thread asks whether the run
/// it was started for still goes on, so that one whose run was ended stops for good, also when the
/// next run begins before it has looked. Any thread may call any member.
class RunFlag {
 public:
  /// One run, from begin() to end().
  using Run = std::uint64_t;

  /// Begins a run; absent, and nothing changed, while one goes on.
  [[nodiscard]] std::optional<Run> begin() noexcept {
    std::uint64_t count = count_;
    if (isOdd(count) || !count_.compare_exchange_strong(count, count + 1)) return std::nullopt;
    return count + 1;
  }

  /// Ends the run that goes on, if one does.
  void end() noexcept {
    std::uint64_t count = count_;
    if (isOdd(count)) count_.compare_exchange_strong(count, count + 1);
  }

  /// Ends this run, if it still goes on.
  void end(Run run) noexcept { count_.compare_exchange_strong(run, run + 1); }

  [[nodiscard]] bool isRunning(Run run) const noexcept { return count_ == run; }

 private:
  static bool isOdd(std::uint64_t count) noexcept { return count % 2 == 1; }

  std::atomic<std::uint64_t> count_ = 0;  // of beginnings and ends: odd while a run goes on
};

}  // namespace tarnwick
