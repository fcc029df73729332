// Access to the shared record: the mapping name, creating or opening the mapping, and its ownership.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "bridge/diagnostics.h"
#include "bridge/record.h"
#include "platform/shared_memory.h"

namespace velmora {

// The longest mapping name in UTF-16 units, prefix included.
inline constexpr std::size_t mapping_name_limit_units = 240;

// True for `Local\` or `Global\` (case-sensitive) followed by at least one of a..z, A..Z, 0..9, '.', '-',
// '_'. The limit applies.
[[nodiscard]] bool control_mapping_name_valid(std::u16string_view name);

// Waits for the creator of a record to finish it: up to 100 checks, 1 ms apart. Returns false if it is not
// ready then, or at once if its layout is incompatible.
[[nodiscard]] bool wait_for_creator(ControlBridgeRecord& record);

// Owns the mapping and its view, and gives access to the record. Move-only; a moved-from bridge is closed.
// Use it from one thread.
class ControlBridge {
 public:
  ControlBridge() = default;
  ControlBridge(ControlBridge&& other) noexcept;
  ControlBridge& operator=(ControlBridge&& other) noexcept;
  ControlBridge(const ControlBridge&) = delete;
  ControlBridge& operator=(const ControlBridge&) = delete;
  ~ControlBridge();

  // Opens the mapping, or creates and initialises it if it cannot be opened. First closes the present
  // mapping, even if this call fails. `message` says what happened, also on success. An existing mapping is
  // used as it is; no byte of it changes.
  [[nodiscard]] bool create(std::u16string_view name, std::string& message);
  // Like create, but never creates a mapping.
  [[nodiscard]] bool open(std::u16string_view name, std::string& message);
  // Releases view, handle and name, in this order. Does nothing when closed.
  void close() noexcept;
  [[nodiscard]] bool is_open() const noexcept { return view_.is_open(); }
  // Empty when closed.
  [[nodiscard]] const std::u16string& name() const noexcept { return name_; }

  // The operations of record.h and diagnostics.h on the shared record. When closed, publications return
  // not_open, reads return false with the output untouched, and reports do nothing.
  [[nodiscard]] BridgeResult publish_footstep(bool bypass, bool bypass_all, float enhance_strength);
  [[nodiscard]] BridgeResult publish_algorithm(const AlgorithmParameters& parameters);
  [[nodiscard]] BridgeResult publish_eq(const EqSettings& settings);
  [[nodiscard]] BridgeResult publish_capture_request(std::uint16_t action, std::uint16_t seconds);
  [[nodiscard]] bool read_footstep(FootstepParameters& out);
  [[nodiscard]] bool read_algorithm(AlgorithmParameters& out);
  [[nodiscard]] bool read_eq(EqSettings& out);
  [[nodiscard]] bool read_capture_request(CaptureRequest& out);
  [[nodiscard]] bool read_diagnostics(ControlDiagnostics& out);

  void report_initialize_attempt(const InitializeAttempt& attempt);
  void report_initialize_success();
  void report_initialize_progress(std::uint32_t stage, std::uint32_t result);
  void report_format_negotiation(std::uint32_t stage);
  void report_lock_attempt();
  void report_lock_input_format(const StreamFormat& format);
  void report_lock_output_format(const StreamFormat& format);
  void report_lock_progress(std::uint32_t stage, std::uint32_t result);
  void report_lock_success(const LockedStream& stream);
  void report_applied(bool bypass, bool bypass_all, float strength);
  void report_processing(float gain_db, std::uint32_t block_count);
  void report_mode(std::uint32_t mode, ModeKind kind);
  void count_processed_block();
  void report_query(std::uint32_t index, std::uint32_t value, std::int32_t result);
  void report_capture(std::uint16_t state, std::uint16_t seconds, std::uint32_t detail);

 private:
  bool connect(std::u16string_view name, bool may_create, std::string& message);
  ControlBridgeRecord& record() const noexcept;

  SharedMapping mapping_;
  SharedView view_;
  std::u16string name_;
};

}  // namespace velmora
