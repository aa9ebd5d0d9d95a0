#include "Tarnwick/RxVideoUDP.hpp"

#include <new>
#include <utility>

#include "Tarnwick/Platform/DispatchQueue.hpp"
#include "Tarnwick/Platform/FatalError.hpp"
#include "Tarnwick/Platform/Text.hpp"
#include "Tarnwick/RxStreamVideoOperation.hpp"

namespace tarnwick {
namespace {

/// A datagram of this many bytes or more is never parsed as text. Only video has this limit.
constexpr std::size_t textLimit = 200;

}  // namespace

RxVideoUDP::RxVideoUDP(Private, std::shared_ptr<RxVideoUDPDelegate> delegate)
    : delegate_(std::move(delegate)) {
  operationQueue_.setMaxConcurrentOperationCount(1);
}

RxVideoUDP::~RxVideoUDP() {
  if (server_) server_->endOperation();
}

std::shared_ptr<RxVideoUDP> RxVideoUDP::create(std::string name, std::uint16_t port,
                                               std::int64_t bufferSize,
                                               std::shared_ptr<RxVideoUDPDelegate> delegate) {
  auto receiver = std::make_shared<RxVideoUDP>(Private{}, std::move(delegate));
  receiver->server_ = UDPServer::create(std::move(name), port, bufferSize, receiver);
  return receiver;
}

void RxVideoUDP::beginOperation() {
  if (server_) server_->beginOperation();
  isActive_ = true;
  frameID_ = 0;
}

void RxVideoUDP::endOperation() {
  operationQueue_.cancelAllOperations();
  if (server_) server_->endOperation();
  isActive_ = false;
}

std::vector<std::string> RxVideoUDP::splitMessage(std::string_view message) const {
  return messageFields(message);
}

RxMessage RxVideoUDP::classify(Data datagram) {
  RxMessage message{std::move(datagram), std::nullopt, RxResponse::Default};
  const std::string_view text = characters(*message.payload);
  if (text.size() >= textLimit || !isValidUTF8(text)) return message;
  const std::string_view command = commandWord(text);
  if (equalsIgnoringCase(command, "start")) return {{}, {}, RxResponse::Start};
  if (equalsIgnoringCase(command, "stop")) return {{}, {}, RxResponse::Stop};
  if (equalsIgnoringCase(command, "videoframe")) {
    const std::vector<std::string> fields = commandFields(text);
    if (fields.size() != 4) return {{}, {}, RxResponse::VideoFrame};
    return {{}, {{fields[1], fields[3]}}, RxResponse::VideoFrame};
  }
  return message;
}

std::optional<Data> RxVideoUDP::processMessageForResponse() {
  if (!server_) return std::nullopt;
  std::optional<Data> datagram = server_->recieve();
  if (!datagram) return std::nullopt;
  try {
    RxMessage message = classify(std::move(*datagram));
    return handleMessage(std::move(message.payload), std::move(message.params), message.response);
  } catch (const std::bad_alloc&) {
    // The datagram is lost: later chunks must not complete the frame in progress.
    currentFrame_.reset();
    return std::nullopt;
  }
}

std::optional<Data> RxVideoUDP::handleMessage(std::optional<Data> data,
                                              std::optional<std::vector<std::string>> params,
                                              RxResponse response) {
  switch (response) {
    case RxResponse::Default:
      if (currentFrame_ && data) appendChunk(std::move(*data));
      return std::nullopt;
    case RxResponse::Start:
      currentFrame_.reset();
      if (delegate_) delegate_->videoStarted();
      return bytes("video|started");
    case RxResponse::Stop:
      // Intentionally keeps the frame in progress: its last chunks may arrive after "stop".
      if (delegate_) delegate_->videoStopped();
      return bytes("video|stopped");
    case RxResponse::VideoFrame:
      if (params) announceFrame(*params);
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

void RxVideoUDP::appendChunk(Data chunk) {
  currentFrame_->appendChunk(std::move(chunk));
  if (currentFrame_->isFull) {
    auto frame = std::exchange(currentFrame_, nullptr);
    DispatchQueue::main().async(
        [receiver = shared_from_this(), frame = std::move(frame)] { receiver->deliver(frame); });
  } else if (currentFrame_->isCorrupt) {
    currentFrame_.reset();
  }
}

void RxVideoUDP::announceFrame(const std::vector<std::string>& params) {
  const std::int64_t frame = unwrapped(parseInteger(element(params, 0)));
  const std::int64_t size = unwrapped(parseInteger(element(params, 1)));
  currentFrame_ = std::make_shared<RxVideoFrame>(frame, size);
}

void RxVideoUDP::deliver(std::shared_ptr<RxVideoFrame> frame) {
  std::shared_ptr<RxStreamVideoOperation> operation;
  try {
    operation = std::make_shared<RxStreamVideoOperation>(std::move(frame));
    operation->setCompletionBlock([receiver = shared_from_this(), operation] {
      if (!operation->data || !receiver->delegate_) return;
      receiver->delegate_->videoFrameReceived(operation->frameID, std::move(*operation->data));
    });
    operationQueue_.addOperation(operation);
  } catch (const std::bad_alloc&) {
    // The frame is dropped. Clearing the block breaks its reference cycle with the operation.
    if (operation) operation->setCompletionBlock(nullptr);
  }
}

}  // namespace tarnwick
