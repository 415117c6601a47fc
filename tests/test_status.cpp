// The status catalogue seen from outside: extent and gaps, distinct texts
// except the known twins, a few known texts, and the fall-through.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "lum.h"

namespace {

TEST(StatusCatalogue, ExtentGapsTwinsAndKnownTexts) {
  // Every code from -209 to 38 but ten, and -9998 and -9999: 240 entries.
  const std::set<int> gaps = {-165, -89, -88, -87, -86, -85, -84, -68, -3, -1};
  const std::string unknown = "Unknown Status Code";
  std::map<std::string, std::set<int>> byText;
  int count = 0;
  for (int code = -10050; code <= 200; ++code) {
    const char* text = lumGetStatusString(code);
    ASSERT_TRUE(text != nullptr && text == lumGetStatusString(code))
        << code;  // the same pointer every time
    const bool listed =
        (code >= -209 && code <= 38 && !gaps.count(code)) || code == -9998 || code == -9999;
    EXPECT_EQ(unknown != text, listed) << code;
    if (unknown != text) byText[text].insert(code), ++count;
  }
  EXPECT_EQ(count, 240);
  for (int code : {INT32_MIN, INT32_MAX}) EXPECT_EQ(lumGetStatusString(code), unknown);
  // Texts the family uses for two codes each; every other text is unique.
  const std::map<std::string, std::set<int>> twins = {
      {"Incorrect bit offset value", {-193, -105}},
      {"Incorrect quantization parameter", {-192, -104}},
      {"Illegal code during DC stream processing", {-99, -73}},
      {"Illegal Huffman code during VLC stream processing", {-100, -74}},
      {"Illegal Huffman code during MV stream processing", {-101, -75}}};
  for (const auto& [text, codes] : byText)
    EXPECT_EQ(codes, twins.count(text) ? twins.at(text) : std::set<int>{*codes.begin()}) << text;
  // Codes the library itself returns, an outlier and a published spelling.
  const std::pair<int, const char*> known[] = {
      {0, "No error, it's OK"},
      {6, "Zero value(s) of the divisor in the function Div"},
      {20, "The target cpu is not Genuine Torva"},
      {21, "The library for given cpu cannot be set"},
      {37, "The cpu is supported, but the size of the cache is unknown"},
      {-8, "Null pointer error"},
      {-108, "Step value is not pixel multiple"},
      {-9999, "The requested mode is currently not supported"},
      {13,
       "Quantized LP syntethis filter stability check is applied at the low boundary of [0,pi]"}};
  for (const auto& [code, text] : known) EXPECT_STREQ(lumGetStatusString(code), text) << code;
}

}  // namespace
