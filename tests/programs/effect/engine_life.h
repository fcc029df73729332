// The effect's life as another program directs it, through a file that is read at each look:
//
//   (empty, or no file)   no engine has the effect loaded
//   `ENGINE playing`      the engine ENGINE (its process id) has it loaded, and sound passes through it
//   `ENGINE quiet`        the same without sound
//
// Another ENGINE is another life, from the discovery on. Whatever else the file holds leaves all as it is.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "life.h"
#include "options.h"
#include "record.h"

namespace velmora::effect {

// The record and the options outlive the object; the destructor ends the life.
class EngineLife {
 public:
  EngineLife(const Record& record, const Options& options) : record_(record), options_(options) {}
  ~EngineLife() { end(); }
  EngineLife(const EngineLife&) = delete;
  EngineLife& operator=(const EngineLife&) = delete;

  // Reads the file. True when another engine has loaded the effect since the last look.
  bool look();
  [[nodiscard]] bool is_loaded() const { return life_.has_value(); }
  // Blocks pass through the effect.
  [[nodiscard]] bool is_processing() const { return life_ && !quiet_ && life_->is_processing(); }

 private:
  void end();

  const Record& record_;
  const Options& options_;
  std::uint32_t engine_ = 0;  // 0: not loaded
  std::atomic<bool> stop_{false};
  std::atomic<bool> quiet_{true};
  std::optional<Life> life_;  // behind what it refers to
};

}  // namespace velmora::effect
