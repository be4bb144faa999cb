#include "base/EUtility.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using Text = std::wstring;

TEST(String, FormatTakesWideTextAndEveryLength) {
    const wchar_t* oil = L"\u00d6l!";
    EString text;
    text.Format(L"%6s|%-6s|%.2s|%c%%s %lld", oil, oil, oil, L'\U0001F600', LLONG_MIN);
    EXPECT_STREQ(text, L"   \u00d6l!|\u00d6l!   |\u00d6l|\U0001F600%s -9223372036854775808");
    text.Format(L"%s%c", Text(5000, L'x').c_str(), L'y');
    EXPECT_EQ(Text(text), Text(5000, L'x') + L'y');
    text.Format(L"100%d %", 1);
    text.Replace(L"", L"x");
    EXPECT_STREQ(text.GetBuffer(8), L"");
}

TEST(String, Utf8HasTheScalarValuesAndNothingElse) {
    const std::string bytes = // the ends of the lengths and of the gap
        "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
    Text text = L"\u007f\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010FFFF";
    EXPECT_EQ(Text(Widen(bytes)), text);
    for (const unsigned value : {0xD800U, 0xDFFFU, 0x110000U, 0xFFFFFFFFU}) {
        text += static_cast<wchar_t>(value);
    }
    EXPECT_EQ(Narrow(text.c_str()), bytes + "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    for (const std::string wrong :
         {"\x80", "\xC3(", "\xC1\xBF", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "ab\xFF"}) {
        EXPECT_STREQ(Widen(wrong), L"") << testing::PrintToString(wrong);
    }
}

} // namespace
