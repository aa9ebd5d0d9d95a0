#pragma once

#include <concepts>

#include "Support.hpp"
#include "Tarnwick/Platform/Text.hpp"

namespace tarnwick::test {

/// A call of a delegate: a number, rectangle or word, and a hash of the bytes or pixels.
struct Object {
  Object(std::string name, const Data& content)
      : label(std::move(name)), digest(std::hash<std::string_view>()(characters(content))) {}

  std::string label;
  std::size_t digest;

  auto operator<=>(const Object&) const = default;
};

inline std::string label(const std::optional<CGRect>& bounds) {
  if (!bounds) return "screen";
  const auto& [origin, size] = *bounds;
  return shortestDecimal(origin.x) + " " + shortestDecimal(origin.y) + " " +
         shortestDecimal(size.width) + " " + shortestDecimal(size.height);
}

/// The delegate of any receiver. Calls `onObject` before it stores an object.
class Arrivals final : public RxVideoUDPDelegate,
                       public RxImageUDPDelegate,
                       public RxAudioUDPDelegate {
 public:
  Mailbox<Object> objects;
  std::function<void()> onObject = [] {};

 private:
  void videoStarted() override { objects.put({"started", {}}); }
  void videoStopped() override { objects.put({"stopped", {}}); }
  void videoFrameReceived(std::int64_t frameID, Data data) override {
    onObject();
    objects.put({std::to_string(frameID), data});
  }
  void imageReceived(std::shared_ptr<NSImage> image, std::optional<CGRect> bounds) override {
    onObject();
    objects.put({label(bounds), image->bitmap()->pixels});
  }
  void audioReceived(std::int64_t recorded, Data data) override {
    onObject();
    objects.put({std::to_string(recorded), data});
  }
};

template <typename Receiver>
struct Receiving {
  const std::shared_ptr<Arrivals> application = std::make_shared<Arrivals>();
  const std::pair<std::shared_ptr<Receiver>, std::uint16_t> endpoint = onFreePort(
      [this](auto free) { return Receiver::create("receiver", free, 65500, application); });
  const std::shared_ptr<Receiver> receiver = endpoint.first;
  const std::uint16_t port = endpoint.second;
};

template <typename Receiver>
struct Running : Receiving<Receiver> {
  Running() { this->receiver->beginOperation(); }
  ~Running() { this->receiver->endOperation(); }

  Peer peer{this->port};
  MainThread mainThread;
};

template <typename Receiver>
inline constexpr bool isVideo = std::same_as<Receiver, RxVideoUDP>;
template <typename Receiver>
inline constexpr bool isImage = std::same_as<Receiver, RxImageUDP>;

/// The announcement of an object. An image's number is the left side of its rectangle.
template <typename Receiver>
std::string announcement(std::int64_t number, std::size_t size) {
  const std::string n = std::to_string(number), bytes = std::to_string(size);
  if (isImage<Receiver>) return "Size|" + bytes + "|Rect|~" + n + "~0~1~1";
  return (isVideo<Receiver> ? "videoframe|" : "recorded|") + n + "|size|" + bytes;
}

/// A small PNG file, which tests send as an object of each kind.
inline const Data& smallFile() {
  static const Data file = NSImage::create({1, 1})->pngRepresentation().value();
  return file;
}
template <typename Receiver>
Object smallObject(std::int64_t number) {
  if (!isImage<Receiver>) return {std::to_string(number), smallFile()};
  return {label(CGRect{{static_cast<CGFloat>(number), 0}, {1, 1}}), {0, 0, 0, 0}};
}

/// Whether an operation announces its states in order, and continues if cancelled while it runs.
inline bool announcesStates(NSOperation& operation, bool isCancelled) {
  std::string states;
  if (isCancelled) operation.cancel();
  operation.addObserver([&](const NSOperation& now, auto, NSOperation::Change change) {
    const char* const other = now.isExecuting() ? "executing " : "idle ";
    if (change == NSOperation::Change::did) states += now.isFinished() ? "done" : other;
    operation.cancel();
  });
  operation.start();
  return states == (isCancelled ? "done" : "executing idle done");
}

/// Whether a datagram stops the process by design: no field, or an invalid or too large number.
template <typename Receiver>
bool stops(const Data& datagram) {
  const std::string_view text = characters(datagram);
  const bool isText = isValidUTF8(text) && !(isVideo<Receiver> && text.size() >= 200);
  if (isText && text.find_first_not_of("|~") == std::string_view::npos) return true;
  const auto params = Receiver::classify(datagram).params.value_or(std::vector<std::string>());
  const auto isInteger = [](const std::string& param) { return parseInteger(param).has_value(); };
  const auto isTooFar = [](const std::string& param) {
    const float number = parseFloat(param).value_or(0);
    return !(number >= -0x1p63F && number < 0x1p63F);  // also true for NaN
  };
  if (isImage<Receiver>) {
    return params.size() == 5 && isInteger(params[0]) &&
           std::any_of(params.begin() + 1, params.end(), isTooFar);
  }
  return params.size() == 2 && !std::all_of(params.begin(), params.end(), isInteger);
}

/// A short model of a receiver, which predicts the delegate's calls.
template <typename Receiver>
class Model {
 public:
  /// Returns the delegate's call for a datagram, if any. The datagram must not be one that stops().
  std::optional<Object> hear(const Data& datagram) {
    const auto [payload, params, response] = Receiver::classify(datagram);
    const bool isStart = response == RxResponse::Start, isStop = response == RxResponse::Stop;
    if (isStart || (isStop && isImage<Receiver>)) size_.reset();
    if (isVideo<Receiver> && isStart) return Object{"started", {}};
    if (isVideo<Receiver> && isStop) return Object{"stopped", {}};
    if (params && response != RxResponse::Pin && response != RxResponse::Wave) announce(*params);
    if (response != RxResponse::Default || !payload || !size_) return std::nullopt;
    content_.insert(content_.end(), payload->begin(), payload->end());
    if (std::ssize(content_) < *size_) return std::nullopt;
    const bool isComplete = std::ssize(content_) == *std::exchange(size_, std::nullopt);
    return isComplete ? delivered() : std::nullopt;
  }

 private:
  void announce(const std::vector<std::string>& params) {
    const auto size = parseInteger(isImage<Receiver> ? params[0] : params[1]);
    if (!size) return;
    const auto rect = makeCGRect(std::vector(params.begin() + 1, params.end()));
    if (isImage<Receiver> && params.size() == 5 && !rect) return;
    size_ = size;
    label_ = isImage<Receiver> ? label(rect) : std::to_string(*parseInteger(params[0]));
    content_.clear();
  }

  [[nodiscard]] std::optional<Object> delivered() const {
    if (isImage<Receiver>) {
      const auto image = NSImage::fromData(content_);
      return image ? std::optional(Object{label_, image->bitmap()->pixels}) : std::nullopt;
    }
    const bool isDropped = std::same_as<Receiver, RxAudioUDP> && label_ == "0";
    return isDropped ? std::nullopt : std::optional(Object{label_, content_});
  }

  std::string label_;
  std::optional<std::int64_t> size_;
  Data content_;
};

}  // namespace tarnwick::test
