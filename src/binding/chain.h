// The effect chain as text: which endpoint an id names, and how class ids go into a chain and out of it.
// Pure.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

// An ordered list of class ids, 8-bit text each.
using Chain = std::vector<std::string>;

// The signal processing modes that an endpoint offers to its mode effects when no driver has said so:
// default, media, movie, communications, speech, notification (AUDIO_SIGNALPROCESSINGMODE_*, ksmedia.h).
constexpr std::array<std::string_view, 6> default_processing_modes = {
    "{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}", "{4780004E-7133-41D8-8C74-660DADD2C0EE}",
    "{B26FEB0D-EC94-477C-9494-D1AB8E753F6E}", "{98951333-B9CD-48B1-A0A3-FF40682D73F7}",
    "{FC1CFC9B-B9D6-4CFA-B5E0-4BB2166878B2}", "{9CF2A70B-F377-403B-BD6B-360863E0355C}",
};

// Whether the text is a GUID in braces, 38 bytes, with hexadecimal digits of either case.
[[nodiscard]] bool is_endpoint_guid(std::string_view text);

// The GUID at the end of an endpoint id, "{0.0.0.00000000}.{GUID}" or the bare GUID, with its case unchanged.
// What stands in front is not looked at. `guid` is assigned on success alone.
[[nodiscard]] bool endpoint_guid_from_id(std::string_view id, std::string& guid);

// Equal but for the case of ASCII letters.
[[nodiscard]] bool same_effect_id(std::string_view left, std::string_view right);

[[nodiscard]] bool chain_contains(const Chain& chain, std::string_view id);

// The chain with the id at its end, or as it is where it holds the id already, in whatever case.
[[nodiscard]] Chain chain_with(Chain chain, std::string_view id);

// The chain without any entry of this id, in whatever case.
[[nodiscard]] Chain chain_without(Chain chain, std::string_view id);

}  // namespace velmora
