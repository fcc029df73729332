#include "base/status.h"

#include <gtest/gtest.h>

#include <limits>

namespace velmora {
namespace {

std::uint32_t mapped(std::int32_t error) { return static_cast<std::uint32_t>(hresult_from_win32(error)); }

TEST(Status, MarksPositiveErrorsAsWin32) {
  const std::pair<std::int32_t, std::uint32_t> rows[] = {
      {1, 0x80070001},      {2, 0x80070002},      {5, 0x80070005},      {87, 0x80070057},
      {234, 0x800700EA},    {1018, 0x800703FA},   {1450, 0x800705AA},   {1804, 0x8007070C},
      {0x7FFF, 0x80077FFF}, {0x8000, 0x80078000}, {0xFFFF, 0x8007FFFF},
  };
  for (const auto& [error, status] : rows) EXPECT_EQ(mapped(error), status) << error;
}

TEST(Status, KeepsTheLow16BitsOfLargerErrors) {
  EXPECT_EQ(mapped(0x10000), 0x80070000u);
  EXPECT_EQ(mapped(0x10005), 0x80070005u);
  EXPECT_EQ(mapped(0x12345678), 0x80075678u);
  EXPECT_EQ(mapped(std::numeric_limits<std::int32_t>::max()), 0x8007FFFFu);
}

TEST(Status, KeepsZeroAndNegativeValues) {
  for (const std::int32_t value : {0, -1, -5, status_failed, status_invalid_argument, status_wrong_type,
                                   std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(hresult_from_win32(value), value);
  }
}

TEST(Status, NamesHaveTheValuesOfWindows) {
  EXPECT_EQ(static_cast<std::uint32_t>(status_failed), 0x80004005u);
  EXPECT_EQ(static_cast<std::uint32_t>(status_invalid_argument), 0x80070057u);
  EXPECT_EQ(static_cast<std::uint32_t>(status_wrong_type), 0x8007070Cu);
}

}  // namespace
}  // namespace velmora
