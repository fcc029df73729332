#include "command/report.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

const RunRecord run{"1.2.0", 17831, "0123456789abcdef", 4321, "secret"};

StatusDocuments some_documents() {
  return {{},
          *read_document(R"({"apo_host":{"clsid_registered":false},"odd":nan})"),
          *read_document(R"({"bypass":true})"),
          *read_document(R"({"render":[]})")};
}

TEST(Report, IsTwoAlignedBlocks) {
  EXPECT_EQ(format_report(run, some_documents()),
            "Velmora 1.2.0 at http://127.0.0.1:17831/\n"
            "\n"
            "installed    no       The effect is not registered with Windows.\n"
            "added        unknown  The device's effect chain cannot be read yet.\n"
            "engine       unknown  Cannot be read.\n"
            "loaded       unknown  Cannot be read.\n"
            "processing   unknown  Cannot be read.\n"
            "applied      unknown  Cannot be read.\n"
            "\n"
            "device       ?\n"
            "volume       ?\n"
            "enhancement  ?\n"
            "strength     ?\n"
            "bypass all   ?\n"
            "equalizer    off\n"
            "output trim  ?\n"
            "limiter      ?, ceiling ?\n"
            "account      ?\n");
}

TEST(Report, HoldsNothingThatATerminalObeys) {
  StatusDocuments documents = some_documents();
  documents.now = *read_document(R"({"apo_binding":{"endpoint_id":"\u001b[2Jx\ny"}})");
  EXPECT_NE(format_report(run, documents).find("device       ?[2Jx?y\n"), std::string::npos);
}

TEST(Report, IsOneObjectAsJson) {
  const std::string text = format_report_json(run, some_documents());
  EXPECT_TRUE(text.starts_with(
      R"({"version":"1.2.0","address":"http://127.0.0.1:17831/","checks":{"installed":{"state":"no",)"
      R"("text":"The effect is not registered with Windows."},"added":)"))
      << text;
  EXPECT_TRUE(text.ends_with(
      R"("status":{"apo_host":{"clsid_registered":false},"odd":"nan"},"equalizer":{"bypass":true},)"
      R"("devices":{"render":[]}})"
      "\n"))
      << text;
  EXPECT_TRUE(read_document(text));
}

TEST(Report, NeverHoldsTheToken) {
  EXPECT_EQ(format_report(run, some_documents()).find("secret"), std::string::npos);
  EXPECT_EQ(format_report_json(run, some_documents()).find("secret"), std::string::npos);
}

}  // namespace
}  // namespace velmora
