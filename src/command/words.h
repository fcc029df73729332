// Numbers and texts of documents as a person reads them. Pure.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// Each of these returns "?" where there is no number, or none that is finite.

// A whole number, such as "1234".
[[nodiscard]] std::string count_text(std::optional<double> number);
// A share of 1, such as "50 %". What is above 0 never reads 0 %.
[[nodiscard]] std::string percent_text(std::optional<double> share);
// Decibels with one digit behind the point, such as "+3.5 dB", "0 dB" and "-6 dB".
[[nodiscard]] std::string decibels_text(std::optional<double> decibels);

// The text with "?" for each byte that a terminal would obey: below 0x20, and 0x7F.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace velmora
