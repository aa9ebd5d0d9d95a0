#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "Tarnwick/BaseStreamOperation.hpp"
#include "Tarnwick/ImagePacket.hpp"
#include "Tarnwick/UDPClient.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Encodes one image as JPEG and queues it on a client: first the text that announces it, then its
/// bytes. Queues nothing if the encoding fails. An image without a bitmap, or a rectangle to be
/// sent that does not fit integers, is a fatal error.
class TxStreamImageOperation final : public BaseStreamOperation {
 public:
  /// `endpoint` must not be null. `factor`, the compression factor, runs from 0.0, the smallest
  /// file, to 1.0, the best picture.
  TxStreamImageOperation(ImagePacket image, std::shared_ptr<UDPClient> endpoint, float factor)
      : packet(std::move(image)), client(std::move(endpoint)), compression(factor) {}
  TxStreamImageOperation() = delete;

  /// Returns the text that announces the image as a file of `size` bytes. A rectangle that does not
  /// fit integers is a fatal error, unless the image is the full screen. Any thread may call it.
  [[nodiscard]] static std::string header(const ImagePacket& image, std::size_t size);

  /// Encodes and queues, unless the operation was cancelled. Called on a thread of the queue.
  void main() override;

  const ImagePacket packet;                 ///< the image to send
  const std::shared_ptr<UDPClient> client;  ///< the endpoint that sends the image
  const float compression;                  ///< the compression factor
};

}  // namespace tarnwick
