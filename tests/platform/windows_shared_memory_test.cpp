#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "platform/shared_memory.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class WindowsSharedMemory : public surroundings::Arranged {};

// Wine 8 does not know the trustee of write-restricted code, and answers so for the whole descriptor.
TEST_F(WindowsSharedMemory, TellsTheDescriptorsErrorAndMakesNothing) {
  const std::u16string name = surroundings::find_free_mapping_name();
  SharedMapping mapping;
  ASSERT_EQ(surroundings::make_mapping(surroundings::find_free_mapping_name(), 64, mapping).create_error,
            std::nullopt);
  const auto former = mapping.native();
  const CreatedMapping created = create_shared_mapping(name, 576, mapping);
  EXPECT_EQ(created.create_error, std::nullopt);
  EXPECT_FALSE(created.already_existed);
  if (surroundings::runs_under_wine()) {
    EXPECT_EQ(created.descriptor_error, static_cast<std::uint32_t>(ERROR_INVALID_ACL));
    EXPECT_EQ(mapping.native(), former);
    SharedMapping none;
    EXPECT_EQ(open_shared_mapping(name, none), 2u);
  } else {
    EXPECT_EQ(created.descriptor_error, std::nullopt);
    EXPECT_NE(mapping.native(), former);
  }
}

TEST_F(WindowsSharedMemory, IsNotInheritedByProgramsThatWeStart) {
  const std::u16string name = surroundings::find_free_mapping_name();
  const auto elsewhere = surroundings::hold_elsewhere(name, {1});
  SharedMapping mapping;
  ASSERT_EQ(open_shared_mapping(name, mapping), std::nullopt);
  DWORD flags = HANDLE_FLAG_INHERIT;
  ASSERT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(mapping.native()), &flags));
  EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
}

TEST_F(WindowsSharedMemory, AnswersSixForANameThatAnotherKindOfObjectHas) {
  const std::u16string name = surroundings::find_free_mapping_name();
  const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, std::wstring(name.begin(), name.end()).c_str());
  ASSERT_NE(event, nullptr);
  SharedMapping mapping;
  EXPECT_EQ(open_shared_mapping(name, mapping), static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
  EXPECT_FALSE(mapping.is_open());
  CloseHandle(event);
}

}  // namespace
}  // namespace velmora
