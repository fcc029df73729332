// The effect chain as text: the endpoint GUID in an id, and adding and removing class ids. Pure.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

// An ordered list of class ids as 8-bit text.
using Chain = std::vector<std::string>;

// The processing modes that an endpoint offers to mode effects when no driver has set them: default, media,
// movie, communications, speech, notification (AUDIO_SIGNALPROCESSINGMODE_*, ksmedia.h).
constexpr std::array<std::string_view, 6> default_processing_modes = {
    "{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}", "{4780004E-7133-41D8-8C74-660DADD2C0EE}",
    "{B26FEB0D-EC94-477C-9494-D1AB8E753F6E}", "{98951333-B9CD-48B1-A0A3-FF40682D73F7}",
    "{FC1CFC9B-B9D6-4CFA-B5E0-4BB2166878B2}", "{9CF2A70B-F377-403B-BD6B-360863E0355C}",
};

// True for a GUID in braces: 38 bytes, hexadecimal digits of either case.
[[nodiscard]] bool is_endpoint_guid(std::string_view text);

// Extracts the GUID at the end of an endpoint id, "{0.0.0.00000000}.{GUID}" or only "{GUID}". Keeps its case;
// ignores the text before it. `guid` is assigned only on success.
[[nodiscard]] bool endpoint_guid_from_id(std::string_view id, std::string& guid);

// Compares without regard to the case of ASCII letters.
[[nodiscard]] bool same_effect_id(std::string_view left, std::string_view right);

[[nodiscard]] bool chain_contains(const Chain& chain, std::string_view id);

// Returns the chain with `id` appended. A chain that contains `id` in any case is returned unchanged.
[[nodiscard]] Chain chain_with(Chain chain, std::string_view id);

// Returns the chain without the entries that equal `id` in any case.
[[nodiscard]] Chain chain_without(Chain chain, std::string_view id);

}  // namespace velmora
