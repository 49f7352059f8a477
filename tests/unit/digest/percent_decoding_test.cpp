#include "upload/digest/percent_decoding.h"

#include <gtest/gtest.h>

namespace {

TEST(PercentDecoding, EscapesAndWhatIsLeftAlone) {
  struct Row {
    const char *text, *plusIsSpace, *plusStays;
  };
  const Row rows[] = {
      {"", "", ""},
      {"plain-text_~", "plain-text_~", "plain-text_~"},
      {"a%2Cb+c", "a,b c", "a,b+c"},
      {"%2B+%2b", "+ +", "+++"},
      {"%41%6a%6A%7e", "Ajj~", "Ajj~"},
      {"%C3%a4", "\xC3\xA4", "\xC3\xA4"},
      {"%fF", "\xFF", "\xFF"},
      {"%zz %0g %g0", "%zz %0g %g0", "%zz %0g %g0"},
      {"%00x", "%00x", "%00x"},
      {"%", "%", "%"},
      {"50%4", "50%4", "50%4"},
      {"%+", "% ", "%+"},
      {"%+1+", "%+1 ", "%+1+"},
      {"%%41", "%%41", "%%41"},
      {"%2541", "%41", "%41"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(percentDecode(row.text, true), row.plusIsSpace) << row.text;
    EXPECT_EQ(percentDecode(row.text, false), row.plusStays) << row.text;
  }
}

}  // namespace
