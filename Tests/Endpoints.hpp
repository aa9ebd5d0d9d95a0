#pragma once

#include <gtest/gtest.h>

#include "Tests/Support.hpp"

namespace tarnwick::test {

struct Responder : UDPServerDelegate {
  std::function<std::optional<Data>()> answer = [] { return std::nullopt; };
  std::optional<Data> processMessageForResponse() override { return answer(); }
};

struct Listener : UDPClientDelegate {
  Mailbox<Data> responses;
  std::function<void(const Data&)> listen = [](const Data&) {};
  void receivedResponse(const Data& data) override {
    listen(data);
    responses.put(data);
  }
};

struct Serving {
  explicit Serving(std::int64_t bufferSize = 65500,
                   std::shared_ptr<Responder> delegate = std::make_shared<Responder>())
      : responder(std::move(delegate)), endpoint(onFreePort([&](auto free) {
          return UDPServer::create("server", free, bufferSize, responder);
        })) {}
  ~Serving() { server->endOperation(); }

  [[nodiscard]] Data await() const {
    std::optional<Data> datagram;
    EXPECT_TRUE(eventually([&] { return (datagram = server->recieve()).has_value(); }));
    return datagram.value_or(Data());
  }

  const std::shared_ptr<Responder> responder;
  const std::pair<std::shared_ptr<UDPServer>, std::uint16_t> endpoint;
  UDPServer* const server = endpoint.first.get();
  Peer peer{endpoint.second};
};

struct Sending {
  explicit Sending(std::int64_t bufferSize = 65500,
                   std::shared_ptr<Listener> delegate = std::make_shared<Listener>())
      : listener(std::move(delegate)),
        client(UDPClient::create("client", "127.0.0.1", peer.port(), bufferSize, listener)) {}
  ~Sending() { client->endOperation(); }

  std::size_t hearSize() { return peer.hear().value_or(Data()).size(); }

  Peer peer;
  const std::shared_ptr<Listener> listener;
  const std::shared_ptr<UDPClient> client;
};

template <typename Action>
std::optional<UDPError> errorOf(Action action) try {
  action();
  return std::nullopt;
} catch (const UDPError& error) {
  return error;
}

inline Data pattern(std::size_t size) {
  Data data(size);
  for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return data;
}

inline constexpr auto largest = std::numeric_limits<std::int64_t>::max();

}  // namespace tarnwick::test
