// The steps by which the effect touches words of the record. A word behind the record's end reads as 0 and is
// not written.
#pragma once

#include <atomic>
#include <cstddef>

#include "record.h"

namespace velmora::effect {

template <typename Word>
bool holds(const Record& record, std::size_t offset) {
  return offset + sizeof(Word) <= record.size;
}

template <typename Word>
std::atomic_ref<Word> word_at(const Record& record, std::size_t offset) {
  return std::atomic_ref<Word>(*reinterpret_cast<Word*>(record.bytes + offset));
}

template <typename Word>
Word load(const Record& record, std::size_t offset) {
  Word present = 0;
  if (holds<Word>(record, offset)) word_at<Word>(record, offset).compare_exchange_strong(present, 0);
  return present;
}

template <typename Word>
void store(const Record& record, std::size_t offset, Word value) {
  if (holds<Word>(record, offset)) word_at<Word>(record, offset).exchange(value);
}

template <typename Word>
void add(const Record& record, std::size_t offset, Word amount) {
  if (holds<Word>(record, offset)) word_at<Word>(record, offset).fetch_add(amount);
}

// For a word that does not change, or that the sequence word guards.
template <typename Word>
Word load_plain(const Record& record, std::size_t offset) {
  return holds<Word>(record, offset) ? word_at<Word>(record, offset).load(std::memory_order_acquire) : 0;
}

}  // namespace velmora::effect
