#include "effects/equalizer.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <sstream>
#include <vector>

#include "unit/support/eq_body.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

const std::string no_array = "bands must be an array";
const std::string malformed = "malformed band object";
const std::string incomplete = "each band needs type, freq_hz, gain_db and q";
const std::string bad_type = "band type must be 0..8";
const std::string bad_freq = "freq_hz must be 20..20000";
const std::string bad_gain = "gain_db must be -30..30";
const std::string bad_q = "q must be 0.1..18";
const std::string bad_count = "bands must contain exactly 15 entries";
const std::string bad_fade = "fade_ms must be 1..200";

constexpr float infinity = std::numeric_limits<float>::infinity();

// The error for a body, or an empty text. The body is in a block of its exact size.
std::string refusal_of(const std::string& body, EqSettings& settings) {
  const ExactBlock block(body);
  const Parsed<EqSettings> parsed = parse_eq(block.view(), settings);
  settings = parsed.value;
  return std::string(parsed.error);
}
std::string refusal_of(const std::string& body) {
  EqSettings settings;
  return refusal_of(body, settings);
}

// A decimal text that reads back as exactly this float.
std::string text_of(float value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.9g", static_cast<double>(value));
  return text.data();
}

// A body of 15 bands of which the third is this one.
std::string body_with_band(const std::string& band) {
  return eq_body(eq_bands_text(2) + "," + band + "," + eq_bands_text(12));
}

std::string json_of(const EqSettings& settings) {
  std::string text;
  write_eq_json(text, settings);
  return text;
}

TEST(EqBody, ReadsEachBandInOrder) {
  std::string bands;
  for (int index = 0; index < 15; ++index) {
    bands += (index == 0 ? "" : ",") + eq_band_text(std::to_string(index % 9), std::to_string(100 + index),
                                                    std::to_string(index - 7) + ".5",
                                                    std::to_string(1 + index) + ".25");
  }
  EqSettings settings;
  ASSERT_EQ(refusal_of(eq_body(bands, R"(,"bypass":false,"fade_ms":12.34)"), settings), "");
  EXPECT_FALSE(settings.bypass);
  EXPECT_EQ(settings.fade_ms, 12.34f);
  for (int index = 0; index < 15; ++index) {
    SCOPED_TRACE(index);
    const float gain = static_cast<float>(index - 7) + (index < 7 ? -0.5f : 0.5f);
    const EqBand expected{index % 9, static_cast<float>(100 + index), gain,
                          static_cast<float>(index) + 1.25f};
    EXPECT_EQ(settings.bands[static_cast<std::size_t>(index)], expected);
  }
}

TEST(EqBody, KeepsBypassAndFadeIfTheyAreMissing) {
  const struct {
    std::string rest;
    bool bypass;
    float fade_ms;
  } rows[] = {
      {"", false, 33.5f},
      {R"(,"bypass":true)", true, 33.5f},
      {R"(,"bypass":false)", false, 33.5f},
      {R"(,"fade_ms":7)", false, 7.0f},
      {R"(,"fade_ms":7,"bypass":true)", true, 7.0f},
      {R"(,"bypass":"yes")", false, 33.5f},
      {R"(,"bypass":1)", false, 33.5f},
      {R"(,"bypass":null)", false, 33.5f},
      {R"(,"bypass":True)", false, 33.5f},
      {R"(,"bypass":"yes","bypass":true)", false, 33.5f},  // the first of a name counts
      {R"(,"fade_ms":"7")", false, 33.5f},
      {R"(,"fade_ms":"700")", false, 33.5f},
      {R"(,"fade_ms":nan)", false, 33.5f},
      {R"(,"fade_ms":inf)", false, 33.5f},
      {R"(,"fade_ms":-inf)", false, 33.5f},
      {R"(,"fade_ms":1e39)", false, 33.5f},
      {R"(,"fade_ms":null)", false, 33.5f},
      {R"(,"fade_ms":)", false, 33.5f},
      {R"(,"revision":9,"other":{"x":[1]})", false, 33.5f},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rest);
    EqSettings settings;
    settings.bypass = false;
    settings.fade_ms = 33.5f;
    settings.revision = 77;
    EXPECT_EQ(refusal_of(eq_body(eq_bands_text(15), row.rest), settings), "");
    EXPECT_EQ(settings.bypass, row.bypass);
    EXPECT_EQ(settings.fade_ms, row.fade_ms);
    EXPECT_EQ(settings.revision, 77u);
  }
}

