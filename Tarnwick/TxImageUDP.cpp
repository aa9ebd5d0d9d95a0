#include "Tarnwick/TxImageUDP.hpp"

#include <chrono>
#include <utility>

#include "Tarnwick/ImagePacket.hpp"
#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Platform/Memory.hpp"
#include "Tarnwick/Platform/NSThread.hpp"
#include "Tarnwick/Platform/Text.hpp"
#include "Tarnwick/TxStreamImageOperation.hpp"

namespace tarnwick {
namespace {

using namespace std::chrono_literals;

constexpr auto endPause = 1s;  // time to send the current image, and then "End"

}  // namespace

TxImageUDP::TxImageUDP(Private) { operationQueue_.setMaxConcurrentOperationCount(1); }

std::shared_ptr<TxImageUDP> TxImageUDP::create(std::string name, const std::string& serverIPAddress,
                                               std::uint16_t serverPort, std::int64_t chunkSize) {
  auto sender = std::make_shared<TxImageUDP>(Private{});
  sender->client_ =
      UDPClient::create(std::move(name), serverIPAddress, serverPort, chunkSize, sender);
  return sender;
}

void TxImageUDP::beginOperation() {
  if (!client_) return;
  client_->beginOperation();
  // Active with or without a reply: the stream was opened, whether or not a peer receives it.
  client_->send("starting", [this](const std::optional<Data>&) { isActive_ = true; });
}

void TxImageUDP::endOperation() {
  operationQueue_.cancelAllOperations();
  NSThread::sleep(endPause);
  if (client_) client_->resetMessageQueue();
  if (client_) client_->send("End");
  NSThread::sleep(endPause);
  if (client_) client_->endOperation();
  isActive_ = false;
}

void TxImageUDP::send(std::shared_ptr<NSImage> image, const CGRect& rect, std::uint64_t frame,
                      bool fullScreen, float compression) {
  if (!client_) return;
  auto operation = std::make_shared<TxStreamImageOperation>(
      ImagePacket(frame, rect, std::move(image), fullScreen), client_, compression);
  operation->setCompletionBlock([frame] {
    ifMemoryAllows([frame] { logLine("frame " + std::to_string(frame) + " sent"); });
  });
  operationQueue_.addOperation(std::move(operation));
}

void TxImageUDP::receivedResponse(const Data& data) {
  const std::string_view text = characters(data);
  if (isValidUTF8(text)) logLine("got response " + std::string(text));
}

}  // namespace tarnwick
