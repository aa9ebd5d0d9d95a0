#include "Tarnwick/RxImageUDP.hpp"

#include <new>
#include <utility>

#include "Tarnwick/CGRectExtension.hpp"
#include "Tarnwick/Platform/DispatchQueue.hpp"
#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Platform/Text.hpp"
#include "Tarnwick/RxStreamImageOperation.hpp"

namespace tarnwick {
namespace {

constexpr std::string_view pairingPin = "5183";

void logAnnouncement(std::int64_t size) {
  logLine("New full frame with size " + std::to_string(size));
}

void logAnnouncement(std::int64_t size, const CGRect& bounds) {
  logLine("New frame with size " + std::to_string(size) + " bounds (" +
          shortestDecimal(bounds.origin.x) + ", " + shortestDecimal(bounds.origin.y) + ", " +
          shortestDecimal(bounds.size.width) + ", " + shortestDecimal(bounds.size.height) + ")");
}

}  // namespace

RxImageUDP::RxImageUDP(Private, std::shared_ptr<RxImageUDPDelegate> delegate)
    : delegate_(std::move(delegate)) {
  operationQueue_.setMaxConcurrentOperationCount(1);
}

RxImageUDP::~RxImageUDP() {
  if (server_) server_->endOperation();
}

std::shared_ptr<RxImageUDP> RxImageUDP::create(std::string name, std::uint16_t port,
                                               std::int64_t bufferSize,
                                               std::shared_ptr<RxImageUDPDelegate> delegate) {
  auto receiver = std::make_shared<RxImageUDP>(Private{}, std::move(delegate));
  receiver->server_ = UDPServer::create(std::move(name), port, bufferSize, receiver);
  return receiver;
}

void RxImageUDP::beginOperation() {
  if (server_) server_->beginOperation();
  isActive_ = true;
}

void RxImageUDP::endOperation() {
  operationQueue_.cancelAllOperations();
  if (server_) server_->endOperation();
  isActive_ = false;
}

std::vector<std::string> RxImageUDP::splitMessage(std::string_view message) const {
  return messageFields(message);
}

bool RxImageUDP::approveConnection(std::string_view pin) const { return pin == pairingPin; }

RxMessage RxImageUDP::classify(Data datagram) {
  RxMessage message{std::move(datagram), std::nullopt, RxResponse::Default};
  const std::string_view text = characters(*message.payload);
  if (!isValidUTF8(text)) return message;
  const std::string_view command = commandWord(text);
  if (equalsIgnoringCase(command, "pin")) {
    const std::vector<std::string> fields = commandFields(text);
    if (fields.size() != 2) return message;
    message.params = {fields[1]};
    message.response = RxResponse::Pin;
  } else if (equalsIgnoringCase(command, "size")) {
    const std::vector<std::string> fields = commandFields(text);
    if (fields.size() == 2) {
      message.params = {fields[1]};
    } else if (fields.size() == 7) {
      message.params = {fields[1], fields[3], fields[4], fields[5], fields[6]};
    } else {
      return message;
    }
    message.response = RxResponse::Size;
  } else if (equalsIgnoringCase(command, "starting")) {
    message.response = RxResponse::Start;
  } else if (equalsIgnoringCase(command, "end")) {
    message.response = RxResponse::Stop;
  } else {
    // Intentional: a text that is not a command is not a chunk of an image either.
    message.payload.reset();
  }
  return message;
}

std::optional<Data> RxImageUDP::processMessageForResponse() {
  if (!server_) return std::nullopt;
  std::optional<Data> datagram = server_->recieve();
  if (!datagram) return std::nullopt;
  try {
    RxMessage message = classify(std::move(*datagram));
    return handleMessage(std::move(message.payload), std::move(message.params), message.response);
  } catch (const std::bad_alloc&) {
    // The datagram is lost: later chunks must not complete the image in progress.
    currentFrame_.reset();
    return std::nullopt;
  }
}

std::optional<Data> RxImageUDP::handleMessage(std::optional<Data> data,
                                              std::optional<std::vector<std::string>> params,
                                              RxResponse response) {
  switch (response) {
    case RxResponse::Default:
      if (currentFrame_ && data) appendChunk(std::move(*data));
      return std::nullopt;
    case RxResponse::Pin:
      return answerPin(params);
    case RxResponse::Start:
      currentFrame_.reset();
      return std::nullopt;
    case RxResponse::Stop:
      currentFrame_.reset();
      if (server_) server_->clearRxQueue();
      return std::nullopt;
    case RxResponse::Size:
      if (params) announceImage(*params);
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

void RxImageUDP::appendChunk(Data chunk) {
  currentFrame_->appendChunk(std::move(chunk));
  if (currentFrame_->isFull) {
    auto frame = std::exchange(currentFrame_, nullptr);
    DispatchQueue::main().async(
        [receiver = shared_from_this(), frame = std::move(frame)] { receiver->deliver(frame); });
  } else if (currentFrame_->isCorrupt) {
    currentFrame_.reset();
  }
}

Data RxImageUDP::answerPin(const std::optional<std::vector<std::string>>& params) const {
  if (!params || params->size() != 1) return {static_cast<std::uint8_t>(RxResponse::Unknown)};
  return bytes(approveConnection(params->front()) ? "pin|ok" : "pin|rejected");
}

void RxImageUDP::announceImage(const std::vector<std::string>& params) {
  const bool isFullScreen = params.size() == 1, isRegion = params.size() == 5;
  if (!isFullScreen && !isRegion) return;
  const std::optional<std::int64_t> size = parseInteger(params.front());
  if (!size) return;
  if (isFullScreen) {
    logAnnouncement(*size);
    currentFrame_ = std::make_shared<RxImageFrame>(*size);
    return;
  }
  const std::optional<CGRect> bounds =
      makeCGRect(std::vector<std::string>(params.begin() + 1, params.end()));
  if (!bounds) return;
  logAnnouncement(*size, *bounds);
  currentFrame_ = std::make_shared<RxImageFrame>(*size, *bounds);
}

void RxImageUDP::deliver(std::shared_ptr<RxImageFrame> frame) {
  std::shared_ptr<RxStreamImageOperation> operation;
  try {
    operation = std::make_shared<RxStreamImageOperation>(std::move(frame));
    operation->setCompletionBlock([receiver = shared_from_this(), operation] {
      if (!operation->image || !receiver->delegate_) return;
      receiver->delegate_->imageReceived(std::move(operation->image), operation->bounds);
    });
    operationQueue_.addOperation(operation);
  } catch (const std::bad_alloc&) {
    // The image is dropped. Clearing the block breaks its reference cycle with the operation.
    if (operation) operation->setCompletionBlock(nullptr);
  }
}

}  // namespace tarnwick
