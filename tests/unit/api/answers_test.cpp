#include "api/answers.h"

#include <gtest/gtest.h>

#include "unit/api/support/routes.h"

namespace velmora {
namespace {

using Answers = FreshMachine;

TEST_F(Answers, GiveEachErrorItsStatus) {
  EXPECT_EQ(answer_of(write_bad_request, "why"), expected_error("400 Bad Request", "why"));
  EXPECT_EQ(answer_of(write_not_found, "what"), expected_error("404 Not Found", "what"));
  EXPECT_EQ(answer_of(write_unavailable, "who"), expected_error("503 Service Unavailable", "who"));
}

TEST_F(Answers, GiveEachKindOfSuccessItsContentType) {
  EXPECT_EQ(answer_of(write_ok), expected_ok());
  EXPECT_EQ(answer_of(write_document, "[]"), expected_document("[]"));
}

TEST_F(Answers, ReportWhetherTheRecordWasWritten) {
  EXPECT_EQ(answer_of(answer_publication, BridgeResult::done), expected_ok());
  for (const BridgeResult result : {BridgeResult::value_refused, BridgeResult::not_open, BridgeResult{2}}) {
    EXPECT_EQ(answer_of(answer_publication, result), publication_failed);
  }
}

}  // namespace
}  // namespace velmora
