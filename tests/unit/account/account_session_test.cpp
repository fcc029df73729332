#include "account/account_session.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

class Session : public FreshMachine {
 protected:
  AccountSession session_;
};

AccountSession full_session() {
  AccountSession session;
  session.account_hash = "hash";
  session.signed_in_unix = 5;
  session.usage_seconds = 60;
  session.token = "token";
  session.public_id = "P1";
  session.primary_machine_id = "M1";
  session.primary_known = true;
  session.referral_open = true;
  session.referrer = "R1";
  session.invite_url = "https://invite";
  return session;
}

TEST_F(Session, StartsSignedOut) {
  EXPECT_TRUE(session_.account_hash.empty());
  EXPECT_EQ(session_.signed_in_unix, 0);
}

TEST_F(Session, StartsAtThePresentTime) {
  begin_session(session_, "hash", "token");
  EXPECT_EQ(session_.account_hash, "hash");
  EXPECT_EQ(session_.token, "token");
  EXPECT_EQ(session_.signed_in_unix, 1'700'000'000);
}

TEST_F(Session, KeepsTheUsageOfTheSameUser) {
  session_ = full_session();
  begin_session(session_, "hash", "another token");
  EXPECT_EQ(session_.usage_seconds, 60);
  EXPECT_EQ(session_.signed_in_unix, 1'700'000'000);
  EXPECT_EQ(session_.token, "another token");
}

TEST_F(Session, StartsTheUsageOfAnotherUserAtZero) {
  session_ = full_session();
  begin_session(session_, "another hash", "token");
  EXPECT_EQ(session_.usage_seconds, 0);
}

TEST_F(Session, StartsAtZeroAfterASignOut) {
  session_ = full_session();
  clear_session(session_);
  EXPECT_EQ(session_.usage_seconds, 60);
  begin_session(session_, "hash", "token");
  EXPECT_EQ(session_.usage_seconds, 0);
  EXPECT_EQ(session_.public_id, "P1");
}

TEST_F(Session, KeepsDisplayedValuesWhenItEnds) {
  session_ = full_session();
  clear_session(session_);
  AccountSession expected = full_session();
  expected.account_hash.clear();
  expected.token.clear();
  expected.primary_machine_id.clear();
  expected.signed_in_unix = 0;
  expected.primary_known = false;
  EXPECT_EQ(session_, expected);
}

TEST_F(Session, CountsUsageWhileSomebodyIsSignedIn) {
  add_usage(session_, 30);
  EXPECT_EQ(session_.usage_seconds, 0);
  session_.account_hash = "hash";
  for (const std::int64_t seconds : {30, 0, -5, 1}) add_usage(session_, seconds);
  EXPECT_EQ(session_.usage_seconds, 31);
}

TEST_F(Session, KnowsAnEmptyPrimaryMachine) {
  set_primary_machine(session_, "");
  EXPECT_TRUE(session_.primary_known);
  set_primary_machine(session_, "M2");
  EXPECT_EQ(session_.primary_machine_id, "M2");
}

TEST_F(Session, ClosesTheReferralWhenAReferrerIsNamed) {
  set_referral(session_, true, "", "https://invite");
  EXPECT_TRUE(session_.referral_open);
  bind_referrer(session_, "R2");
  EXPECT_FALSE(session_.referral_open);
  EXPECT_EQ(session_.referrer, "R2");
  EXPECT_EQ(session_.invite_url, "https://invite");
}

class StaleSession : public FreshMachine {
 protected:
  static std::string removed_from(std::u16string_view data_directory) {
    memory::reset();
    memory::system().environment[u"ProgramData"] = data_directory;
    for (const char* path : {"C:\\ProgramData\\Velmora\\session.json", "D:\\data\\Velmora\\session.json"}) {
      memory::system().files[path].bytes = "{}";
    }
    remove_stale_session_file();
    std::string removed;
    if (!memory::system().files.contains("C:\\ProgramData\\Velmora\\session.json")) removed += 'C';
    if (!memory::system().files.contains("D:\\data\\Velmora\\session.json")) removed += 'D';
    return removed;
  }
};

TEST_F(StaleSession, IsRemovedFromTheCommonDataDirectory) {
  EXPECT_EQ(removed_from(u""), "C");
  EXPECT_EQ(removed_from(u"D:\\data"), "D");
}

TEST_F(StaleSession, IsSearchedInTheDefaultDirectoryIfTheVariableIsTooLong) {
  const auto path_of = [](std::size_t units) { return std::u16string(u"D:\\data").append(units - 7, u'x'); };
  EXPECT_EQ(removed_from(path_of(259)), "");
  EXPECT_EQ(removed_from(path_of(260)), "C");
}

TEST_F(StaleSession, MayBeMissing) {
  remove_stale_session_file();
  memory::system().files["C:\\ProgramData\\Velmora\\session.json"].kind = FileKind::directory;
  remove_stale_session_file();
  EXPECT_TRUE(memory::system().files.contains("C:\\ProgramData\\Velmora\\session.json"));
}

}  // namespace
}  // namespace velmora
