// The test service's log: lines "MILLISECONDS NAME WORD", the time counted from 1970 (UTC), the word one of
//   start    the manager has asked it to start
//   running  it has reported to the manager that it runs
//   stop     it has been asked to stop and does
//   refused  it has been asked to stop and runs on
//   stopped  it has stopped
// A line is in the file before the manager learns of it.
#pragma once

#include <string>

namespace velmora::service {

// Appends one line. Nothing happens where `file` is empty or cannot be written.
void append_to_log(const std::wstring& file, const std::wstring& name, const char* word);

}  // namespace velmora::service
