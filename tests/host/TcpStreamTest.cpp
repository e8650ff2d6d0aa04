// The TCP transport against a socket of our own.
#include <gtest/gtest.h>

#include <array>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <memory>

#include "host/ports/Devices.h"

namespace ostrel::host {
namespace {

using asio::ip::tcp;

class TcpStreamTest : public testing::Test {
 protected:
  [[nodiscard]] std::string Device() const { return "tcp:127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()); }

  asio::io_context context_;
  tcp::acceptor acceptor_{context_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
};

TEST_F(TcpStreamTest, BytesGoBothWaysUntilTheOtherEndCloses) {
  std::string error;
  const auto stream = DeviceOpener(Device())(error);
  ASSERT_NE(nullptr, stream) << error;
  tcp::socket peer = acceptor_.accept();
  const std::array<std::uint8_t, 3> sent = {1, 2, 3};
  EXPECT_TRUE(stream->Send(sent.data(), sent.size()));
  std::array<std::uint8_t, 3> received{};
  asio::read(peer, asio::buffer(received));
  EXPECT_EQ(sent, received);

  std::array<std::uint8_t, 8> buffer{};
  EXPECT_EQ(0U, stream->Receive(buffer.data(), buffer.size(), 5));
  asio::write(peer, asio::buffer(sent));
  EXPECT_EQ(3U, stream->Receive(buffer.data(), buffer.size(), 1000));
  asio::write(peer, asio::buffer(sent));
  EXPECT_EQ(3U, stream->Receive(buffer.data(), buffer.size(), 1000)) << "a wait that was given up takes no bytes along";
  EXPECT_FALSE(stream->Failed());

  peer.close();
  EXPECT_EQ(0U, stream->Receive(buffer.data(), buffer.size(), 1000));
  EXPECT_TRUE(stream->Failed());
  EXPECT_FALSE(stream->Send(sent.data(), sent.size()));
}

TEST_F(TcpStreamTest, NobodyListening) {
  const std::string device = Device();
  acceptor_.close();
  std::string error;
  EXPECT_EQ(nullptr, DeviceOpener(device)(error));
  EXPECT_EQ(device + ": Connection refused", error);
}

}  // namespace
}  // namespace ostrel::host
