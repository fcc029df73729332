// What the machine in memory answers by order, which no real machine can be made to.
#include <gtest/gtest.h>

#include <array>
#include <ctime>
#include <string>

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/shared_memory.h"
#include "platform/sockets.h"
#include "platform/standin/system.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class StandinFaults : public surroundings::Arranged {};

TEST_F(StandinFaults, LeaveTheTimeUntouchedWhenItCannotBeTold) {
  standin::system().local_time.reset();
  std::tm time{};
  time.tm_year = 77;
  EXPECT_FALSE(read_local_time(time));
  EXPECT_EQ(time.tm_year, 77);
}

TEST_F(StandinFaults, TellThatThereAreNoRandomBytes) {
  standin::system().random_available = false;
  std::array<unsigned char, 4> buffer{};
  EXPECT_FALSE(fill_random(buffer.data(), buffer.size()));
}

TEST_F(StandinFaults, TellBothNumbersOfAMappingThatCannotBeMade) {
  SharedMapping mapping;
  standin::system().faults["ConvertStringSecurityDescriptorToSecurityDescriptorW"] = {1336};
  CreatedMapping created = create_shared_mapping(u"Local\\Faulty", 576, mapping);
  EXPECT_EQ(created.descriptor_error, 1336u);
  EXPECT_EQ(created.create_error, 0u);
  standin::system().faults["CreateFileMappingW"] = {8};
  created = create_shared_mapping(u"Local\\Faulty", 576, mapping);
  EXPECT_EQ(created.descriptor_error, 0u);
  EXPECT_EQ(created.create_error, 8u);
  EXPECT_FALSE(mapping.is_open());
}

TEST_F(StandinFaults, EndAReadingWithTheFilesError) {
  standin::system().files["/scratch/bad"] = {FileKind::regular, "ab", 1117};
  InputFile file;
  ASSERT_EQ(open_for_reading("/scratch/bad", file), 0u);
  std::array<char, 8> buffer{};
  EXPECT_EQ(read_file_piece(file, buffer.data(), buffer.size()).count, 2u);
  const FileRead read = read_file_piece(file, buffer.data(), buffer.size());
  EXPECT_EQ(read.count, 0u);
  EXPECT_EQ(read.error, 1117u);
}

TEST_F(StandinFaults, AnswerInOrderAndLetACallPassForAZero) {
  Socket socket;
  standin::system().faults["socket"] = {10055, 0, 10024};
  EXPECT_EQ(open_tcp_socket(socket), 10055);
  EXPECT_EQ(open_tcp_socket(socket), 0);
  EXPECT_EQ(open_tcp_socket(socket), 10024);
  EXPECT_EQ(open_tcp_socket(socket), 0);
}

TEST_F(StandinFaults, EndAWaitForAConnection) {
  Socket listener;
  ASSERT_EQ(open_tcp_socket(listener), 0);
  ASSERT_EQ(listen_at_maximum(listener), 0);
  standin::system().faults["select"] = {10004};
  const SocketCount ready = wait_readable(listener, 1000);
  EXPECT_EQ(ready.count, -1);
  EXPECT_EQ(ready.error, 10004);
}

TEST_F(StandinFaults, CutASendToTheLimitOfTheConnection) {
  Socket listener;
  ASSERT_EQ(open_tcp_socket(listener), 0);
  ASSERT_EQ(listen_at_maximum(listener), 0);
  const auto connection = standin::connect_client({});
  connection->send_limit = 3;
  Socket socket;
  ASSERT_EQ(accept_connection(listener, socket), 0);
  EXPECT_EQ(send_bytes(socket, "abcdef", 6).count, 3);
  EXPECT_EQ(send_bytes(socket, "de", 2).count, 2);
  EXPECT_EQ(connection->from_service, "abcde");
}

}  // namespace
}  // namespace velmora
