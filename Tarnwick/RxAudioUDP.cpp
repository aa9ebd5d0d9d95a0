#include "Tarnwick/RxAudioUDP.hpp"

#include <new>
#include <utility>

#include "Tarnwick/Platform/DispatchQueue.hpp"
#include "Tarnwick/Platform/FatalError.hpp"
#include "Tarnwick/Platform/Text.hpp"
#include "Tarnwick/RxStreamAudioOperation.hpp"

namespace tarnwick {

RxAudioUDP::RxAudioUDP(Private, std::shared_ptr<RxAudioUDPDelegate> delegate)
    : delegate_(std::move(delegate)) {
  operationQueue_.setMaxConcurrentOperationCount(1);
}

RxAudioUDP::~RxAudioUDP() {
  if (server_) server_->endOperation();
}

std::shared_ptr<RxAudioUDP> RxAudioUDP::create(std::string name, std::uint16_t port,
                                               std::int64_t bufferSize,
                                               std::shared_ptr<RxAudioUDPDelegate> delegate) {
  auto receiver = std::make_shared<RxAudioUDP>(Private{}, std::move(delegate));
  receiver->server_ = UDPServer::create(std::move(name), port, bufferSize, receiver);
  return receiver;
}

void RxAudioUDP::beginOperation() {
  if (server_) server_->beginOperation();
  isActive_ = true;
}

void RxAudioUDP::endOperation() {
  operationQueue_.cancelAllOperations();
  if (server_) server_->endOperation();
  isActive_ = false;
}

std::vector<std::string> RxAudioUDP::splitMessage(std::string_view message) const {
  return messageFields(message);
}

RxMessage RxAudioUDP::classify(Data datagram) {
  RxMessage message{std::move(datagram), std::nullopt, RxResponse::Default};
  const std::string_view text = characters(*message.payload);
  if (!isValidUTF8(text)) return message;
  const std::string_view command = commandWord(text);
  if (equalsIgnoringCase(command, "wave")) {
    const std::vector<std::string> fields = commandFields(text);
    if (fields.size() != 6) return message;
    message.params = {fields[1], fields[3], fields[5]};
    message.response = RxResponse::Wave;
    return message;
  }
  if (equalsIgnoringCase(command, "recorded")) {
    const std::vector<std::string> fields = commandFields(text);
    if (fields.size() != 4) return message;
    return {{}, {{fields[1], fields[3]}}, RxResponse::Audio};
  }
  return message;
}

std::optional<Data> RxAudioUDP::processMessageForResponse() {
  if (!server_) return std::nullopt;
  std::optional<Data> datagram = server_->recieve();
  if (!datagram) return std::nullopt;
  try {
    RxMessage message = classify(std::move(*datagram));
    return handleMessage(std::move(message.payload), std::move(message.params), message.response);
  } catch (const std::bad_alloc&) {
    // The datagram is lost: later chunks must not complete the recording in progress.
    currentFrame_.reset();
    return std::nullopt;
  }
}

std::optional<Data> RxAudioUDP::handleMessage(std::optional<Data> data,
                                              std::optional<std::vector<std::string>> params,
                                              RxResponse response) {
  switch (response) {
    case RxResponse::Default:
      if (currentFrame_ && data) appendChunk(std::move(*data));
      return std::nullopt;
    case RxResponse::Wave:
      // The three values are not used. A malformed "wave" is classified as a chunk, intentionally.
      return std::nullopt;
    case RxResponse::Audio:
      if (params) announceRecording(*params);
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

void RxAudioUDP::appendChunk(Data chunk) {
  currentFrame_->appendChunk(std::move(chunk));
  if (currentFrame_->isFull) {
    auto frame = std::exchange(currentFrame_, nullptr);
    DispatchQueue::main().async(
        [receiver = shared_from_this(), frame = std::move(frame)] { receiver->deliver(frame); });
  } else if (currentFrame_->isCorrupt) {
    currentFrame_.reset();
  }
}

void RxAudioUDP::announceRecording(const std::vector<std::string>& params) {
  const std::int64_t recorded = unwrapped(parseInteger(element(params, 0)));
  const std::int64_t size = unwrapped(parseInteger(element(params, 1)));
  currentFrame_ = std::make_shared<RxAudioFrame>(recorded, size);
}

void RxAudioUDP::deliver(std::shared_ptr<RxAudioFrame> frame) {
  std::shared_ptr<RxStreamAudioOperation> operation;
  try {
    operation = std::make_shared<RxStreamAudioOperation>(std::move(frame));
    operation->setCompletionBlock([receiver = shared_from_this(), operation] {
      if (!operation->data || !receiver->delegate_) return;
      receiver->delegate_->audioReceived(operation->recorded, std::move(*operation->data));
    });
    operationQueue_.addOperation(operation);
  } catch (const std::bad_alloc&) {
    // The recording is dropped. Clearing the block breaks its reference cycle with the operation.
    if (operation) operation->setCompletionBlock(nullptr);
  }
}

}  // namespace tarnwick
