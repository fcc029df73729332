// Conversion between UTF-8, UTF-16 and plain bytes. Pure: no state, no locale, no system call.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// UTF-16 of UTF-8 text. Each ill-formed stretch (a maximal subpart, Unicode 15 table 3-8) becomes one
// U+FFFD, as MultiByteToWideChar does with code page 65001 and flags 0.
[[nodiscard]] std::u16string wide_from_utf8_replacing(std::string_view text);

// UTF-16 of UTF-8 text, or no value when any byte of it is ill-formed (MultiByteToWideChar with
// MB_ERR_INVALID_CHARS).
[[nodiscard]] std::optional<std::u16string> wide_from_utf8_strict(std::string_view text);

// UTF-8 of UTF-16 text. Each unpaired surrogate becomes U+FFFD (WideCharToMultiByte with code page 65001
// and flags 0).
[[nodiscard]] std::string utf8_from_wide_replacing(std::u16string_view text);

// Text that goes out to clients and comes in from them: as the strict and well-formed conversions, but text
// that does not convert is empty (WideCharToMultiByte with WC_ERR_INVALID_CHARS, MultiByteToWideChar with
// MB_ERR_INVALID_CHARS). An unpaired surrogate does not convert.
[[nodiscard]] std::string utf8_from_wide(std::u16string_view text);
[[nodiscard]] std::u16string wide_from_utf8(std::string_view text);

// The path that a UTF-8 text names, in the form of all paths above the platform: UTF-8, each ill-formed
// stretch replaced by U+FFFD as a conversion to wide text would. Empty for empty text.
[[nodiscard]] std::string utf8_to_path(std::string_view text);

// One UTF-16 unit for each byte, the byte taken as signed and extended: 0x80 and above come out as 0xFF80
// and above. The control map name is widened like this and its effect must follow; text that people read
// never is.
[[nodiscard]] std::u16string wide_from_signed_bytes(std::string_view bytes);

// Text of the registry and of paths that are shown: each UTF-16 unit of 128 and above becomes `?`. What it
// was is lost.
[[nodiscard]] std::string ascii_from_wide(std::u16string_view text);

// One UTF-16 unit for each byte, which is taken as unsigned.
[[nodiscard]] std::u16string wide_from_ascii(std::string_view text);

}  // namespace velmora
