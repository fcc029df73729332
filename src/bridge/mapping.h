// Getting hold of the shared record: the name, making or opening the mapping, and who closes what.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "bridge/diagnostics.h"
#include "bridge/record.h"
#include "platform/shared_memory.h"

namespace velmora {

// The longest name of a mapping, in UTF-16 units, prefix included.
inline constexpr std::size_t mapping_name_limit_units = 240;

// `Local\` or `Global\` (case counts) and at least one of a..z, A..Z, 0..9, '.', '-', '_', up to the limit.
[[nodiscard]] bool control_mapping_name_valid(std::u16string_view name);

// Waits until the creator of a record has finished it: up to 100 looks, 1 ms apart. False when it is not
// ready after that, or at once when it is of another layout.
[[nodiscard]] bool wait_for_creator(ControlBridgeRecord& record);

// The owner of the mapping and its view, and the service's access to the record. Move-only; a moved-from
// bridge is closed. Used from one thread.
class ControlBridge {
 public:
  ControlBridge() = default;
  ControlBridge(ControlBridge&& other) noexcept;
  ControlBridge& operator=(ControlBridge&& other) noexcept;
  ControlBridge(const ControlBridge&) = delete;
  ControlBridge& operator=(const ControlBridge&) = delete;
  ~ControlBridge();

  // Opens the mapping, or makes it where it cannot be opened, and fills it if it was made here. What the
  // object held is closed first, whatever comes of it. `message` says what happened, on success too. An
  // existing mapping is taken as it stands and no byte of it changes.
  [[nodiscard]] bool create(std::u16string_view name, std::string& message);
  // The same without ever making a mapping.
  [[nodiscard]] bool open(std::u16string_view name, std::string& message);
  // Drops view, handle and name, in this order. Harmless when closed.
  void close() noexcept;
  [[nodiscard]] bool is_open() const noexcept { return view_.is_open(); }
  // Empty when closed.
  [[nodiscard]] const std::u16string& name() const noexcept { return name_; }

  // The operations of record.h and diagnostics.h on the shared record. Closed: publications are not_open,
  // readings are false with the output untouched, and the effect's reports do nothing.
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
