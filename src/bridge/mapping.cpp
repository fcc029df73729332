#include "bridge/mapping.h"

#include <algorithm>
#include <utility>

#include "base/ascii.h"
#include "platform/clock.h"

namespace velmora {
namespace {

constexpr int creator_rounds = 100;
constexpr std::uint32_t creator_pause_ms = 1;

bool name_unit_allowed(char16_t unit) {
  return is_ascii_letter(unit) || (unit >= u'0' && unit <= u'9') || unit == u'.' || unit == u'-' ||
         unit == u'_';
}

std::string call_failed(std::string_view call, std::uint32_t error) {
  return std::string(call) + " failed with error " + std::to_string(error);
}

// Opens the mapping or, if allowed, creates it. `message` is set on failure; `created` is valid on success.
bool obtain_mapping(std::u16string_view name, bool may_create, SharedMapping& mapping, bool& created,
                    std::string& message) {
  created = false;
  const std::optional<std::uint32_t> open_error = open_shared_mapping(name, mapping);
  if (!open_error) return true;
  if (!may_create) {
    message = call_failed("OpenFileMappingW", *open_error);
    return false;
  }
  const CreatedMapping result = create_shared_mapping(name, record_size_bytes, mapping);
  if (result.descriptor_error) {
    message = "unable to create the control mapping security descriptor: " +
              std::to_string(*result.descriptor_error);
    return false;
  }
  if (result.create_error) {
    message = call_failed("CreateFileMappingW", *result.create_error);
    return false;
  }
  // Another process may have created it after the open failed. Treat that mapping like an opened one.
  created = !result.already_existed;
  return true;
}

ControlBridgeRecord& record_in(const SharedView& view) {
  return *static_cast<ControlBridgeRecord*>(view.native().data);
}

}  // namespace

bool control_mapping_name_valid(std::u16string_view name) {
  constexpr std::u16string_view prefixes[] = {u"Local\\", u"Global\\"};
  for (const std::u16string_view prefix : prefixes) {
    if (!name.starts_with(prefix)) continue;
    if (name.size() <= prefix.size() || name.size() > mapping_name_limit_units) return false;
    const std::u16string_view own = name.substr(prefix.size());
    return std::all_of(own.begin(), own.end(), name_unit_allowed);
  }
  return false;
}

bool wait_for_creator(ControlBridgeRecord& record) {
  for (int round = 0; round < creator_rounds; ++round) {
    const RecordState state = inspect_record(record);
    if (state != RecordState::unfinished) return state == RecordState::ready;
    sleep_ms(creator_pause_ms);
  }
  return false;
}

ControlBridge::ControlBridge(ControlBridge&& other) noexcept
    : mapping_(std::move(other.mapping_)),
      view_(std::move(other.view_)),
      name_(std::exchange(other.name_, {})) {}

ControlBridge& ControlBridge::operator=(ControlBridge&& other) noexcept {
  if (this != &other) {
    close();
    mapping_ = std::move(other.mapping_);
    view_ = std::move(other.view_);
    name_ = std::exchange(other.name_, {});
  }
  return *this;
}

ControlBridge::~ControlBridge() { close(); }

bool ControlBridge::create(std::u16string_view name, std::string& message) {
  return connect(name, true, message);
}

bool ControlBridge::open(std::u16string_view name, std::string& message) {
  return connect(name, false, message);
}

void ControlBridge::close() noexcept {
  view_.close();
  mapping_.close();
  name_.clear();
}

bool ControlBridge::connect(std::u16string_view name, bool may_create, std::string& message) {
  const std::u16string wanted(name);  // a copy: `name` may refer to name_, which close() clears
  close();
  if (!control_mapping_name_valid(wanted)) {
    message = "control mapping name must be Local\\ or Global\\ plus ASCII letters, digits, '.', '-' or '_'";
    return false;
  }
  SharedMapping mapping;
  bool created = false;
  if (!obtain_mapping(wanted, may_create, mapping, created, message)) return false;
  SharedView view;
  const std::optional<std::uint32_t> view_error = map_shared_view(mapping, record_size_bytes, view);
  if (view_error) {
    message = call_failed("MapViewOfFile", *view_error);
    return false;
  }
  if (created) {
    initialise_record(record_in(view));
  } else if (!wait_for_creator(record_in(view))) {
    message = "existing control mapping has an incompatible layout";
    return false;
  }
  mapping_ = std::move(mapping);
  view_ = std::move(view);
  name_ = wanted;
  message = created ? "created shared control bridge" : "opened shared control bridge";
  return true;
}

ControlBridgeRecord& ControlBridge::record() const noexcept { return record_in(view_); }

BridgeResult ControlBridge::publish_footstep(bool bypass, bool bypass_all, float enhance_strength) {
  if (!is_open()) return BridgeResult::not_open;
  return velmora::publish_footstep(record(), bypass, bypass_all, enhance_strength);
}

BridgeResult ControlBridge::publish_algorithm(const AlgorithmParameters& parameters) {
  if (!is_open()) return BridgeResult::not_open;
  velmora::publish_algorithm(record(), parameters);
  return BridgeResult::done;
}

BridgeResult ControlBridge::publish_eq(const EqSettings& settings) {
  if (!is_open()) return BridgeResult::not_open;
  velmora::publish_eq(record(), settings);
  return BridgeResult::done;
}

BridgeResult ControlBridge::publish_capture_request(std::uint16_t action, std::uint16_t seconds) {
  if (!is_open()) return BridgeResult::not_open;
  velmora::publish_capture_request(record(), action, seconds);
  return BridgeResult::done;
}

bool ControlBridge::read_footstep(FootstepParameters& out) {
  return is_open() && velmora::read_footstep(record(), out);
}

bool ControlBridge::read_algorithm(AlgorithmParameters& out) {
  return is_open() && velmora::read_algorithm(record(), out);
}

bool ControlBridge::read_eq(EqSettings& out) { return is_open() && velmora::read_eq(record(), out); }

bool ControlBridge::read_capture_request(CaptureRequest& out) {
  if (!is_open()) return false;
  velmora::read_capture_request(record(), out);
  return true;
}

bool ControlBridge::read_diagnostics(ControlDiagnostics& out) {
  if (!is_open()) return false;
  velmora::read_diagnostics(record(), out);
  return true;
}

void ControlBridge::report_initialize_attempt(const InitializeAttempt& attempt) {
  if (is_open()) velmora::report_initialize_attempt(record(), attempt);
}

void ControlBridge::report_initialize_success() {
  if (is_open()) velmora::report_initialize_success(record());
}

void ControlBridge::report_initialize_progress(std::uint32_t stage, std::uint32_t result) {
  if (is_open()) velmora::report_initialize_progress(record(), stage, result);
}

void ControlBridge::report_format_negotiation(std::uint32_t stage) {
  if (is_open()) velmora::report_format_negotiation(record(), stage);
}

void ControlBridge::report_lock_attempt() {
  if (is_open()) velmora::report_lock_attempt(record());
}

void ControlBridge::report_lock_input_format(const StreamFormat& format) {
  if (is_open()) velmora::report_lock_input_format(record(), format);
}

void ControlBridge::report_lock_output_format(const StreamFormat& format) {
  if (is_open()) velmora::report_lock_output_format(record(), format);
}

void ControlBridge::report_lock_progress(std::uint32_t stage, std::uint32_t result) {
  if (is_open()) velmora::report_lock_progress(record(), stage, result);
}

void ControlBridge::report_lock_success(const LockedStream& stream) {
  if (is_open()) velmora::report_lock_success(record(), stream);
}

void ControlBridge::report_applied(bool bypass, bool bypass_all, float strength) {
  if (is_open()) velmora::report_applied(record(), bypass, bypass_all, strength);
}

void ControlBridge::report_processing(float gain_db, std::uint32_t block_count) {
  if (is_open()) velmora::report_processing(record(), gain_db, block_count);
}

void ControlBridge::report_mode(std::uint32_t mode, ModeKind kind) {
  if (is_open()) velmora::report_mode(record(), mode, kind);
}

void ControlBridge::count_processed_block() {
  if (is_open()) velmora::count_processed_block(record());
}

void ControlBridge::report_query(std::uint32_t index, std::uint32_t value, std::int32_t result) {
  if (is_open()) velmora::report_query(record(), index, value, result);
}

void ControlBridge::report_capture(std::uint16_t state, std::uint16_t seconds, std::uint32_t detail) {
  if (is_open()) velmora::report_capture(record(), state, seconds, detail);
}

}  // namespace velmora
