// What the objects of the audio server (server.h) have in common: the state of the process, the log, the
// faults of the script, allocations that the caller frees, and counted references.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "script.h"
#include "server.h"

namespace velmora::audio_server {

inline constexpr IID meter_interface_id = {
    0xC02216F6, 0x8C67, 0x4B5B, {0x9D, 0x00, 0xD0, 0x08, 0xE7, 0x3E, 0x00, 0x64}};

struct Change {
  std::optional<float> level;
  std::optional<bool> muted;
};

struct State {
  std::optional<std::string> script_text;
  Script script;
  std::map<std::string, std::uint32_t, std::less<>> calls;
  std::map<std::wstring, Change> changes;
  std::uint32_t references = 0;
  std::uint32_t errors = 0;
  std::set<void*> allocations;
  bool is_watched = false;
  std::vector<std::string> log;
};

// Never destroyed: what is released or freed while the process ends still comes here.
[[nodiscard]] State& state();

// ---- the log ----

// An environment variable's value; empty when it is not set.
[[nodiscard]] std::wstring environment(const wchar_t* name);
void log_line(const std::string& line);
// Counts as an error too.
void log_error(const std::string& what);
[[nodiscard]] std::string guid_text(REFGUID guid);
// The interface's name where it is one of this server's.
[[nodiscard]] std::string interface_text(REFIID id);
[[nodiscard]] std::string status_text(HRESULT status);
[[nodiscard]] std::string real_text(float value);
[[nodiscard]] std::string pointer_text(const void* pointer);  // "null" or "not-null"

// ---- allocations that the caller frees ----

// By CoTaskMemAlloc, and counted until they are freed.
[[nodiscard]] void* allocate(std::size_t size);
[[nodiscard]] wchar_t* allocate_text(const std::wstring& text);

// ---- calls ----

// One call: its line in the log, and the fault that the script has for it.
class Call {
 public:
  explicit Call(std::string operation) : line_(operation) {
    const std::uint32_t number = ++state().calls[operation];
    const auto faults = state().script.faults.find(operation);
    if (faults == state().script.faults.end()) return;
    auto fault = faults->second.find(number);
    if (fault == faults->second.end()) fault = faults->second.find(0);
    if (fault != faults->second.end()) fault_ = fault->second;
  }
  Call& of(const std::wstring& id) { return with("of", quoted(id)); }
  Call& with(std::string_view name, const std::string& value) {
    line_.append(" ").append(name).append("=").append(value);
    return *this;
  }
  Call& with(std::string_view name, std::int64_t value) { return with(name, std::to_string(value)); }

  // The call's answer. `spoil` is what is done to the outputs in place of the work.
  template <typename Work, typename Spoil>
  HRESULT answer(Work work, Spoil spoil) {
    HRESULT status = S_OK;
    if (fault_ && (fault_->hands_out_null || fault_->status < 0)) {
      spoil();
      status = fault_->hands_out_null ? S_OK : fault_->status;
    } else {
      status = work();
      if (fault_ && SUCCEEDED(status)) status = fault_->status;
    }
    log_line(line_ + " -> " + status_text(status));
    return status;
  }
  // Of a call that hands out a pointer; `make` gives a status and sets it.
  template <typename Pointer, typename Make>
  HRESULT hand_out(Pointer* out, Make make) {
    const auto spoil = [out] {
      if (out != nullptr) *out = nullptr;
    };
    spoil();
    return answer([&]() -> HRESULT { return out == nullptr ? E_POINTER : make(); }, spoil);
  }
  // Of a call that hands out a number.
  template <typename Number, typename Read>
  HRESULT report(Number* out, Number nonsense, Read read) {
    return answer(
        [&]() -> HRESULT {
          if (out == nullptr) return E_POINTER;
          *out = fault_ && fault_->count ? static_cast<Number>(*fault_->count) : read();
          return S_OK;
        },
        [&] {
          if (out != nullptr) *out = nonsense;
        });
  }
  HRESULT not_implemented() {
    return answer([] { return E_NOTIMPL; }, [] {});
  }

 private:
  std::string line_;
  std::optional<Fault> fault_;
};

// Base of every object. It outlives its last reference: a later call is logged as an error instead of a
// crash.
template <typename Interface>
class Object : public Interface {
 public:
  Object() { ++state().references; }
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() override {
    must_live("AddRef");
    ++state().references;
    return ++references_;
  }
  ULONG STDMETHODCALLTYPE Release() override {
    if (!must_live("Release")) return 0;
    --references_;
    if (--state().references == 0) log_live_counts();
    return references_;
  }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** out) override {
    if (out == nullptr) return E_POINTER;
    const bool has = id == __uuidof(IUnknown) || is(id);
    *out = has ? this : nullptr;
    if (has) AddRef();
    return has ? S_OK : E_NOINTERFACE;
  }

 protected:
  virtual bool is(REFIID id) const = 0;
  bool must_live(const std::string& operation) const {
    if (references_ == 0) log_error(operation + " of an object that has been released");
    return references_ != 0;
  }
  [[nodiscard]] Call call(const std::string& operation) const {
    must_live(operation);
    return Call(operation);
  }
  [[nodiscard]] virtual HRESULT unknown(const std::string& operation) const {
    return call(operation).not_implemented();
  }

 private:
  ULONG references_ = 1;
};

}  // namespace velmora::audio_server

// A method that no test needs: it is logged as INTERFACE.METHOD and answers E_NOTIMPL.
#define VELMORA_NOT_IMPLEMENTED(interface_name, method, ...) \
  HRESULT STDMETHODCALLTYPE method(__VA_ARGS__) override { return unknown(#interface_name "." #method); }
