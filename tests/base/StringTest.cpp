#include "base/EFileIO.h"
#include "base/EString.h"
#include "base/EUtility.h"
#include "base/WidePrint.h"
#include "tests/AllocationCount.h"
#include "tests/TempDir.h"

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

TEST(String, FormatFollowsWidePrintf) {
    const wchar_t* none = nullptr;
    const wchar_t* word = L"\u00c4rger";
    ExpectFormat(L"", L"");
    ExpectFormat(L"<\u00c4rger|\u00c4rger||    >", L"<%s|%ls|%s|%4s>", word, word, none, none);
    ExpectFormat(L"<   \u00c4rger|\u00c4rger   |\u00c4rg|    \u00c4r>", L"<%8s|%-8s|%.3s|%6.2s>", word, word, word,
                 word);
    ExpectFormat(L"<   \u00c4rger|\u00c4rger  |\u00c4|\u00c4rger |\u00c4rger>", L"<%*s|%-*s|%.*s|%*s|%.*s>", 8, word, 7,
                 word, 1, word, -6, word, -1, word);
    ExpectFormat(L"a\U0001F600  xy  |", L"%c%c%3c%-3c|", L'a', L'\U0001F600', L'x', L'y');
    ExpectFormat(L"-2147483648 -7 2147483647", L"%d %i %d", INT_MIN, -7, INT_MAX);
    ExpectFormat(L"4294967295 ff FF 000000ab 89abcdef", L"%u %x %X %08x %08x", UINT_MAX, 255, 255, 0xABU, 0x89ABCDEFU);
    ExpectFormat(L" 5|  5|12345|5    |00005|-0005|+5", L"%2d|%3d|%3d|%-5d|%05d|%05d|%+d", 5, 5, 12345, 5, 5, -5, 5);
    ExpectFormat(L"-3 3 -9223372036854775808 18446744073709551615 1ffffffff", L"%ld %lu %lld %llu %llx", -3L, 3UL,
                 LLONG_MIN, ULLONG_MAX, 0x1FFFFFFFFLL);
    ExpectFormat(L"007|   007|   7|7   |", L"%.3d|%6.3d|%*d|%-*d|", 7, 7, 4, 7, 4, 7);
    ExpectFormat(L" 3.14|0.500000|2|1.000000e+300", L"%5.2f|%f|%.0f|%e", 3.14159, 0.5, 2.0, 1e300);
    ExpectFormat(L"100% 1 %y 2 %n %", L"100%% %d %y %d %n %", 1, 2); // what is not known takes no argument
    const Text longText(100'000, L'\u20ac');
    ExpectFormat(longText + L"|" + longText, (L"%s|" + longText).c_str(), longText.c_str());
}

TEST(String, ArgumentsMayReferToTheTextItself) {
    EString text(L"a text too long for the room inside the object");
    const Text before(text);
    text.Format(L"%s-%s", static_cast<const wchar_t*>(text), static_cast<const wchar_t*>(text));
    EXPECT_STREQ(text, (before + L"-" + before).c_str());
    text.Replace(text, L"longer than it was: [%s]");
    text += text;
    EXPECT_STREQ(text, L"longer than it was: [%s]longer than it was: [%s]");
    text = static_cast<const wchar_t*>(text) + 44;
    EXPECT_STREQ(text, L"[%s]");
}

TEST(String, PrintingIntoABufferCutsAndTerminates) {
    const struct {
        std::size_t m_nCount;
        int m_nResult;
        Text m_Buffer; // what stands in front of the untouched rest
    } cases[] = {{0, -1, L""}, {1, -1, Text(1, L'\0')}, {6, -1, Text(L"x0042\0", 6)}, {7, 6, Text(L"x0042y\0", 7)}};
    for (const auto& [count, result, expected] : cases) {
        Text buffer(10, L'#');
        EXPECT_EQ(_em_swprintf(buffer.data(), count, L"%c%04d%s", L'x', 42, L"y"), result) << count;
        EXPECT_EQ(buffer, expected + Text(10 - expected.size(), L'#')) << count;
    }
}

TEST(String, ReplaceAndTrim) {
    const struct {
        const wchar_t* m_pszText;
        const wchar_t* m_pszFrom;
        const wchar_t* m_pszTo;
        const wchar_t* m_pszExpected;
    } replaced[] = {{L"aaaa", L"aa", L"b", L"bb"}, {L"aaa", L"aa", L"b", L"ba"},  {L"aab", L"ab", L"a", L"aa"},
                    {L"abab", L"", L"x", L"abab"}, {L"xx", L"x", L"xx", L"xxxx"}, {L"a%ib", L"%i", nullptr, L"ab"},
                    {L"ab", nullptr, L"x", L"ab"}, {L"ab", L"AB", L"x", L"ab"},   {nullptr, L"a", L"b", L""}};
    for (const auto& [from, old, to, expected] : replaced) {
        EString text(from);
        text.Replace(old, to);
        EXPECT_STREQ(text, expected);
    }
    for (const auto& [from, expected] :
         {std::pair{L"a b \t\r\n\v\f", L"a b"}, {L" \n", L""}, {L" a", L" a"}, {L"a\u0120", L"a\u0120"}}) {
        EString text(from);
        text.TrimRight();
        EXPECT_STREQ(text, expected);
    }
}

TEST(String, SavedTextIsLittleEndianAndDamagedLengthsFail) {
    const TempDir dir;
    const std::string path = dir.Path("text");
    const std::string length("\3\0\0\0", 4);
    const std::string characters("a\0\0\0\xE9\0\0\0\0\xF6\1\0", 12); // a, e acute, U+1F600
    {
        EFileIO file(Wide(path), EFileIO::OPEN_FOR_WRITING);
        ASSERT_TRUE(EString(L"a\u00e9\U0001F600").Save(&file));
        ASSERT_TRUE(EString().Save(&file));
    }
    EXPECT_EQ(ReadWhole(path), length + characters + std::string(4, '\0'));
    {
        EFileIO file(Wide(path), EFileIO::OPEN_FOR_READING);
        EString text;
        ASSERT_TRUE(text.Restore(&file));
        EXPECT_STREQ(text, L"a\u00e9\U0001F600");
        ASSERT_TRUE(text.Restore(&file));
        EXPECT_STREQ(text, L"");
        EXPECT_FALSE(text.Restore(&file)) << "at the end";
    }
    for (const std::string& bytes : {std::string("\3\0", 2), std::string("\4\0\0\0", 4) + characters,
                                     std::string("\0\x28\x6B\xEE", 4) + characters,
                                     std::string("\3\0\0\x40", 4) + characters, length + characters.substr(1)}) {
        WriteWhole(path, bytes);
        EFileIO file(Wide(path), EFileIO::OPEN_FOR_READING);
        EString text(L"as before");
        const AllocationCount allocations;
        EXPECT_FALSE(text.Restore(&file));
        EXPECT_LE(allocations.Largest(), 64U);
        EXPECT_STREQ(text, L"as before");
    }
}

TEST(String, Utf8) {
    const auto encoded = [](const Text& text) {
        EByteArray bytes;
        bytes.SetSize(1, -1); // stays in front
        EUtility::Utf8Encode(text.c_str(), bytes);
        return std::string(bytes.GetData() + 1, bytes.GetData() + bytes.GetSize());
    };
    const std::pair<Text, std::string> pairs[] = {
        {L"", ""},
        {L"a\u00e9\u20ac\U0001F600", "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {L"\u007f\u0080", "\x7F\xC2\x80"},
        {L"\u07ff\u0800", "\xDF\xBF\xE0\xA0\x80"},
        {L"\ud7ff\ue000", "\xED\x9F\xBF\xEE\x80\x80"},
        {L"\uffff\U00010000\U0010FFFF", "\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"}};
    for (const auto& [wide, bytes] : pairs) {
        EXPECT_EQ(encoded(wide), bytes);
        EString decoded(L"old");
        EXPECT_TRUE(EUtility::Utf8Decode(bytes.data(), bytes.size(), decoded)) << bytes;
        EXPECT_STREQ(decoded, wide.c_str());
    }
    for (const unsigned value : {0xD800U, 0xDBFFU, 0xDC00U, 0xDFFFU, 0x110000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(encoded(L"<" + Text(1, static_cast<wchar_t>(value)) + L">"), "<\xEF\xBF\xBD>") << value;
    }
    for (const std::string bytes :
         {"\x80", "\xC3", "\xC3(", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80", "\xED\xBF\xBF",
          "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "ab\xFF"}) {
        EString text(L"as before");
        EXPECT_FALSE(EUtility::Utf8Decode(bytes.data(), bytes.size(), text)) << testing::PrintToString(bytes);
        EXPECT_STREQ(text, L"as before");
    }
}

} // namespace
