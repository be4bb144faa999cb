#include "files/ELogFilterHTML.h"
#include "files/ELogFilterPlainText.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

TEST(Filter, WritesEachEncoding) {
    EStringArray cells;
    for (const wchar_t* cell : {L"\u00E9\u20AC\U0001F600", L"", L"a<b&c"}) {
        cells.SetAtGrow(cells.GetSize(), cell);
    }
    const auto written = [&](ELogFilter& filter) {
        const EString title = L"\u00E9nd";
        EByteArray out;
        filter.FormatRow(&cells, &out);
        filter.FormatFooter(&title, &out);
        return std::string(out.GetData(), out.GetData() + out.GetSize());
    };
    ELogFilterPlainText narrow(false);
    ELogFilterPlainText wide(true);
    ELogFilterHTML page(false);
    wide.SetDelimeter(L"; ");
    EXPECT_EQ(written(narrow), "\xE9\xAC\0a<b&c\n\xE9nd"s);
    EXPECT_EQ(written(wide), "\xE9\0\xAC\x20\0\xF6;\0 \0;\0 \0a\0<\0b\0&\0c\0\n\0\xE9\0n\0d\0"s);
    EXPECT_EQ(written(page), "<TR>\n<TH>\u00E9\u20AC\U0001F600</TH>\n<TH>&nbsp;</TH>\n<TH>a<b&c</TH>\n</TR>\n"
                             "</TBODY>\n</TABLE>\n<P>\n\u00E9nd</BODY>\n</HTML>\n");
}
