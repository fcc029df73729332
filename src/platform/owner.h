// The owner type for all resources of the platform.
#pragma once

#include <utility>

namespace velmora {

// Move-only owner of one native value, which the destructor releases. `Kind::Native` is the type of the
// value, created and used only below the platform seam. `Kind::none` is the value of a closed owner. Each
// system implements `Kind::release(Native)`. A moved-from owner is closed. Self-move has no effect.
template <typename Kind>
class Owner {
 public:
  using Native = typename Kind::Native;

  Owner() noexcept = default;
  explicit Owner(Native native) noexcept : native_(native) {}
  Owner(Owner&& other) noexcept : native_(std::exchange(other.native_, Kind::none)) {}
  Owner& operator=(Owner&& other) noexcept {
    if (this != &other) {
      close();
      native_ = std::exchange(other.native_, Kind::none);
    }
    return *this;
  }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;
  ~Owner() { close(); }

  [[nodiscard]] bool is_open() const noexcept { return !(native_ == Kind::none); }
  [[nodiscard]] const Native& native() const noexcept { return native_; }
  // Releases the value now. Does nothing if closed.
  void close() noexcept {
    if (is_open()) Kind::release(std::exchange(native_, Kind::none));
  }

 private:
  Native native_ = Kind::none;
};

}  // namespace velmora
