#include <zeb/Array.h>
#include <zeb/String.h>
#include <zeb/Value.h>

#include <gtest/gtest.h>

#include <string>

using zeb::String;

TEST(String, EightBitTextAppendCopiesAndMoves) {
    EXPECT_EQ(0xE9u, String("\xE9").getUCS2Buffer()[0]) << "each byte is one character, not UTF-8";
    const unsigned short ucs2[] = {'A', 'd', 0};
    EXPECT_TRUE(String(ucs2) == String(L"Ad"));
    EXPECT_FALSE(String("Adapter") == "Adapte");
    EXPECT_FALSE(String("Adapte") == "Adapter");
    String s("ab");
    s.append("cd").append(String("ef"));
    s.append(s);  // appending itself
    EXPECT_TRUE(s == "abcdefabcdef");
    EXPECT_EQ(0u, s.getUCS2Buffer()[s.size()]);
    EXPECT_TRUE(("x" + String("y")) == "xy");
    // Short texts live inside the object, long ones on the heap: copies and moves of both.
    String longText(std::string(40, 'x').c_str()), shortText("short");
    String movedLong(std::move(longText)), movedShort(std::move(shortText));
    EXPECT_TRUE(longText.empty() && shortText.empty());
    longText = movedShort;
    movedShort = std::move(movedLong);
    String copy = movedShort;
    copy.append("!");
    EXPECT_TRUE(longText == "short" && movedShort.size() == 40) << "copies are deep";
    EXPECT_EQ(0u, movedShort.getUCS2Buffer()[40]);
}

TEST(String, TokenizeSubStringRemoveAndNumbers) {
    zeb::Array<String> tokens = String("1:Bip01,,Bip02: ").tokenize(String(":, "));
    ASSERT_EQ(3u, tokens.size());
    EXPECT_TRUE(tokens[1] == "Bip01" && tokens[2] == "Bip02");
    String s("textures\\wall.dds");
    EXPECT_TRUE(s.subString(9, 100) == "wall.dds") << "length is clipped";
    EXPECT_TRUE(s.subString(100, 2).empty());
    s.remove(0, 9).remove(4, 1000);
    EXPECT_TRUE(s == "wall");
    const struct {
        const char* text;
        int base;
        unsigned value;
    } numbers[] = {{"42:frame", 10, 42}, {"0xFF", 16, 255}, {"1012", 2, 5}, {"frame", 10, 0}, {"4294967295", 10, 0xFFFFFFFFu}};
    for (const auto& n : numbers) EXPECT_EQ(n.value, String::strToUInt(String(n.text), n.base)) << n.text;
}

TEST(String, ConversionsAndValueTexts) {
    const unsigned short text[] = {0x80, 0xE9, 0x20AC, 0xD83D, 0xDE00, 0};  // the first of two bytes, é, € and a pair
    String s(text);
    EXPECT_STREQ("\xC2\x80\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", s.getUTF8String());
    zeb::CString low = s.getLowerByteString();
    EXPECT_EQ(5u, low.size());
    EXPECT_STREQ("\x80\xE9\xAC=", low) << "the low byte of each unit";
    EXPECT_TRUE(String::fromUTF8("a\xC3\xA9") == String(L"a\u00e9"));
    EXPECT_TRUE(zeb::ZEBValue(7u).toString(7u) == "nil");
    EXPECT_TRUE(zeb::ZEBValue(0.5f).toString(zeb::ZEBValue::nilValue) == "0.5");
    EXPECT_TRUE(zeb::ZEBValue(0xABu).toHexString(true) == "0x000000AB");
}
