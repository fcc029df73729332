// The effect's life in the audio engine, from its discovery to the processing of blocks.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "options.h"
#include "record.h"

namespace velmora::effect {

// Instances of the effect, each on a thread of its own and with further threads that process. They end when
// they have processed their blocks, at the fault that the options ask for, or at the stop; the destructor
// waits for them. All arguments of the constructor outlive the object.
class Life {
 public:
  // No block is processed while `quiet`.
  Life(const Record& record, const Options& options, const std::atomic<bool>& stop,
       const std::atomic<bool>& quiet);
  ~Life();
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

  // The first block has come.
  [[nodiscard]] bool is_processing() const { return processing_; }
  // Nothing more will be reported of this life.
  [[nodiscard]] bool is_finished() const { return unfinished_ == 0; }

 private:
  void live(unsigned instance);
  bool initialize(unsigned mode, bool discovery) const;
  void negotiate(std::uint32_t stage) const;
  void answer_queries() const;
  bool lock(unsigned mode) const;
  void process(unsigned mode);
  void process_blocks(unsigned mode);

  const Record& record_;
  const Options& options_;
  const std::atomic<bool>& stop_;
  const std::atomic<bool>& quiet_;
  std::atomic<bool> processing_{false};
  std::atomic<unsigned> unfinished_;
  std::vector<std::thread> instances_;
};

}  // namespace velmora::effect
