#include "base/EString.h"
#include "base/EUtility.h"
#include "base/WidePrint.h"

#include <gtest/gtest.h>

#include <array>
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
    ExpectFormat(L"a\U0001F600  x%s -7 FF 0000abcd", L"%c%c%3c%%s %d %X %08x", L'a', L'\U0001F600', L'x', -7, 255,
                 0xABCD);
    ExpectFormat(L"-9223372036854775808 3 3.14", L"%lld %lu %.2f", LLONG_MIN, 3UL, 3.14159);
    ExpectFormat(Text(5000, L'x') + L'y', L"%s%c", Text(5000, L'x').c_str(), L'y');
    ExpectFormat(L"", L"100%d %", 1);
}

TEST(String, ArgumentsMayReferToTheTextItself) {
    EString text(L"a text too long for the room inside the object");
    text.Format(L"%s-%s", static_cast<const wchar_t*>(text) + 7, static_cast<const wchar_t*>(text) + 36);
    EXPECT_STREQ(text, L"too long for the room inside the object-the object");
    text.Replace(text, L"longer than it was: [%s]");
    text = static_cast<const wchar_t*>(text) + 20;
    EXPECT_STREQ(text, L"[%s]");
}

TEST(String, PrintingIntoABufferCutsAndTerminates) {
    wchar_t buffer[] = L"#########";
    EXPECT_EQ(_em_swprintf(buffer, 7, L"%c%04d%s", L'x', 42, L"y"), 6);
    EXPECT_EQ(Text(buffer, 9), Text(L"x0042y\0##", 9));
    EXPECT_EQ(_em_swprintf(buffer, 6, L"%c%04d%s", L'y', 42, L"y"), -1);
    EXPECT_EQ(Text(buffer, 9), Text(L"y0042\0\0##", 9));
}

TEST(String, ReplaceAndTrim) {
    for (const auto& [before, from, to, after] : {std::array{L"aaaa \t\r\n\v\f", L"aa", L"b", L"bb"},
                                                  {L"aab", L"ab", L"a", L"aa"},
                                                  {L"x b ", L"", L"x", L"x b"},
                                                  {L" xx", L"x", L"xx", L" xxxx"},
                                                  {L"ab\u0120", L"AB", L"x", L"ab\u0120"},
                                                  {L" \n", L"x", L"", L""}}) {
        EString text(before);
        text.Replace(from, to);
        text.TrimRight();
        EXPECT_STREQ(text, after) << before;
    }
}

TEST(String, Utf8) {
    const std::string bytes = // the ends of the lengths and of the gap
        "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
    const EString decoded = Widen(bytes);
    EXPECT_STREQ(decoded, L"\u007f\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010FFFF");
    EByteArray encoded;
    EUtility::Utf8Encode(decoded, encoded);
    for (const unsigned value : {0xD800U, 0xDFFFU, 0x110000U, 0xFFFFFFFFU}) {
        EUtility::Utf8Encode(Text(1, static_cast<wchar_t>(value)).c_str(), encoded); // behind what stands there
    }
    EXPECT_EQ(std::string(encoded.GetData(), encoded.GetData() + encoded.GetSize()),
              bytes + "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    for (const std::string wrong :
         {"\x80", "\xC3", "\xC3(", "\xC1\xBF", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80", "\xED\xBF\xBF",
          "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "ab\xFF"}) {
        EXPECT_STREQ(Widen(wrong), L"") << testing::PrintToString(wrong);
    }
}

} // namespace
