#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace tarnwick::test {

/// In megabytes. Smaller increases are ignored. The sanitizers need more memory themselves.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr std::int64_t notableGrowth = 128;
#else
inline constexpr std::int64_t notableGrowth = 32;
#endif

/// The resources of this process, from /proc.
struct Holdings {
  std::int64_t descriptors = 0, threads = 0, megabytes = 0;

  [[nodiscard]] bool exceed(const Holdings& before, std::int64_t allowance = notableGrowth) const {
    return descriptors > before.descriptors || threads > before.threads ||
           megabytes > before.megabytes + allowance;
  }
  [[nodiscard]] std::string text() const {
    return std::to_string(descriptors) + " descriptors, " + std::to_string(threads) + " threads, " +
           std::to_string(megabytes) + " MB";
  }
};

inline std::int64_t residentBytes() {
  std::int64_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return pages * sysconf(_SC_PAGESIZE);
}

inline Holdings holdings() {
  const auto entries = [](const char* directory) {
    const std::filesystem::directory_iterator first(directory), last;
    return static_cast<std::int64_t>(std::distance(first, last));
  };
  return {entries("/proc/self/fd") - 1, entries("/proc/self/task"), residentBytes() / 1'000'000};
}

/// The number of datagrams that the system has dropped at a port because its buffer was full.
inline std::int64_t droppedAt(std::uint16_t port) {
  std::ifstream table("/proc/net/udp");
  std::int64_t dropped = 0;
  for (std::string line; std::getline(table, line);) {
    std::istringstream row(line);
    std::string field, address;
    row >> field >> address;
    while (row >> field) continue;                                  // ends with the last: the drops
    const std::string hex = address.substr(address.find(':') + 1);  // 0 for the header
    if (std::strtol(hex.c_str(), nullptr, 16) == port) dropped += std::stoll(field);
  }
  return dropped;
}

}  // namespace tarnwick::test
