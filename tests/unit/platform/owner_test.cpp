#include "platform/owner.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

namespace velmora {
namespace {

std::vector<int> released;

struct NumberKind {
  using Native = int;
  static constexpr Native none = -1;
  static void release(Native native) noexcept { released.push_back(native); }
};
using Number = Owner<NumberKind>;

static_assert(!std::is_copy_constructible_v<Number> && !std::is_copy_assignable_v<Number>);
static_assert(std::is_nothrow_move_constructible_v<Number> && std::is_nothrow_move_assignable_v<Number>);

class PlatformOwner : public ::testing::Test {
 protected:
  void SetUp() override { released.clear(); }
};

TEST_F(PlatformOwner, StartsClosedAndReleasesNothing) {
  {
    Number owner;
    EXPECT_FALSE(owner.is_open());
    EXPECT_EQ(owner.native(), -1);
    owner.close();
  }
  EXPECT_TRUE(released.empty());
}

TEST_F(PlatformOwner, ReleasesOnceOnDestruction) {
  {
    const Number owner(7);
    EXPECT_TRUE(owner.is_open());
    EXPECT_EQ(owner.native(), 7);
    EXPECT_TRUE(released.empty());
  }
  EXPECT_EQ(released, std::vector{7});
}

TEST_F(PlatformOwner, ReleasesOnceIfClosedTwice) {
  {
    Number owner(7);
    owner.close();
    EXPECT_FALSE(owner.is_open());
    owner.close();
  }
  EXPECT_EQ(released, std::vector{7});
}

TEST_F(PlatformOwner, TreatsZeroAsOpen) {
  { const Number owner(0); }
  EXPECT_EQ(released, std::vector{0});
}

TEST_F(PlatformOwner, IsClosedAfterAMove) {
  {
    Number first(7);
    const Number second(std::move(first));
    EXPECT_FALSE(first.is_open());  // NOLINT: the state behind a move is the contract
    EXPECT_EQ(second.native(), 7);
    EXPECT_TRUE(released.empty());
  }
  EXPECT_EQ(released, std::vector{7});
}

TEST_F(PlatformOwner, ReleasesItsValueOnMoveAssignment) {
  {
    Number first(7);
    Number second(8);
    second = std::move(first);
    EXPECT_EQ(released, std::vector{8});
    EXPECT_FALSE(first.is_open());  // NOLINT: the state behind a move is the contract
    EXPECT_EQ(second.native(), 7);
    second = Number();
    EXPECT_FALSE(second.is_open());
  }
  EXPECT_EQ(released, (std::vector{8, 7}));
}

TEST_F(PlatformOwner, SurvivesASelfMove) {
  Number owner(7);
  Number& same = owner;
  owner = std::move(same);
  EXPECT_TRUE(owner.is_open());
  EXPECT_EQ(owner.native(), 7);
  EXPECT_TRUE(released.empty());
}

}  // namespace
}  // namespace velmora
