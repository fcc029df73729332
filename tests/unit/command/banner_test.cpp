#include "command/banner.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

const std::string banner =
    "Velmora 1.2.0  (algorithm not found)\n  Open: http://127.0.0.1:17831/?token=0123abcd\n"
    "  Press Ctrl+C to stop.\n";

TEST(LineRelay, GivesWholeLines) {
  LineRelay relay;
  EXPECT_EQ(relay.take("one"), "");
  EXPECT_EQ(relay.take(" two\nthr"), "one two\n");
  EXPECT_EQ(relay.take("ee\n\nfour"), "three\n\n");
  EXPECT_EQ(relay.take_rest(), "four");
  EXPECT_EQ(relay.take_rest(), "");
  EXPECT_EQ(relay.take(""), "");
}

TEST(LineRelay, LosesNoByteWhereverItIsCut) {
  const std::string text = banner + std::string("\0\r\n\xFF", 4) + "no end";
  for (std::size_t first = 0; first <= text.size(); ++first) {
    LineRelay relay;
    std::string relayed = relay.take(text.substr(0, first));
    relayed += relay.take(text.substr(first));
    EXPECT_TRUE(relayed.ends_with('\n'));
    EXPECT_EQ(relayed + relay.take_rest(), text) << first;
  }
}

TEST(LineRelay, GivesALongLineInPieces) {
  LineRelay relay;
  EXPECT_EQ(relay.take(std::string(relayed_line_bytes - 1, 'x')), "");
  EXPECT_EQ(relay.take("y"), std::string(relayed_line_bytes - 1, 'x') + "y");
  EXPECT_EQ(relay.take("z\n"), "z\n");
}

TEST(Banner, HoldsTheAddress) {
  const auto address = find_banner_line(banner);
  ASSERT_TRUE(address);
  EXPECT_EQ(address->port, 17831);
  EXPECT_EQ(address->token, "0123abcd");
}

TEST(Banner, HoldsATokenOfAnyBytes) {
  const std::string token = "a \"b\" /?token= &%20\xC3\xA9 ";
  const auto address = read_banner_line("  Open: http://127.0.0.1:1/?token=" + token);
  ASSERT_TRUE(address);
  EXPECT_EQ(address->port, 1);
  EXPECT_EQ(address->token, token);
}

TEST(Banner, IsNotFoundElsewhere) {
  const std::string rows[] = {
      "",
      "  Open: http://127.0.0.1:17831/?token=",
      "  Open: http://127.0.0.1:17831/",
      "  Open: http://127.0.0.1:17831?token=a",
      "  Open: http://127.0.0.1:/?token=a",
      "  Open: http://127.0.0.1:0/?token=a",
      "  Open: http://127.0.0.1:65536/?token=a",
      "  Open: http://127.0.0.1:-1/?token=a",
      "  Open: http://127.0.0.2:17831/?token=a",
      "  Open: https://127.0.0.1:17831/?token=a",
      " Open: http://127.0.0.1:17831/?token=a",
      "   Open: http://127.0.0.1:17831/?token=a",
      "  Advanced: http://127.0.0.1:17831/advanced.html?token=a",
  };
  for (const std::string& row : rows) EXPECT_FALSE(read_banner_line(row)) << row;
}

TEST(Banner, TakesTheFirstAddressOfWholeLines) {
  const std::string first = "  Open: http://127.0.0.1:1/?token=a";
  const std::string second = "  Open: http://127.0.0.1:2/?token=b\n";
  EXPECT_FALSE(find_banner_line(first));
  EXPECT_FALSE(find_banner_line("\n" + first));
  EXPECT_EQ(find_banner_line(first + "\n" + second)->port, 1);
  EXPECT_EQ(find_banner_line("x\n\n" + second)->port, 2);
}

}  // namespace
}  // namespace velmora