// The finders ignore nesting: the first occurrence in the text counts.
TEST(EqBody, ReadsBypassAndFadeFromTheirFirstOccurrence) {
  const std::string band = R"({"type":0,"freq_hz":20,"gain_db":0,"q":1,"bypass":false,"fade_ms":3})";
  EqSettings settings;
  EXPECT_EQ(refusal_of(eq_body(eq_bands_text(15, band), R"(,"bypass":true,"fade_ms":500)"), settings), "");
  EXPECT_FALSE(settings.bypass);
  EXPECT_EQ(settings.fade_ms, 3.0f);
}

TEST(EqBody, AcceptsKeysInAnyOrderAndBlanks) {
  const std::string band =
      "{ \"q\" :\n0.5 , \"gain_db\"\t: -1 ,\"more\":\"x\", \"freq_hz\" : 50, \"type\" : 3 }";
  EqSettings settings;
  EXPECT_EQ(
      refusal_of("{\"fade_ms\": 9, \"bypass\" : false, \"bands\" : [ " + eq_bands_text(15, band) + " ] }",
                 settings),
      "");
  EXPECT_FALSE(settings.bypass);
  EXPECT_EQ(settings.fade_ms, 9.0f);
  for (const EqBand& each : settings.bands) EXPECT_EQ(each, (EqBand{3, 50.0f, -1.0f, 0.5f}));
}

TEST(EqBody, RequiresAnArrayOfBands) {
  for (const std::string body :
       {"", "{}", "null", "bands", R"({"bands"})", R"({"bands":})", R"({"bands":12})", R"({"bands":{}})",
        R"({"bands":"x"})", R"({"Bands":[]})", R"({"bands":[)", R"({"bands":[{})", R"({"bands":[{])",
        R"({"bypass":true,"fade_ms":20})", R"([{"type":0}])"}) {
    SCOPED_TRACE(body);
    EXPECT_EQ(refusal_of(body), no_array);
  }
  EXPECT_EQ(refusal_of(eq_body(eq_bands_text(15)).substr(0, eq_body().size() - 2)), no_array);
}

TEST(EqBody, Requires15BandsAndIgnoresMore) {
  for (std::size_t count = 0; count < 15; ++count) {
    EXPECT_EQ(refusal_of(eq_body(eq_bands_text(count))), bad_count) << count;
  }
  EXPECT_EQ(refusal_of(eq_body(eq_bands_text(15))), "");
  EXPECT_EQ(refusal_of(eq_body(eq_bands_text(16))), "");
  for (const std::string sixteenth : {"{}", "{\"type\":9}", "garbage", "[]", "{{}}", "\"{\"},{\"", ",,,"}) {
    SCOPED_TRACE(sixteenth);
    EXPECT_EQ(refusal_of(eq_body(eq_bands_text(15) + "," + sixteenth)), "");
  }
  EXPECT_EQ(refusal_of(eq_body(eq_bands_text(15) + "," + eq_band_text("9", "1", "99", "99"))), "");
  EXPECT_EQ(refusal_of(eq_body("1,2,3")), bad_count);
  EXPECT_EQ(refusal_of(eq_body(eq_bands_text(14) + ",[]")), bad_count);
}

TEST(EqBody, IgnoresTextBetweenBands) {
  for (const std::string between : {"", " ", ",,", "nonsense", "[1,2]", "\"type\":99", ":\n", "\xFF"}) {
    SCOPED_TRACE(between);
    std::string bands = between;
    for (int index = 0; index < 15; ++index) bands += eq_band_text() + between;
    EXPECT_EQ(refusal_of(eq_body(bands)), "");
  }
  // Brackets there still count: the array ends at an extra one.
  for (const std::string between : {"}", "]"}) {
    SCOPED_TRACE(between);
    EXPECT_EQ(refusal_of(eq_body(eq_bands_text(7) + between + eq_bands_text(8))), bad_count);
  }
}

