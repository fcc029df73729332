// The one shape of everything that the platform hands out and wants back.
#pragma once

#include <utility>

namespace velmora {

// Move-only owner of one native value; releases it in its destructor. Kind says what it is: `Kind::Native`
// (its type, made and read below the seam alone), `Kind::none` (the value of a closed owner) and
// `Kind::release(Native)`, which each system answers for itself. A moved-from owner is closed; moving an
// owner to itself changes nothing.
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
  // Releases now. Harmless when closed.
  void close() noexcept {
    if (is_open()) Kind::release(std::exchange(native_, Kind::none));
  }

 private:
  Native native_ = Kind::none;
};

}  // namespace velmora
