#include "api/answers.h"

#include <gtest/gtest.h>

#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using Answers = FreshMachine;

// What the client receives when `write(socket, arguments...)` answers.
std::string sent_by(auto write, auto... arguments) {
  const Accepted accepted = accept_client({});
  write(accepted.socket, arguments...);
  return accepted.client->from_service;
}

TEST_F(Answers, GiveEachErrorItsStatus) {
  EXPECT_EQ(sent_by(write_bad_request, "why"), expected_error("400 Bad Request", "why"));
  EXPECT_EQ(sent_by(write_not_found, "what"), expected_error("404 Not Found", "what"));
  EXPECT_EQ(sent_by(write_unavailable, "who"), expected_error("503 Service Unavailable", "who"));
}

TEST_F(Answers, GiveDocumentsAndPlainSuccessTheirOwnContentTypes) {
  EXPECT_EQ(sent_by(write_ok), expected_ok());
  EXPECT_EQ(sent_by(write_document, "[]"), expected_document("[]"));
}

TEST_F(Answers, ReportWhetherTheRecordWasWritten) {
  EXPECT_EQ(sent_by(answer_publication, BridgeResult::done), expected_ok());
  for (const BridgeResult result : {BridgeResult::value_refused, BridgeResult::not_open, BridgeResult{2}}) {
    EXPECT_EQ(sent_by(answer_publication, result),
              expected_error("503 Service Unavailable", "shared control bridge update failed"));
  }
}

}  // namespace
}  // namespace velmora