TEST(EqBody, RequiresTheClosingBraceOfABand) {
  // Both kinds of brackets balance the array, so that a brace may be closed by what is none.
  EXPECT_EQ(refusal_of(R"({"bands":[{]])"), malformed);
  EXPECT_EQ(refusal_of(R"({"bands":[{"type":0,"freq_hz":20,"gain_db":0,"q":1]])"), malformed);
  EXPECT_EQ(refusal_of("{\"bands\":[" + eq_bands_text(14) + ",{\"type\":0]]"), malformed);
  EXPECT_EQ(refusal_of("{\"bands\":[" + eq_bands_text(14) + ",{]}"), malformed);
  // An earlier bad band is reported first. A band after the fifteenth is ignored.
  EXPECT_EQ(refusal_of("{\"bands\":[" + eq_band_text("9") + ",{]]"), bad_type);
  EXPECT_EQ(refusal_of("{\"bands\":[" + eq_bands_text(15) + ",{]]"), "");
}

TEST(EqBody, EndsABandAtTheFirstClosingBrace) {
  const struct {
    std::string band;
    std::string refusal;
  } rows[] = {
      // Text after a nested object is not part of the band.
      {R"({"x":{"y":1},"type":0,"freq_hz":20,"gain_db":0,"q":1})", incomplete},
      {R"({"type":0,"freq_hz":20,"gain_db":0,"x":{},"q":1})", incomplete},
      {R"({"type":0,"freq_hz":20,"gain_db":0,"q":1,"x":{"y":1}})", ""},
      {R"({"x":{"type":0,"freq_hz":20,"gain_db":0,"q":1}})", ""},
      {R"({{{"type":0,"freq_hz":20,"gain_db":0,"q":1}}})", ""},
      {R"({"x":"{","type":0,"freq_hz":20,"gain_db":0,"q":1,"y":"}"})", ""},
      {R"({"x":"{}","type":0,"freq_hz":20,"gain_db":0,"q":1})", incomplete},
      {R"({"type":0,"freq_hz":20,"gain_db":0,"q":1},"{}")", incomplete},  // a brace in text opens a band
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.band);
    EXPECT_EQ(refusal_of(body_with_band(row.band)), row.refusal);
  }
}

TEST(EqBody, RequiresAllFourNumbersOfABand) {
  const std::string rows[] = {
      "{}",
      R"({"freq_hz":20,"gain_db":0,"q":1})",
      R"({"type":0,"gain_db":0,"q":1})",
      R"({"type":0,"freq_hz":20,"q":1})",
      R"({"type":0,"freq_hz":20,"gain_db":0})",
      R"({"type":0,"freq_hz":20,"gain_db":0,"Q":1})",
      R"({"type":99,"freq_hz":20,"gain_db":0})",  // what is missing comes before what is out of range
      R"({"freq_hz":1,"gain_db":99,"q":99})",
      eq_band_text("\"0\""),
      eq_band_text("0", "\"20\""),
      eq_band_text("0", "20", "\"0\""),
      eq_band_text("0", "20", "0", "\"1\""),
      eq_band_text("nan"),
      eq_band_text("inf"),
      eq_band_text("0", "nan"),
      eq_band_text("0", "-infinity"),
      eq_band_text("0", "20", "NaN"),
      eq_band_text("0", "20", "inf"),
      eq_band_text("0", "20", "0", "nan(1)"),
      eq_band_text("0", "20", "0", "INF"),
      eq_band_text("0", "1e39"),
      eq_band_text("0", "20", "-1e39"),
      eq_band_text("true"),
      eq_band_text("null"),
      eq_band_text("0", "20", "0", ""),
      eq_band_text("0", "20", "[0]"),
  };
  for (const std::string& band : rows) {
    SCOPED_TRACE(band);
    EXPECT_EQ(refusal_of(body_with_band(band)), incomplete);
  }
}

