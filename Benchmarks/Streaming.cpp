// Measures a sender and a receiver together: latency, CPU time and memory use of their pictures.
#include <Tarnwick/Tarnwick.hpp>
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Comparison.hpp"
#include "Desktop.hpp"
#include "Sockets.hpp"
#include "Tarnwick/Platform/DispatchSemaphore.hpp"
#include "Tests/Process.hpp"

namespace tarnwick::benchmarks {
namespace {

using Moment = std::chrono::steady_clock;
constexpr float factor = 0.5F;  // with this factor, the region's file fits one datagram
constexpr std::int64_t chunkSize = 65500;

double since(Moment::time_point start) {
  return std::chrono::duration<double, std::nano>(Moment::now() - start).count();
}

/// Creates a new image, as a stream does for each frame. A reused one would hold its JPEG file.
std::shared_ptr<NSImage> picture(const Bitmap& bitmap) { return NSImage::fromBitmap(bitmap); }

/// Encodes a picture's number as a rectangle.
CGRect place(std::uint64_t number) { return {{static_cast<CGFloat>(number), 0}, {1, 1}}; }

/// Notes the number of the newest picture of one width, for which another thread can wait.
class Viewer final : public RxImageUDPDelegate {
 public:
  explicit Viewer(std::int64_t width) : width_(static_cast<CGFloat>(width)) {}

  /// Waits for this picture or a later one. Gives up after half a second without a picture.
  void await(std::uint64_t number) {
    constexpr std::chrono::milliseconds patience(500);
    while (newest_ < place(number).origin.x && arrived_.wait(patience)) continue;
  }

 private:
  void imageReceived(std::shared_ptr<NSImage> image, std::optional<CGRect> bounds) override {
    if (image->size().width != width_ || !bounds) return;
    newest_ = bounds->origin.x;
    arrived_.signal();
  }

