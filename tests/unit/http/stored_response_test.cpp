#include "http/stored_response.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "unit/support/expected_response.h"

namespace velmora {
namespace {

TEST(StoredResponse, HoldsHeadAndBody) {
  const std::string bodies[] = {"", "x", std::string("\r\n\r\n\0\xFF", 6), std::string(1'234'567, 'b')};
  for (const std::string& body : bodies) {
    for (const std::string& type : {std::string("application/json"), std::string(64, 't'), std::string()}) {
      SCOPED_TRACE(type + " of " + std::to_string(body.size()));
      const StoredResponse response(type, body);
      EXPECT_EQ(response.bytes(), expected_response("200 OK", type, body));
      EXPECT_EQ(response.body(), body);
    }
  }
}

TEST(StoredResponse, TakesABodyThatIsInItsPlace) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4096}}) {
    ResponseMemory memory(4096);
    char* const place = memory.body();
    std::fill_n(place, size, 'p');
    const StoredResponse response("text/html", std::move(memory), size);
    EXPECT_EQ(response.bytes(), expected_response("200 OK", "text/html", std::string(size, 'p')));
    EXPECT_EQ(response.body().data(), place);
  }
}

TEST(StoredResponse, KeepsItsBytesWhenMoved) {
  StoredResponse first("text/html", "body");
  const char* const place = first.bytes().data();
  StoredResponse second;
  EXPECT_EQ(second.bytes(), "");
  EXPECT_EQ(second.body(), "");
  second = std::move(first);
  EXPECT_EQ(second.bytes(), expected_response("200 OK", "text/html", "body"));
  EXPECT_EQ(second.bytes().data(), place);
}

}  // namespace
}  // namespace velmora