TEST(EqBody, TruncatesTheTypeBetweenItsRangeChecks) {
  const struct {
    std::string text;
    std::int32_t type;
  } taken[] = {
      {"0", 0},         {"-0", 0},  {"-0.0", 0},  {"-1e-50", 0}, {"0.999", 0},
      {"1", 1},         {"2.5", 2}, {"7.99", 7},  {"8", 8},      {"8.9", 8},
      {"0x1.8p1", 3},   {"0X8", 8}, {"80e-1", 8}, {"+4", 4},     {text_of(std::nextafter(9.0f, 0.0f)), 8},
      {"1.401e-45", 0}, {"8dB", 8}, {"00008", 8},
  };
  for (const auto& row : taken) {
    SCOPED_TRACE(row.text);
    EqSettings settings;
    EXPECT_EQ(refusal_of(body_with_band(eq_band_text(row.text)), settings), "");
    EXPECT_EQ(settings.bands[2].type, row.type);
  }
  for (const std::string text : {"-0.5", "-1", "-1e-40", "-1.401e-45", "9", "8.99999999", "9.0001", "1e10",
                                 "-1e10", "3e38", "-3e38", "0x9", "2147483648", "4294967296"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(refusal_of(body_with_band(eq_band_text(text))), bad_type);
  }
}

// Bounds are those of 32-bit floats: the next one beyond is refused, and a decimal that only reads as the
// bound is the bound.
TEST(EqBody, AcceptsEachBoundAndRefusesTheNextFloat) {
  const struct {
    std::string key;
    float low;
    float high;
    std::string refusal;
  } rows[] = {
      {"freq_hz", 20.0f, 20000.0f, bad_freq},
      {"gain_db", -30.0f, 30.0f, bad_gain},
      {"q", 0.1f, 18.0f, bad_q},
      {"fade_ms", 1.0f, 200.0f, bad_fade},
  };
  for (const auto& row : rows) {
    const auto refusal_with = [&](const std::string& number) {
      SCOPED_TRACE(row.key + " " + number);
      const auto of = [&](const std::string& key, const std::string& other) {
        return row.key == key ? number : other;
      };
      const std::string band = eq_band_text("0", of("freq_hz", "1000"), of("gain_db", "0"), of("q", "1"));
      EqSettings settings;
      const std::string body = eq_body(eq_bands_text(14) + "," + band, ",\"fade_ms\":" + of("fade_ms", "5"));
      const std::string refusal = refusal_of(body, settings);
      const EqBand& last = settings.bands[14];
      const float stored = row.key == "freq_hz"   ? last.freq_hz
                           : row.key == "gain_db" ? last.gain_db
                           : row.key == "q"       ? last.q
                                                  : settings.fade_ms;
      if (refusal.empty()) {
        EXPECT_EQ(text_of(stored), number);
      }
      return refusal;
    };
    EXPECT_EQ(refusal_with(text_of(row.low)), "");
    EXPECT_EQ(refusal_with(text_of(row.high)), "");
    EXPECT_EQ(refusal_with(text_of(std::nextafter(row.low, infinity))), "");
    EXPECT_EQ(refusal_with(text_of(std::nextafter(row.high, -infinity))), "");
    EXPECT_EQ(refusal_with(text_of(std::nextafter(row.low, -infinity))), row.refusal);
    EXPECT_EQ(refusal_with(text_of(std::nextafter(row.high, infinity))), row.refusal);
    EXPECT_EQ(refusal_with(text_of(std::numeric_limits<float>::max())), row.refusal);
    EXPECT_EQ(refusal_with(text_of(std::numeric_limits<float>::lowest())), row.refusal);
  }
}

TEST(EqBody, ReadsItsNumbersAs32BitFloats) {
  EXPECT_EQ(refusal_of(body_with_band(eq_band_text("0", "19.9999999"))), "");
  EXPECT_EQ(refusal_of(body_with_band(eq_band_text("0", "20000.0001"))), "");
  EXPECT_EQ(refusal_of(body_with_band(eq_band_text("0", "20", "30.0000001"))), "");
  EXPECT_EQ(refusal_of(body_with_band(eq_band_text("0", "20", "0", "0.0999999999"))), "");
  EXPECT_EQ(refusal_of(eq_body(eq_bands_text(15), R"(,"fade_ms":200.000001)")), "");
  EXPECT_EQ(refusal_of(eq_body(eq_bands_text(15), R"(,"fade_ms":0x1p0)")), "");
  EXPECT_EQ(refusal_of(eq_body(eq_bands_text(15), R"(,"fade_ms":0x1p8)")), bad_fade);
}

TEST(EqBody, ReportsTheFirstRuleThatTheFirstBadBandBreaks) {
  const std::string out_of_range = ",\"fade_ms\":0.5";
  const std::pair<std::string, std::string> rows[] = {
      {body_with_band(eq_band_text("9", "1", "99", "99")), bad_type},
      {body_with_band(eq_band_text("9", "20", "0", "99")), bad_type},
      {body_with_band(eq_band_text("8", "1", "99", "99")), bad_freq},
      {body_with_band(eq_band_text("8", "20", "99", "99")), bad_gain},
      {body_with_band(eq_band_text("8", "20", "30", "99")), bad_q},
      {eq_body(eq_bands_text(14, eq_band_text("0", "20", "0", "99"))), bad_q},  // ahead of the count
      {eq_body(eq_band_text("0", "20", "0", "99") + "," + eq_bands_text(14, eq_band_text("9"))), bad_q},
      {eq_body(eq_bands_text(14) + "," + eq_band_text("9")), bad_type},
      {eq_body(eq_band_text("0", "20", "99") + ",{}," + eq_bands_text(13)), bad_gain},
      {eq_body("{}," + eq_band_text("0", "20", "99") + "," + eq_bands_text(13)), incomplete},
      {eq_body(eq_bands_text(14) + "," + eq_band_text("0", "1"), out_of_range), bad_freq},
      {eq_body(eq_bands_text(14), out_of_range), bad_count},
      {"{\"fade_ms\":0.5," + eq_body(eq_bands_text(14)).substr(1), bad_count},
      {R"({"fade_ms":0.5})", no_array},
      {eq_body(eq_bands_text(15), out_of_range), bad_fade},
      {eq_body(eq_bands_text(15), out_of_range + R"(,"bypass":"yes")"), bad_fade},
  };
  for (const auto& [body, refusal] : rows) {
    SCOPED_TRACE(body);
    EXPECT_EQ(refusal_of(body), refusal);
  }
}

TEST(EqBody, IsReadAtEveryLength) {
  const std::string whole = eq_body(eq_bands_text(15), R"(,"bypass":false,"fade_ms":150)");
  const std::size_t array_end = whole.find(']');
  const std::size_t array_start = whole.find('[') + 1;
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    SCOPED_TRACE(length);
    const std::string cut = whole.substr(0, length);
    EXPECT_EQ(refusal_of(cut), length > array_end ? "" : no_array);
    // The same with the array ended there.
    if (length < array_start || length > array_end) continue;
    const bool inside_a_band = cut.rfind('{') > array_start - 1 &&
                               (cut.rfind('}') == std::string::npos || cut.rfind('}') < cut.rfind('{'));
    const std::string expected = inside_a_band ? malformed : length == array_end ? "" : bad_count;
    EXPECT_EQ(refusal_of(cut + "]]"), expected);
  }
}

