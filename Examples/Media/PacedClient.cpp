#include "Media/PacedClient.hpp"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "Program/Program.hpp"

namespace media {
namespace {

using namespace std::chrono_literals;

/// The client sends one message per pass, which takes a little over 1 ms, and does not report it.
/// Sleeping longer than a pass after each message keeps the queue short. A busy machine delays both
/// threads, so this one must not make up for lost time.
constexpr auto pause = 1250us;
constexpr int queueLength = 100;

/// Returns the first chunk of a payload. The chunk never reads as a message, on which the receiver
/// would act. Neither the chunk nor the rest is separators alone, which can stop the receiver.
tarnwick::Data firstPiece(std::string_view payload, std::size_t chunk, Classifier classify) {
  const std::size_t first = payload.find_first_not_of(tarnwick::fieldSeparators);
  const std::size_t last = payload.find_last_not_of(tarnwick::fieldSeparators);
  std::size_t length = std::max(chunk, first + 1);
  if (first == last || length >= payload.size()) {
    length = payload.size();
  } else {
    length = std::min(length, last);
  }
  if (first == std::string_view::npos || std::cmp_greater(length, program::longestDatagram)) {
    throw program::Trouble(
        "too many bytes \"|\" or \"~\" in a row, more than a datagram holds: what they are part of "
        "cannot be sent; try it in another format");
  }
  // Shortening turns a message into payload, at the latest when one letter is left.
  for (;; --length) {
    tarnwick::RxMessage message = classify(tarnwick::bytes(payload.substr(0, length)));
    if (message.response == tarnwick::RxResponse::Default) return std::move(*message.payload);
  }
}

}  // namespace

PacedClient::PacedClient(const std::string& address, std::uint16_t port) try
    : client_(tarnwick::UDPClient::create("mediasend", address, port)) {
  client_->beginOperation();
} catch (const tarnwick::UDPError& error) {
  throw program::Trouble(program::adviceOn(error, port));
}

PacedClient::~PacedClient() { client_->endOperation(); }

void PacedClient::send(std::string_view message) {
  client_->send(tarnwick::bytes(message));
  std::this_thread::sleep_for(pause);
}

void PacedClient::sendPayload(std::string_view payload, std::size_t chunk, Classifier classify) {
  while (!payload.empty()) {
    const tarnwick::Data piece = firstPiece(payload, chunk, classify);
    send(tarnwick::characters(piece));
    payload.remove_prefix(piece.size());
  }
}

std::optional<std::string> PacedClient::ask(std::string_view message) {
  finish();
  std::optional<std::string> answer;
  client_->send(message, [&answer](const std::optional<tarnwick::Data>& reply) {
    if (reply) answer.emplace(tarnwick::characters(*reply));
  });
  return answer;
}

void PacedClient::finish() {
  for (int i = 0; i < queueLength; ++i) std::this_thread::sleep_for(pause);
}

}  // namespace media
