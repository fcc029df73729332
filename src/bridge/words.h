// The atomic steps by which shared words are touched. All have full barrier strength, loads included: they
// are compare-exchanges, exchanges and locked adds, also where a plain load would be faster, because the
// effect's side is built apart from us and relies on that strength. A reader therefore needs a writable view.
#pragma once

#include <atomic>
#include <cstdint>

namespace velmora {

static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free &&
              std::atomic_ref<std::uint64_t>::is_always_lock_free);

// The present value: a compare-exchange of 0 with 0, which changes nothing.
template <typename Word>
[[nodiscard]] inline Word load_word(Word& word) {
  Word present = 0;
  std::atomic_ref<Word>(word).compare_exchange_strong(present, 0);
  return present;
}

template <typename Word>
inline void store_word(Word& word, Word value) {
  std::atomic_ref<Word>(word).exchange(value);
}

template <typename Word>
inline void add_to_word(Word& word, Word amount) {
  std::atomic_ref<Word>(word).fetch_add(amount);
}

// Replaces `present` by `value`; false, with `present` the value found, when the word holds another one by
// now.
template <typename Word>
[[nodiscard]] inline bool exchange_word(Word& word, Word& present, Word value) {
  return std::atomic_ref<Word>(word).compare_exchange_strong(present, value);
}

// Orders everything before it against everything behind it. An exchange on a local word, since g++ refuses a
// fence under ThreadSanitizer.
inline void full_barrier() {
  std::atomic<int> barrier{0};
  barrier.exchange(1);
}

// Words of a block that a sequence word guards. Nothing tears within a word, and the order is that of plain
// accesses on x86-64, which is what these compile to.
[[nodiscard]] inline std::uint64_t load_guarded(std::uint64_t& word) {
  return std::atomic_ref<std::uint64_t>(word).load(std::memory_order_acquire);
}
inline void store_guarded(std::uint64_t& word, std::uint64_t value) {
  std::atomic_ref<std::uint64_t>(word).store(value, std::memory_order_release);
}

}  // namespace velmora