TEST(EqJson, OmitsTheRevision) {
  std::string expected = R"({"bypass":true,"fade_ms":20,"bands":[)";
  for (int band = 0; band < 15; ++band) {
    expected += (band == 0 ? "" : ",") + std::string(R"({"type":0,"freq_hz":1000,"gain_db":0,"q":0.707})");
  }
  EqSettings settings;
  settings.revision = 12;
  EXPECT_EQ(json_of(settings), expected + "]}");
}

TEST(EqJson, SpreadsTheBandsOfANewRecordFrom20To20000) {
  ControlBridgeRecord record{};
  initialise_record(record);
  EqSettings settings;
  ASSERT_TRUE(read_eq(record, settings));
  std::string expected = R"({"bypass":true,"fade_ms":20,"bands":[)";
  const char* separator = "";
  for (const std::string freq_hz :
       {"20", "32.7579", "53.6539", "87.8794", "143.937", "235.754", "386.14", "632.456", "1035.9", "1696.69",
        "2778.99", "4551.69", "7455.19", "12210.8", "20000"}) {
    expected += separator + std::string(R"({"type":0,"freq_hz":)") + freq_hz + R"(,"gain_db":0,"q":0.707})";
    separator = ",";
  }
  EXPECT_EQ(json_of(settings), expected + "]}");
}

