#include <zeb/Array.h>
#include <zeb/String.h>

#include <gtest/gtest.h>

using zeb::String;

TEST(String, BuildsFromNarrowAndWideText) {
    String s("abc");
    EXPECT_EQ(3u, s.size());
    EXPECT_TRUE(s == "abc");
    EXPECT_TRUE(String(L"abc") == s);
}
