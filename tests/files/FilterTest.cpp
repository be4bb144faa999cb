#include "files/ELogFilterHTML.h"
#include "files/ELogFilterPlainText.h"
#include "tests/TempDir.h"

#include <gtest/gtest.h>

#include <vector>

using namespace std::string_literals;

namespace {

std::string Bytes(const EByteArray& array) {
    return {array.GetData(), array.GetData() + array.GetSize()};
}

EStringArray Cells(const std::vector<const wchar_t*>& texts) {
    EStringArray cells;
    for (const wchar_t* text : texts) {
        cells.SetAtGrow(cells.GetSize(), text);
    }
    return cells;
}

struct PlainCase {
    std::vector<const wchar_t*> m_Cells;
    const wchar_t* m_pszDelimiter;
    bool m_bUnicode;
    std::string m_Row;
};

} // namespace

TEST(Filter, WritesPlainRowsInTheirEncoding) {
    const PlainCase cases[] = {{{L"one", L"two", L"three"}, L"", false, "onetwothree\n"},
                               {{L"x,y", L"", L"line\nfeed"}, L",", false, "x,y,,line\nfeed\n"},
                               {{L""}, L",", false, "\n"},
                               {{}, L",", false, ""},
                               {{L"\u00E9\u20AC\U0001F600"}, L",", false, "\xE9\xAC\0\n"s},
                               {{L"a", L"b"}, L"; ", true, "a\0;\0 \0b\0\n\0"s},
                               {{L"\u00E9\u20AC\U0001F600"}, L"", true, "\xE9\0\xAC\x20\0\xF6\n\0"s},
                               {{}, L"", true, ""}};
    for (const PlainCase& each : cases) {
        ELogFilterPlainText filter(each.m_bUnicode);
        filter.SetDelimeter(each.m_pszDelimiter);
        const EStringArray cells = Cells(each.m_Cells);
        const EString ignored = L"not in plain text";
        EByteArray out;
        filter.FormatRow(&cells, &out);
        filter.FormatHeader(&ignored, &cells, &out);
        EXPECT_EQ(Bytes(out), each.m_Row + (each.m_bUnicode ? "\xFF\xFE" : "") + each.m_Row);
    }
}

TEST(Filter, EndsPlainFilesWithTheTitleAlone) {
    for (const bool unicode : {false, true}) {
        ELogFilterPlainText filter(unicode);
        EByteArray out;
        const EString none;
        const EString title = L"End";
        filter.FormatFooter(&none, &out);
        EXPECT_EQ(Bytes(out), "");
        filter.FormatFooter(&title, &out);
        EXPECT_EQ(Bytes(out), unicode ? "E\0n\0d\0"s : "End");
    }
}

TEST(Filter, WritesOneHtmlTable) {
    for (const bool unicode : {false, true}) { // makes no difference
        ELogFilterHTML filter(unicode);
        const EStringArray cells = Cells({L"a<b&c", L"", L"\u00E9\U0001F600"});
        const EStringArray none;
        const EString title = L"T\u00E9";
        EByteArray out;
        filter.FormatRow(&cells, &out);
        filter.FormatHeader(&title, &cells, &out);
        filter.FormatRow(&cells, &out);
        filter.FormatRow(&none, &out);
        filter.FormatFooter(&title, &out);

        std::string page = Bytes(out);
        const std::string heads = "<TR>\n<TH>a<b&c</TH>\n<TH>&nbsp;</TH>\n<TH>\u00E9\U0001F600</TH>\n</TR>\n";
        EXPECT_EQ(page.substr(0, heads.size() + 9), heads + "<!DOCTYPE");
        EXPECT_NE(page.find("<TITLE>T\u00E9</TITLE>\n"), std::string::npos);
        page.erase(0, page.find("<THEAD>"));
        EXPECT_EQ(page, "<THEAD>\n" + heads +
                            "</THEAD>\n<TBODY>\n<TR>\n<TD>a<b&c</TD>\n<TD>&nbsp;</TD>\n<TD>\u00E9\U0001F600</TD>\n"
                            "</TR>\n<TR>\n</TR>\n</TBODY>\n</TABLE>\n<P>\nT\u00E9</BODY>\n</HTML>\n");
    }
}
