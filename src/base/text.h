// Conversion between UTF-8, UTF-16 and plain bytes. Pure: no state, no locale, no system call.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// UTF-8 to UTF-16. Each ill-formed sequence (a maximal subpart, Unicode 15 table 3-8) becomes one U+FFFD, as
// in MultiByteToWideChar with code page 65001 and flags 0.
[[nodiscard]] std::u16string wide_from_utf8_replacing(std::string_view text);

// UTF-8 to UTF-16. Returns no value if any byte is ill-formed
// (MultiByteToWideChar with MB_ERR_INVALID_CHARS).
[[nodiscard]] std::optional<std::u16string> wide_from_utf8_strict(std::string_view text);

// UTF-16 to UTF-8. Unpaired surrogates become U+FFFD (WideCharToMultiByte with code page 65001, flags 0).
[[nodiscard]] std::string utf8_from_wide_replacing(std::u16string_view text);

// Conversions for text exchanged with clients: ill-formed text gives an empty result
// (WideCharToMultiByte with WC_ERR_INVALID_CHARS, MultiByteToWideChar with MB_ERR_INVALID_CHARS). An
// unpaired surrogate is ill-formed.
[[nodiscard]] std::string utf8_from_wide(std::u16string_view text);
[[nodiscard]] std::u16string wide_from_utf8(std::string_view text);

// Converts UTF-8 text to the form of all paths above the platform: UTF-8, with U+FFFD for each ill-formed
// sequence, as if converted to wide text and back. Empty text gives an empty path.
[[nodiscard]] std::string utf8_to_path(std::string_view text);

// Widens each byte to one UTF-16 unit with sign extension: 0x80 and above become 0xFF80 and above. Used for
// the control map name, which the effect must widen in the same way. Never used for text that people read.
[[nodiscard]] std::u16string wide_from_signed_bytes(std::string_view bytes);

// For displayed registry text and paths: each UTF-16 unit of 128 and above becomes `?`. Lossy.
[[nodiscard]] std::string ascii_from_wide(std::u16string_view text);

// Widens each byte to one UTF-16 unit, without sign extension.
[[nodiscard]] std::u16string wide_from_ascii(std::string_view text);

}  // namespace velmora
