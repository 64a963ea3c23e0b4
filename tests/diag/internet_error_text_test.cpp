#include <deskaid/diag/internet_error_text.h>

#include <gtest/gtest.h>

#include <climits>

// As users know them: five texts end in ". ", the others but the first in ".".
TEST(InternetErrorText, CoversExactlyTheKnownCodesWithTheirTexts) {
  for (int32_t code : {-12001, INT32_MIN, INT32_MAX}) EXPECT_EQ(InternetErrorText(code), nullptr);
  for (int32_t code = 11990; code <= 12050; ++code) {
    const char* text = InternetErrorText(code);
    ASSERT_EQ(text != nullptr, code >= 12001 && code <= 12036 && (code < 12032 || code > 12035))
        << code;
    if (text == nullptr || code == 12001) continue;
    const std::string s = text;
    const bool spaced =
        code == 12011 || code == 12014 || code == 12016 || code == 12021 || code == 12023;
    EXPECT_EQ(s.substr(s.size() - (spaced ? 2 : 1)), spaced ? ". " : ".") << code;
  }
  EXPECT_STREQ(InternetErrorText(12001), "No more handles could be generated at this time");
  EXPECT_STREQ(InternetErrorText(12017),
               "The operation was canceled, usually because the handle on which the request was "
               "operating was closed before the operation completed.");
  EXPECT_STREQ(InternetErrorText(12036), "The request failed because the handle already exists.");
}
