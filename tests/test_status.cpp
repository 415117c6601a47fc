// The status catalogue seen from outside: its extent, its gaps, the texts the
// library's own functions return, and the lookup's fall-through.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>

#include "lum.h"

namespace {

const std::string kUnknown = "Unknown Status Code";

bool known(int code) { return kUnknown != lumGetStatusString(code); }

TEST(StatusCatalogue, HasExactlyTheFamilysCodes) {
  // Every code from -209 to 38 except ten gaps, plus -9998 and -9999.
  const std::set<int> gaps = {-165, -89, -88, -87, -86, -85, -84, -68, -3, -1};
  int count = 0;
  for (int code = -10050; code <= 200; ++code) {
    const bool listed = (code >= -209 && code <= 38 && !gaps.count(code)) || code == -9998 || code == -9999;
    EXPECT_EQ(known(code), listed) << code;
    count += known(code);
  }
  EXPECT_EQ(count, 240);
  for (int code : {39, -210, 1000, -10000, INT32_MIN, INT32_MAX})
    EXPECT_EQ(lumGetStatusString(code), kUnknown) << code;
}

TEST(StatusCatalogue, MessagesAreDistinctExceptTheKnownTwins) {
  // Texts the family uses for two codes each; every other text is unique.
  const std::map<std::string, std::set<int>> twins = {
      {"Incorrect bit offset value", {-193, -105}},
      {"Incorrect quantization parameter", {-192, -104}},
      {"Illegal code during DC stream processing", {-99, -73}},
      {"Illegal Huffman code during VLC stream processing", {-100, -74}},
      {"Illegal Huffman code during MV stream processing", {-101, -75}},
  };
  std::map<std::string, std::set<int>> byText;
  for (int code = -10000; code <= 38; ++code)
    if (known(code)) byText[lumGetStatusString(code)].insert(code);
  for (const auto& [text, codes] : byText) {
    const auto twin = twins.find(text);
    if (twin != twins.end())
      EXPECT_EQ(codes, twin->second) << text;
    else
      EXPECT_EQ(codes.size(), 1u) << "\"" << text << "\" is shared";
  }
}

TEST(StatusCatalogue, TextsOfTheLibrarysOwnCodesAndTheOutliers) {
  const std::pair<int, const char*> texts[] = {
      {lumStsNoErr, "No error, it's OK"},
      {lumStsNoOperation, "No operation has been executed"},
      {lumStsDivByZero, "Zero value(s) of the divisor in the function Div"},
      {lumStsNotGenuineCpu, "The target cpu is not Genuine Torva"},
      {lumStsCpuNotSet, "The library for given cpu cannot be set"},
      {lumStsCpuNotSupported, "The cpu is not supported"},
      {lumStsCacheSizeUnknown, "The cpu is supported, but the size of the cache is unknown"},
      {lumStsNoMemErr, "Not enough memory for the operation"},
      {lumStsBadArgErr, "Function arg/param is bad"},
      {lumStsSizeErr, "Wrong value of data size"},
      {lumStsNullPtrErr, "Null pointer error"},
      {lumStsMemAllocErr, "Not enough memory allocated for the operation"},
      {lumStsDivByZeroErr, "An attempt to divide by zero"},
      {lumStsOutOfRangeErr, "Argument is out of range or point is outside the image"},
      {lumStsScaleRangeErr, "Scale bounds are out of the range"},
      {lumStsStepErr, "Step value is not valid"},
      {lumStsStepNotPixelMultipleErr, "Step value is not pixel multiple"},
      // Published spellings and the outliers stay as they are.
      {-9999, "The requested mode is currently not supported"},
      {-9998, "The target cpu is not supported"},
      {13, "Quantized LP syntethis filter stability check is applied at the low boundary of [0,pi]"},
      {-182, "Stride value is not positive or not dividend to size of data type"},
      {23, "The newest version of LUM dll's not found by dispatcher"},
      {28, "4th vertex of destination quad is not equal to customer's one"},
      {-209, "Ripple in passband for Chebyshev1 design is less zero, equal to zero or greater than 29"},
      {38, "The Kernel is not symmetric"},
      {-2, "Unknown/unspecified error"},
  };
  for (const auto& [code, text] : texts) EXPECT_STREQ(lumGetStatusString(code), text) << code;
}

TEST(StatusCatalogue, SamePointerOnEveryCallAndNeverEmpty) {
  for (int code = -10000; code <= 100; ++code) {
    const char* first = lumGetStatusString(code);
    ASSERT_TRUE(first != nullptr && *first != 0) << code;
    ASSERT_EQ(lumGetStatusString(code), first) << code;
  }
}

}  // namespace
