#include "capture.h"

#include <filesystem>

#include "reports.h"
#include "system.h"
#include "wave_file.h"

namespace velmora::effect {
namespace {

constexpr unsigned action_start = 1;
constexpr unsigned action_stop = 2;
constexpr unsigned action_export = 3;
constexpr unsigned longest_capture_s = 300;

constexpr struct {
  const char* name;
  unsigned tone_hz;
} files[] = {{"capture-1-host-in.wav", 220},
             {"capture-2-algorithm-in.wav", 330},
             {"capture-3-algorithm-out.wav", 440},
             {"capture-4-host-out.wav", 550}};

constexpr unsigned files_of_partial_export = 2;

void report(const Record& record, const CaptureRequest& request, const CaptureAnswer& answer,
            const Options& options) {
  reports_for(options).capture(record, static_cast<std::uint16_t>(answer.state),
                               static_cast<std::uint16_t>(request.seconds), answer.detail);
}

CaptureAnswer write_files(unsigned seconds, const Options& options) {
  const std::filesystem::path directory = capture_path(options.capture_directory);
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  unsigned written = 0;
  for (const auto& file : files) {
    if (options.capture_fault == CaptureFault::partial && written == files_of_partial_export) {
      return {CaptureState::failed, capture_incomplete};
    }
    if (!write_wave_file(directory / file.name, seconds, file.tone_hz)) {
      return {CaptureState::failed, capture_cannot_write};
    }
    ++written;
  }
  return {CaptureState::exported, 0};
}

CaptureAnswer obey(const Record& record, const CaptureRequest& request, const Options& options) {
  if (options.capture_directory.empty()) return {CaptureState::failed, capture_no_directory};
  if (options.capture_fault == CaptureFault::refuse) return {CaptureState::failed, capture_refused};
  if (request.action == action_start) return {CaptureState::capturing, 0};
  if (request.action == action_stop) return {CaptureState::captured, 0};
  if (request.action != action_export || request.seconds > longest_capture_s) {
    return {CaptureState::failed, capture_unknown_action};
  }
  report(record, request, {CaptureState::writing, 0}, options);
  return write_files(request.seconds, options);
}

}  // namespace

CaptureAnswer answer_capture(const Record& record, const CaptureRequest& request, const Options& options) {
  const CaptureAnswer answer = obey(record, request, options);
  report(record, request, answer, options);
  return answer;
}

}  // namespace velmora::effect
