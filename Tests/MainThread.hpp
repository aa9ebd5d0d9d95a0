#pragma once

#include <thread>

#include "Tarnwick/Platform/DispatchQueue.hpp"

namespace tarnwick::test {

/// Drains the main queue for its lifetime, as an application's main thread would.
class MainThread {
 public:
  MainThread() : thread_([] { DispatchQueue::main().run(); }) {}
  ~MainThread() {
    DispatchQueue::main().stop();
    thread_.join();
  }
  MainThread(const MainThread&) = delete;
  MainThread& operator=(const MainThread&) = delete;

 private:
  std::thread thread_;
};

}  // namespace tarnwick::test
