#include <zeb/Array.h>
#include <zeb/String.h>
#include <zeb/Value.h>

#include <gtest/gtest.h>

#include <cstring>

using zeb::String;

namespace {
const unsigned short kAlphaUpper[] = {'D', 0xC4, 'X', 0};  // "DÄX"
const unsigned short kAlphaLower[] = {'d', 0xE4, 'x', 0};  // "däx"
}  // namespace

TEST(String, ConstructionAndComparison) {
    String narrow("Adapter");
    EXPECT_EQ(7u, narrow.size());
    EXPECT_TRUE(narrow == "Adapter");
    EXPECT_FALSE(narrow == "Adapte");
    EXPECT_FALSE(narrow == "Adapters");
    EXPECT_TRUE(String(L"Adapter") == narrow);
    const unsigned short ucs2[] = {'A', 'd', 'a', 'p', 't', 'e', 'r', 0};
    EXPECT_TRUE(String(ucs2) == narrow);
    // High bytes of 8-bit text are single characters, not UTF-8.
    EXPECT_EQ(0xE9u, String("\xE9").getUCS2Buffer()[0]);
    EXPECT_TRUE(String().empty());
    EXPECT_EQ(0u, String().getUCS2Buffer()[0]);
}

TEST(String, AppendingKeepsTheTerminatorAndHandlesSelfAppend) {
    String s("ab");
    s.append("cd").append(String("ef"));
    s += String("gh");
    EXPECT_TRUE(s == "abcdefgh");
    EXPECT_EQ(0u, s.getUCS2Buffer()[s.size()]);
    s.append(s);
    EXPECT_TRUE(s == "abcdefghabcdefgh");
    EXPECT_TRUE(("x" + String("y")) == "xy");
    String copy = s;
    copy.append("!");
    EXPECT_EQ(16u, s.size()) << "copies are deep";
}

TEST(String, CompareNoCaseIgnoresLetterCaseOnly) {
    EXPECT_EQ(0, String("\\\\.\\DISPLAY1").compareNoCase(String("\\\\.\\display1")));
    EXPECT_EQ(0, String::compareNoCase(String(kAlphaUpper), String(kAlphaLower)));
    EXPECT_LT(String("abc").compareNoCase(String("ABD")), 0);
    EXPECT_GT(String("abd").compareNoCase(String("ABC")), 0);
    EXPECT_LT(String("ab").compareNoCase(String("ABC")), 0) << "a prefix sorts first";
    EXPECT_NE(0, String("a").compareNoCase(String("")));
    EXPECT_FALSE(String("Frame") == String("frame")) << "equality stays exact";
}

TEST(String, TokenizeSubStringAndRemove) {
    zeb::Array<String> tokens = String("1:Bip01,,Bip02: ").tokenize(String(":, "));
    ASSERT_EQ(3u, tokens.size());
    EXPECT_TRUE(tokens[0] == "1");
    EXPECT_TRUE(tokens[1] == "Bip01");
    EXPECT_TRUE(tokens[2] == "Bip02");
    EXPECT_EQ(0u, String(":::").tokenize(String(":")).size());

    String s("textures\\wall.dds");
    EXPECT_TRUE(s.subString(9, 4) == "wall");
    EXPECT_TRUE(s.subString(9, 100) == "wall.dds") << "length is clipped";
    EXPECT_TRUE(s.subString(100, 2).empty());
    EXPECT_EQ(8u, s.findLast('\\'));
    s.remove(0, 9);
    EXPECT_TRUE(s == "wall.dds");
    s.remove(4, 1000);
    EXPECT_TRUE(s == "wall");
    s.remove(10, 1);
    EXPECT_TRUE(s == "wall");
    s.clear();
    EXPECT_TRUE(s.empty());
}

TEST(String, StrToUIntReadsDigitsOfTheBase) {
    EXPECT_EQ(42u, String::strToUInt(String("42:frame"), 10));
    EXPECT_EQ(255u, String::strToUInt(String("ff"), 16));
    EXPECT_EQ(255u, String::strToUInt(String("0xFF"), 16));
    EXPECT_EQ(5u, String::strToUInt(String("101"), 2));
    EXPECT_EQ(0u, String::strToUInt(String("frame"), 10));
    EXPECT_EQ(0xFFFFFFFFu, String::strToUInt(String("4294967295"), 10));
}

TEST(String, ConversionsToEightBitText) {
    const unsigned short text[] = {'a', 0xE9, 0x20AC, 0xD83D, 0xDE00, 0};  // a é € 😀
    String s(text);
    EXPECT_STREQ("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", s.getUTF8String());
    zeb::CString low = s.getLowerByteString();
    ASSERT_EQ(5u, low.size());
    EXPECT_EQ('a', low[0]);
    EXPECT_EQ(static_cast<char>(0xE9), low[1]);
    EXPECT_EQ(static_cast<char>(0xAC), low[2]);
    EXPECT_TRUE(String::fromUTF8("a\xC3\xA9") == String(L"a\u00e9"));
}

TEST(ZEBValue, NumbersAndFlagsAsText) {
    EXPECT_TRUE(zeb::ZEBValue(123u).toString(zeb::ZEBValue::nilValue) == "123");
    EXPECT_TRUE(zeb::ZEBValue(0xFFFFFFFFu).toString(zeb::ZEBValue::nilValue) == "4294967295");
    EXPECT_TRUE(zeb::ZEBValue(7u).toString(7u) == "nil");
    EXPECT_TRUE(zeb::ZEBValue(true).toString(zeb::ZEBValue::nilValue) == "true");
    EXPECT_TRUE(zeb::ZEBValue(0.5f).toString(zeb::ZEBValue::nilValue) == "0.5");
    EXPECT_TRUE(zeb::ZEBValue(0xABu).toHexString(true) == "0x000000AB");
    EXPECT_TRUE(zeb::ZEBValue(0xABu).toHexString(false) == "000000AB");
}

TEST(String, ShortAndLongTextSurviveCopiesAndMoves) {
    String longText;
    for (int i = 0; i < 40; ++i) longText.append("x");
    String shortText("short");
    String movedLong(std::move(longText));
    String movedShort(std::move(shortText));
    EXPECT_EQ(40u, movedLong.size());
    EXPECT_TRUE(movedShort == "short");
    EXPECT_TRUE(longText.empty());
    EXPECT_TRUE(shortText.empty());
    longText = movedShort;  // reuse after a move
    EXPECT_TRUE(longText == "short");
    movedShort = std::move(movedLong);
    EXPECT_EQ(40u, movedShort.size());
    EXPECT_EQ(0u, movedShort.getUCS2Buffer()[40]);
    zeb::Array<String> grown;
    for (int i = 0; i < 20; ++i) grown.append(i % 2 ? movedShort : longText);
    EXPECT_EQ(40u, grown[19].size());
    EXPECT_TRUE(grown[18] == "short");
}