TEST(EqJson, WritesNumbersWithSixSignificantDigits) {
  EqSettings settings;
  settings.bypass = false;
  settings.fade_ms = 1e-5f;
  settings.bands[0] = {8, 32.757877f, -30.0f, 18.0f};
  settings.bands[1] = {-2147483647 - 1, 1e6f, -0.0f, infinity};
  settings.bands[2] = {2147483647, 999999.5f, 123456.0f, std::numeric_limits<float>::quiet_NaN()};
  const std::string text = json_of(settings);
  const std::string expected =
      R"({"bypass":false,"fade_ms":1e-05,"bands":[{"type":8,"freq_hz":32.7579,"gain_db":-30,"q":18},)"
      R"({"type":-2147483648,"freq_hz":1e+06,"gain_db":-0,"q":inf},)"
      R"({"type":2147483647,"freq_hz":1e+06,"gain_db":123456,"q":nan},)"
      R"({"type":0,"freq_hz":1000,"gain_db":0,"q":0.707})";
  EXPECT_EQ(text.substr(0, expected.size()), expected);
}

// The same settings written by a standard stream.
std::string streamed(const EqSettings& settings) {
  std::ostringstream stream;
  stream << "{\"bypass\":" << (settings.bypass ? "true" : "false") << ",\"fade_ms\":" << settings.fade_ms
         << ",\"bands\":[";
  for (std::size_t index = 0; index < settings.bands.size(); ++index) {
    const EqBand& band = settings.bands[index];
    stream << (index == 0 ? "" : ",") << "{\"type\":" << band.type << ",\"freq_hz\":" << band.freq_hz
           << ",\"gain_db\":" << band.gain_db << ",\"q\":" << band.q << "}";
  }
  stream << "]}";
  return stream.str();
}

TEST(EqJson, MatchesTheOutputOfAStream) {
  std::mt19937 random(20240501);
  const auto any_float = [&] {
    float value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    while (std::isnan(value)) value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    return value;
  };
  for (int round = 0; round < 500; ++round) {
    EqSettings settings;
    settings.bypass = random() % 2 == 0;
    settings.fade_ms = any_float();
    for (EqBand& band : settings.bands) {
      band = {static_cast<std::int32_t>(random()), any_float(), any_float(), any_float()};
    }
    ASSERT_EQ(json_of(settings), streamed(settings));
  }
}

TEST(EqJson, IsUnchangedAfterItIsReadAndWritten) {
  std::mt19937 random(7);
  const auto between = [&](float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
  };
  for (int round = 0; round < 500; ++round) {
    EqSettings settings;
    settings.bypass = random() % 2 == 0;
    settings.fade_ms = between(1.0f, 200.0f);
    for (EqBand& band : settings.bands) {
      band = {static_cast<std::int32_t>(random() % 9), between(20.0f, 20000.0f), between(-30.0f, 30.0f),
              between(0.1f, 18.0f)};
    }
    const std::string text = json_of(settings);
    ASSERT_EQ(text, streamed(settings));
    EqSettings read;
    ASSERT_EQ(refusal_of(text, read), "") << text;
    EXPECT_EQ(json_of(read), text);
  }
}

}  // namespace
}  // namespace velmora
