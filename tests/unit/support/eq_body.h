// Request bodies of an equalizer setting, built from text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velmora {

// The object of one band. Each field is the text of its value.
inline std::string eq_band_text(std::string_view type = "0", std::string_view freq_hz = "1000",
                                std::string_view gain_db = "0", std::string_view q = "0.707") {
  std::string text("{\"type\":");
  text.append(type).append(",\"freq_hz\":").append(freq_hz).append(",\"gain_db\":").append(gain_db);
  return text.append(",\"q\":").append(q).append("}");
}

// `count` equal bands, separated by commas.
inline std::string eq_bands_text(std::size_t count, std::string_view band = eq_band_text()) {
  std::string text;
  for (std::size_t index = 0; index < count; ++index) text.append(index == 0 ? "" : ",").append(band);
  return text;
}

// A body with these bands, followed by `rest`, which starts with a comma if it is not empty.
inline std::string eq_body(std::string_view bands = eq_bands_text(15), std::string_view rest = "") {
  std::string text("{\"bands\":[");
  return text.append(bands).append("]").append(rest).append("}");
}

}  // namespace velmora
