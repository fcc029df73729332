// Atomic operations on the shared words. Except for the guarded accesses at the end, all are full barriers:
// compare-exchanges, exchanges and locked adds, even where a plain load would be faster. The effect is built
// separately and relies on that strength. A reader therefore needs a writable view.
#pragma once

#include <atomic>
#include <cstdint>

namespace velmora {

static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free &&
              std::atomic_ref<std::uint64_t>::is_always_lock_free);

// Returns the value. Comparing with 0 and exchanging for 0 changes nothing.
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

// Stores `value` if the word equals `present`. Otherwise returns false and sets `present` to the value found.
template <typename Word>
[[nodiscard]] inline bool exchange_word(Word& word, Word& present, Word value) {
  return std::atomic_ref<Word>(word).compare_exchange_strong(present, value);
}

// Orders all accesses before it before all accesses after it. It exchanges a local word instead of using a
// fence, which g++ rejects under ThreadSanitizer.
inline void full_barrier() {
  std::atomic<int> barrier{0};
  barrier.exchange(1);
}

// Access to the words of a block that a sequence word guards. A single word never tears. The order is that of
// plain accesses on x86-64, which is what these compile to.
[[nodiscard]] inline std::uint64_t load_guarded(std::uint64_t& word) {
  return std::atomic_ref<std::uint64_t>(word).load(std::memory_order_acquire);
}
inline void store_guarded(std::uint64_t& word, std::uint64_t value) {
  std::atomic_ref<std::uint64_t>(word).store(value, std::memory_order_release);
}

}  // namespace velmora
