#include "base/unicode_text.h"

#include <gtest/gtest.h>

namespace brisko {
namespace {

TEST(UnicodeText, LowercasesFullyInTheRootLocale) {
  EXPECT_EQ(lowercasedText("/Users/VIMO/Library"), "/users/vimo/library");
  EXPECT_EQ(lowercasedText("\u212Aeychains"), "keychains");  // KELVIN SIGN
  EXPECT_EQ(lowercasedText("ÉLODIE ÅSA"), "élodie åsa");
  EXPECT_EQ(lowercasedText("\u0130"), "i\u0307");  // not the Turkish dotless rule
  EXPECT_EQ(lowercasedText("ΟΔΟΣ"), "οδος");       // final sigma in context
  // Ill-formed bytes pass through; the text around them still folds.
  EXPECT_EQ(lowercasedText("A\xffÉ"), "a\xffé");
  EXPECT_EQ(lowercasedText(std::string("A\0B", 3)), std::string("a\0b", 3));
  EXPECT_EQ(lowercasedText(""), "");
}

TEST(UnicodeText, FindsControlAndFormatCharactersAndBadBytes) {
  EXPECT_EQ(checkScalars("/a/b c/é/日本"), ScalarCheck::clean);
  EXPECT_EQ(checkScalars("a\tb"), ScalarCheck::controlCharacter);
  EXPECT_EQ(checkScalars("\x7f"), ScalarCheck::controlCharacter);
  EXPECT_EQ(checkScalars("\xc2\x9f"), ScalarCheck::controlCharacter);      // C1 control
  EXPECT_EQ(checkScalars("\xc2\xad"), ScalarCheck::controlCharacter);      // SOFT HYPHEN, Cf
  EXPECT_EQ(checkScalars("\xe2\x81\xa6"), ScalarCheck::controlCharacter);  // LRI, Cf
  EXPECT_EQ(checkScalars("\xc2\xa0"), ScalarCheck::clean);      // NO-BREAK SPACE is a space
  EXPECT_EQ(checkScalars("\xe2\x80\xa8"), ScalarCheck::clean);  // LINE SEPARATOR is Zl
  EXPECT_EQ(checkScalars("a\xc3"), ScalarCheck::invalidUtf8);
  EXPECT_EQ(checkScalars("\xed\xb0\x80"), ScalarCheck::invalidUtf8);  // a lone surrogate
  EXPECT_EQ(checkScalars("\xff\n"), ScalarCheck::invalidUtf8);        // whichever comes first
  EXPECT_TRUE(hasControlCharacter("\xff"));
}

TEST(UnicodeText, TrimsBlanksAndLineBreaksByCategory) {
  EXPECT_EQ(trimmingWhitespace(" \t\xc2\xa0~/a b\xe2\x80\x83 "), "~/a b");
  // Line breaks are not blanks for this one.
  EXPECT_EQ(trimmingWhitespace("\n~/a\r"), "\n~/a\r");
  EXPECT_EQ(trimmingWhitespaceAndNewlines("\r\n\x0b\x0c\xc2\x85~/a\xe2\x80\xa9\xe2\x80\xa8 "),
            "~/a");
  EXPECT_EQ(trimmingWhitespaceAndNewlines(" \n "), "");
  // A broken sequence at either end stays, and stops the trimming.
  EXPECT_EQ(trimmingWhitespace(" \xe2\x80 x \x80 "), "\xe2\x80 x \x80");
}

}  // namespace
}  // namespace brisko
