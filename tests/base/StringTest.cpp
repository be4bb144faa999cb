#include "base/EString.h"
#include "base/EUtility.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using Text = std::wstring;

template <class... Arguments>
void ExpectFormat(const Text& expected, const wchar_t* format, Arguments... arguments) {
    EString text(L"what stood here before");
    text.Format(format, arguments...);
    EXPECT_EQ(Text(text), expected);
}

TEST(String, FormatTakesWideTextAndEveryLength) {
    const wchar_t* none = nullptr;
    const wchar_t* oil = L"\u00d6l!";
    ExpectFormat(L"<\u00d6l!|\u00d6l!||    >", L"<%s|%ls|%s|%4s>", oil, oil, none, none);
    ExpectFormat(L"<   \u00d6l!|\u00d6l!   |\u00d6l|\u00d6>", L"<%6s|%-6s|%.2s|%.*s>", oil, oil, oil, 1, oil);
    ExpectFormat(L"a\U0001F600%s -7 FF 0000abcd", L"%c%c%%s %d %X %08x", L'a', L'\U0001F600', -7, 255, 0xABCD);
    ExpectFormat(L"-9223372036854775808 3 3.14", L"%lld %lu %.2f", LLONG_MIN, 3UL, 3.14159);
    ExpectFormat(Text(5000, L'x') + L'y', L"%s%c", Text(5000, L'x').c_str(), L'y');
    ExpectFormat(L"", L"100%d %", 1);
}

TEST(String, ArgumentsMayReferToTheTextItself) {
    EString text(L"a text too long for the room inside the object");
    text.Format(L"%s-%s", static_cast<const wchar_t*>(text) + 7, static_cast<const wchar_t*>(text) + 36);
    EXPECT_STREQ(text, L"too long for the room inside the object-the object");
    text.Replace(text, L"longer than it was: [aaa] \t\r\n\v\f");
    text = static_cast<const wchar_t*>(text) + 20;
    text.Replace(L"aa", L"aab");
    text.TrimRight();
    EXPECT_STREQ(text, L"[aaba]");
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
