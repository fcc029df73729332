// A COM server for audio endpoints that do what a script says: the class MMDeviceEnumerator with the
// interfaces that hang on it. It lives in the process that uses it, either as velmora_test_audio.dll,
// registered in place of the system's own (the black-box tests), or linked into a test program
// (velmora_test_audio_server), which registers class_factory() with CoRegisterClassObject:
//
//   #include "audio/server.h"
//
//   audio_server::set_script("endpoint render {speakers}\n  name Speakers\ndefault render {speakers}\n");
//   DWORD cookie = 0;
//   CoRegisterClassObject(__uuidof(MMDeviceEnumerator), audio_server::class_factory(), CLSCTX_INPROC_SERVER,
//                         REGCLS_MULTIPLEUSE, &cookie);
//   ... what is tested ...
//   EXPECT_EQ(audio_server::live_counts(), audio_server::LiveCounts{});
//   CoRevokeClassObject(cookie);
//
// One thread at a time.
//
// ---- The script ----
//
// UTF-8 text, one statement a line; blanks before it and behind it mean nothing, nor does a line that is
// empty or begins with '#'. Words are separated by blanks. A word that needs blanks, or is empty, is in
// double quotes; in quotes \" \\ and \uHHHH (four hexadecimal digits, a UTF-16 unit, so that unpaired
// surrogates can be written) are known. FLOW is `render` or `capture`. Numbers are decimal or begin with 0x.
//
//   endpoint FLOW ID         A new endpoint, last of its flow; the lines up to the next one are about it:
//     state N                its DEVICE_STATE; 1 (active) when not given
//     name TEXT              the friendly name; a VT_EMPTY value when not given
//     name-null              the friendly name is a VT_LPWSTR whose pointer is null
//     name-type N            the friendly name is of another type: 19 VT_UI4, 30 VT_LPSTR, 72 VT_CLSID
//     level X                master volume, 1 when not given
//     muted N                0 or 1, 0 when not given
//     peak X                 the meter's reading, 0 when not given; also nan, inf, -inf
//     session STATE PID      one session more: its AudioSessionState and its process id, a number or the
//                            word "self" for the process that the server is in
//   default FLOW ID          the answer of GetDefaultAudioEndpoint, for each role; without it that fails with
//                            0x80070490. An endpoint of the flow, active or not.
//   fail OP NTH STATUS       The call of OP with this number, from 1, answers with STATUS; * is each call.
//                            A negative status replaces the work: pointers come back null, numbers
//                            as nonsense that nobody may believe (a count of 77, a level of 0.77, muted,
//                            state 1, id 77). Any other status comes behind the work, which is done.
//   null OP NTH              The call of OP, one that hands out a pointer, answers S_OK and hands out null.
//   count OP NTH N           The call of OP, a GetCount, succeeds and reports N instead; N may be
//                            negative where the count has a sign.
//
// A script is read anew, and calls are counted from 1 again, whenever the class object is asked for or an
// enumerator is made. One that cannot be read fails that call with status_bad_script and says why in the log.
//
// OP is one of these; calls of others are logged and answer E_NOTIMPL:
//   DllGetClassObject                  (only the DLL)
//   IClassFactory.CreateInstance       (what CoCreateInstance comes to)
//   IMMDeviceEnumerator.EnumAudioEndpoints .GetDefaultAudioEndpoint .GetDevice
//   IMMDeviceCollection.GetCount .Item
//   IMMDevice.Activate .OpenPropertyStore .GetId .GetState
//   IPropertyStore.GetCount .GetValue
//   IAudioEndpointVolume.SetMasterVolumeLevelScalar .GetMasterVolumeLevelScalar .SetMute .GetMute
//   IAudioMeterInformation.GetPeakValue
//   IAudioSessionManager2.GetSessionEnumerator
//   IAudioSessionEnumerator.GetCount .GetSession
//   IAudioSessionControl.GetState .QueryInterface
//   IAudioSessionControl2.GetProcessId
//
// Unasked, calls fail as Windows' own do: an unknown id with 0x80070490, a flow, role, state mask, index or
// level out of range with E_INVALIDARG, a null output with E_POINTER, an unknown interface with
// E_NOINTERFACE, Activate of an endpoint that is not active with 0x88890004, a store for anything but reading
// with E_ACCESSDENIED. SetMute with the present value answers S_FALSE.
//
// A level or a mute that has been set is kept for the life of the process, whatever later scripts say, until
// forget_changes().
//
// ---- The log ----
//
// One line for each call, but for AddRef, Release and QueryInterface of other objects than sessions:
// the operation, what the object represents, the arguments, and the status. Texts are in quotes, as in a
// script. Of IAudioEndpointVolume, `references` are all that live at the time.
//
//   IMMDeviceEnumerator.GetDefaultAudioEndpoint flow=0 role=1 -> 0x00000000
//   IMMDevice.Activate of="{speakers}" interface=IAudioEndpointVolume context=1 params=null -> 0x00000000
//   IAudioEndpointVolume.SetMute of="{speakers}" references=1 muted=1 context=null -> 0x00000000
//   IAudioSessionControl.GetState of="{speakers}" session=0 -> 0x00000000
//
// and `live references=R allocations=A` whenever R has become 0 through a release, one of our allocations has
// been freed, or no enumerator came of asking for one; the DLL writes it once more when it leaves the
// process. A line `ERROR ...` reports a misuse.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

#include <unknwn.h>

namespace velmora::audio_server {

// Of a script that cannot be read.
constexpr std::int32_t status_bad_script = static_cast<std::int32_t>(0xA0040001u);

// The factory of MMDeviceEnumerator. It lives as long as the process; its references are not counted.
[[nodiscard]] IClassFactory* class_factory();

// From here on scripts come from this text in place of the file that the environment variable
// VELMORA_TEST_AUDIO names. It is read when the next enumerator is made, not at once.
void set_script(std::string_view text);

struct LiveCounts {
  std::uint32_t references = 0;   // to interfaces of this server, over all objects
  std::uint32_t allocations = 0;  // ids and property values that were handed out and not freed yet
  std::uint32_t errors = 0;  // calls on objects whose last reference was released, since the process began
  friend bool operator==(const LiveCounts&, const LiveCounts&) = default;
};
// Allocations are watched by an IMallocSpy, of which a process has one: it is registered when the first id
// is handed out. Where that fails, the log has an ERROR line, and allocations are never counted as freed.
[[nodiscard]] LiveCounts live_counts();

// The log since the last call of this. The lines go to the file that the environment variable
// VELMORA_TEST_AUDIO_LOG names too, each at once, appended.
[[nodiscard]] std::vector<std::string> take_log();

// For the DLL: DllGetClassObject, whatever class is named, and a line with the live counts in the log.
[[nodiscard]] HRESULT get_class_object(REFCLSID class_id, REFIID id, void** out);
void log_live_counts();

// Levels and mutes are what the script says again.
void forget_changes();

}  // namespace velmora::audio_server
