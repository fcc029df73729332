#include "api/answers.h"

#include <gtest/gtest.h>

#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using PublicationAnswer = FreshMachine;

std::string answer_to(BridgeResult result) {
  const Accepted accepted = accept_client({});
  answer_publication(accepted.socket, result);
  return accepted.client->from_service;
}

TEST_F(PublicationAnswer, IsOkOnceTheRecordWasWritten) {
  EXPECT_EQ(answer_to(BridgeResult::done), expected_ok());
}

TEST_F(PublicationAnswer, IsUnavailableWhateverKeptTheRecordFromBeingWritten) {
  for (const BridgeResult result : {BridgeResult::value_refused, BridgeResult::not_open, BridgeResult{2}}) {
    EXPECT_EQ(answer_to(result),
              expected_error("503 Service Unavailable", "shared control bridge update failed"));
  }
}

}  // namespace
}  // namespace velmora