  const CGFloat width_;
  std::atomic<CGFloat> newest_ = 0;
  DispatchSemaphore arrived_;
};

/// What a stream sends: a picture and, if its file exceeds one datagram, one that is sent after it.
struct Content {
  const char* name;
  Bitmap bitmap, behind;
};

/// The pace of the pictures: the minimum time from the start of one to the start of the next.
struct Pace {
  const char* name;
  std::chrono::milliseconds interval;
};

using Sample = std::function<double()>;  // in nanoseconds; half a second means a loss

/// Takes samples at a pace and returns a percentile of them.
double percentile(int percent, const Pace& pace, const Sample& sample) {
  constexpr int count = 50;
  std::vector<double> times;
  auto next = Moment::now();
  for (int i = 0; i < count; ++i) {
    times.push_back(sample());
    next = std::max(Moment::now(), next + pace.interval);
    std::this_thread::sleep_until(next);
  }
  const auto nth = times.begin() + std::ssize(times) * percent / 100;
  std::nth_element(times.begin(), nth, times.end());
  return *nth;
}

/// A running sender and receiver, and a thread that drains the main queue.
class Stream {
 public:
  explicit Stream(std::int64_t width) : viewer(std::make_shared<Viewer>(width)) {
    receiver_->beginOperation();
    sender->beginOperation();
  }
  ~Stream() {
    sender->endOperation();
    receiver_->endOperation();
    DispatchQueue::main().stop();
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  const std::shared_ptr<Viewer> viewer;

 private:
  const std::uint16_t port_ = freePort();
  const std::shared_ptr<RxImageUDP> receiver_ =
      RxImageUDP::create("receiver", port_, chunkSize, viewer);
  const std::jthread mainThread_{[] { DispatchQueue::main().run(); }};

 public:
  const std::shared_ptr<TxImageUDP> sender =
      TxImageUDP::create("sender", "127.0.0.1", port_, chunkSize);
};

double sendAndReceive(const Content& content, const Pace& pace, int percent) {
  Stream stream(content.bitmap.width);
  std::uint64_t frame = 0;
  return percentile(percent, pace, [&] {
    const auto image = picture(content.bitmap), behind = picture(content.behind);
    const auto start = Moment::now();
    ++frame;
    stream.sender->send(image, place(frame), frame, false, factor);
    if (behind) stream.sender->send(behind, place(frame), frame, false, factor);
    stream.viewer->await(frame);
    return since(start);
  });
}

/// The reference: the sum of the times for encoding, sending and decoding, each measured alone.
double stepsAlone(const Content& content, const Pace& pace, int percent) {
  const double encoding = percentile(percent, pace, [&] {
    const auto image = picture(content.bitmap);
    const auto start = Moment::now();
    benchmark::DoNotOptimize(image->jpegRepresentation(factor));
    return since(start);
  });
  const Data file = picture(content.bitmap)->jpegRepresentation(factor).value();
  const double decoding = percentile(percent, pace, [&] {
    const auto start = Moment::now();
    benchmark::DoNotOptimize(NSImage::fromData(file));
    return since(start);
  });
  Listener listener;
  listener.setNonBlocking();
  const auto client = UDPClient::create("client", "127.0.0.1", listener.port(), chunkSize);
  client->beginOperation();
  Data buffer(chunkSize);
  const double passing = percentile(percent, pace, [&] {
    while (listener.receive(buffer) != -1) continue;
    const auto start = Moment::now();
    client->send("Size|" + std::to_string(file.size()));
    client->send(file);
    if (content.behind.width != 0) client->send("behind");
    const std::size_t datagrams = 1 + (file.size() + chunkSize - 1) / chunkSize;
    for (std::size_t i = 0; i < datagrams && since(start) < 500e6;) {
      if (listener.receive(buffer) != -1) ++i;
    }
    return since(start);
  });
  client->endOperation();
  return encoding + passing + decoding;
}

void addLatency() {
  const Content region{"a 640x360 region", desktop(640, 360), {}};
  const Content screen{"1920x1080, a region behind", desktop(1920, 1080), desktop(64, 64)};
  const Pace rest{"at rest", std::chrono::milliseconds(60)};
  const Pace stream{"30 a second", std::chrono::milliseconds(33)};
  for (const Content& content : {region, screen}) {
    for (const Pace& pace : {rest, stream}) {
      for (const auto& [percent, goal] : {std::pair(50, 1.15), {95, 1.3}}) {
        compareFigures(
            std::string("send to delegate, ") + content.name + ", " + pace.name + ", p" +
                std::to_string(percent),
            Unit::nanoseconds, {goal},
            [content, pace, percent = percent](benchmark::State&) {
              return sendAndReceive(content, pace, percent);
            },
            [content, pace, percent = percent](benchmark::State&) {
              return stepsAlone(content, pace, percent);
            });
      }
    }
  }
}

double processorTime(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

/// Returns the CPU time of all threads but the calling one.
double othersTime() {
  return processorTime(CLOCK_PROCESS_CPUTIME_ID) - processorTime(CLOCK_THREAD_CPUTIME_ID);
}

constexpr int pictureCount = 60;

double sendAlone(benchmark::State&) {
  const Bitmap bitmap = desktop(1920, 1080);
  const Listener listener;  // never reads: the kernel drops what exceeds its buffer
  const auto sender = TxImageUDP::create("sender", "127.0.0.1", listener.port(), chunkSize);
  sender->beginOperation();
  const double before = othersTime();
  auto next = Moment::now();
  for (int i = 0; i < pictureCount; ++i) {
    sender->send(picture(bitmap), {}, static_cast<std::uint64_t>(i), true, factor);
    std::this_thread::sleep_until(next += std::chrono::milliseconds(33));
  }
  const double time = othersTime() - before;
  sender->endOperation();
  return time / pictureCount;
}

double encodeAlone(benchmark::State&) {
  const Bitmap bitmap = desktop(1920, 1080);
  double time = 0;
  auto next = Moment::now();
  for (int i = 0; i < pictureCount; ++i) {
    const auto image = picture(bitmap);
    const double before = processorTime(CLOCK_PROCESS_CPUTIME_ID);
    benchmark::DoNotOptimize(image->jpegRepresentation(factor));
    time += processorTime(CLOCK_PROCESS_CPUTIME_ID) - before;
    std::this_thread::sleep_until(next += std::chrono::milliseconds(33));
  }
  return time / pictureCount;
}

/// Runs this program in a new process. Returns the number on the last line of its output.
double memoryOfProcessAfter(int count) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  const std::string command = "'" + self + "' --memory-after " + std::to_string(count);
  const std::unique_ptr<FILE, decltype(&pclose)> output(popen(command.c_str(), "r"), pclose);
  std::array<char, 256> line{};
  double bytes = 0;
  while (output && std::fgets(line.data(), line.size(), output.get()) != nullptr) {
    bytes = std::strtod(line.data(), nullptr);
  }
  return bytes;
}

}  // namespace

double memoryAfter(int pictures) {
  const Bitmap bitmap = desktop(320, 180);
  Stream stream(bitmap.width);
  for (std::uint64_t i = 1; i <= static_cast<std::uint64_t>(pictures); ++i) {
    stream.sender->send(picture(bitmap), place(i), i, false, factor);
    stream.viewer->await(i);
  }
  return static_cast<double>(test::residentBytes());
}

void addStreaming() {
  addLatency();
  compareFigures("sender, CPU time of a 1920x1080 picture, 30 a second", Unit::nanoseconds, {1.15},
                 sendAlone, encodeAlone);
  compareFigures(
      "memory of sender and receiver after 10,000 pictures, beside 100", Unit::bytes, {1},
      [](benchmark::State&) { return memoryOfProcessAfter(10000); },
      [](benchmark::State&) { return memoryOfProcessAfter(100); });
}

}  // namespace tarnwick::benchmarks
