#include "base/EPersistent.h"
#include "base/EPersistentInt.h"
#include "base/EPersistentPointerList.h"
#include "base/EPersistentString.h"
#include "base/IPersistent.h"
#include "tests/TempDir.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

namespace {

using Texts = std::vector<std::string>;
using testing::ElementsAre;
using testing::HasSubstr;

// An element of a list: a number, of which 13 is refused.
struct Item : IPersistent {
    virtual ~Item() = default;
    EResult Save(unsigned long) override { return RC_OK; }
    EResult Restore(unsigned long section) override {
        const EResult result = m_nNumber.Restore(section);
        return m_nNumber == 13 ? throw std::runtime_error("13") : result;
    }
    EResult GetType(EString& type) override {
        type = L"Item";
        return RC_OK;
    }
    EResult GetNewObject(IPersistent*& object) override {
        object = new Item;
        return RC_OK;
    }
    EResult DestroyObject() override {
        delete this;
        return RC_OK;
    }

    EPersistentInt m_nNumber;
};

Texts g_Messages;

// A section in a file, whose items are read one by one. Sections and messages are written with ` for ".
class Section : public testing::Test {
protected:
    Section() {
        EPersistent::SetDirectory(Wide(m_Dir.Path()));
        EPersistent::SetErrorHook([](const wchar_t* message) {
            g_Messages.push_back(Narrow(message));
            std::ranges::replace(g_Messages.back(), '"', '`');
        });
        EPersistent::AddFactory(new Item);
    }
    ~Section() override {
        EPersistent::CloseSection(m_nHandle);
        EPersistent::RemoveFactories();
    }
    EResult Open(const std::string& name) {
        g_Messages.clear();
        EPersistent::CloseSection(m_nHandle);
        return EPersistent::RestoreSection(Wide(name), m_nHandle, true);
    }
    EResult OpenText(std::string text) {
        std::ranges::replace(text, '`', '"');
        WriteWhole(m_Dir.Path("s.json"), text);
        return Open("s");
    }

    // The next item; "-" when it cannot be read, and the variable keeps its value.
    std::string Int() {
        EPersistentInt number(-77);
        return Failed(number.Restore(m_nHandle)) && number == -77 ? "-" : std::to_string(number);
    }
    std::string Text() {
        EPersistentString text(L"before");
        return Failed(text.Restore(m_nHandle)) && text == L"before" ? "-" : Narrow(text);
    }
    // The elements of the next list, but for those that were left out: "1 2 ".
    std::string List() {
        EPersistentPointerList list(10);
        list.Restore(m_nHandle);
        std::string items;
        while (!list.IsEmpty()) {
            auto* item = static_cast<Item*>(static_cast<IPersistent*>(list.RemoveHead()));
            items += std::to_string(item->m_nNumber) + ' ';
            item->DestroyObject();
        }
        return items;
    }

    // A message that names the file and this place in it, and has this word.
    auto Message(const std::string& place, const std::string& word) const {
        return AllOf(testing::StartsWith(m_Dir.Path("s.json:" + place + ": ")), HasSubstr(word));
    }

    TempDir m_Dir;
    unsigned long m_nHandle = 0;
};

TEST_F(Section, ItemsAreReadByPositionWhateverTheirNames) {
    OpenText("\uFEFF{ `b`: 3, // twice the same name\n `b`: -2147483648, /* between */ `a`: 2147483647,\n"
             "``: `M\\u00e4rz \\ud83d\\ude00 \u20ac\\n`, `t`: ``,"
             "`list`: [{`type`: `Item`, `n`: 1, `unread`: 5, `more`: [1]},"
             "{`type`: `Item`, `has`: 2}], `after`: 6, `empty`: [], `extra`: [[{}]] }");
    EXPECT_EQ((Texts{Int(), Int(), Int()}), (Texts{"3", "-2147483648", "2147483647"}));
    EXPECT_EQ((Texts{Text(), Text()}), (Texts{"M\u00e4rz \U0001F600 \u20ac\n", ""}));
    EXPECT_EQ((Texts{List(), Int(), List()}), (Texts{"1 2 ", "6", ""}));
    EXPECT_THAT(g_Messages, testing::IsEmpty());
}

TEST_F(Section, WhatCannotBeReadIsSkippedButForListsWhichWaitForTheirReader) {
    for (const std::string item : {"2147483648", "-2147483649", "-99999999999999999999", "1.0", "1e2", "null", "`7`"}) {
        OpenText("{`n`: " + item + ", `e`: 7}");
        EXPECT_EQ((Texts{Int(), Int()}), (Texts{"-", "7"})) << item;
        EXPECT_THAT(g_Messages, ElementsAre(Message("1:7", "an integer")));
    }
    OpenText("{`list`: [{`type`: `Item`, `n`: 1}],\r\n"
             " `n`: 9, `o`: {`a`: 1}, `e`: `a\\u0000b`, /* `*/ `f`: 5}");
    EXPECT_EQ((Texts{Int(), Text(), List(), List(), Int()}), (Texts{"-", "-", "1 ", "", "9"}));
    EXPECT_EQ((Texts{Text(), Text(), Int()}), (Texts{"-", "-", "5"}));
    EXPECT_EQ(EPersistentInt().Restore(m_nHandle), RC_ITEM_MISSING);
    EXPECT_THAT(g_Messages, ElementsAre(Message("1:10", "`list`: found a list"), Message("1:10", "expected a text"),
                                        Message("2:7", "`n`: found 9, expected a list"), Message("2:15", "an object"),
                                        Message("2:30", "null characters"), Message("2:55", "end of the object")));
}

TEST_F(Section, BrokenElementsAreLeftOutAndTheOthersKept) {
    const struct {
        std::string m_Element, m_Place, m_Word;
    } cases[] = {{"7", "2:1", "found 7"},
                 {"{}", "2:2", "end of the object"},
                 {"{`type`: 1}", "2:10", "found 1"},
                 {"{`type`: `Item\\u0000`}", "2:10", "found `Item?`"},
                 {"{`type`: `Item`, `n`: 13}", "2:1", "0xC0000004"},
                 {"{`type`: `Item`, `n`: false}", "2:23", "`n`: found false"}};
    for (const auto& [element, place, word] : cases) {
        OpenText("{`list`: [{`type`: `Item`, `n`: 1},\n" + element + ",{`type`: `Item`, `n`: 2}], `next`: 3}");
        EXPECT_EQ((Texts{List(), Int()}), (Texts{"1 2 ", "3"})) << element;
        EXPECT_THAT(g_Messages, ElementsAre(Message(place, word)));
    }
}

TEST_F(Section, MalformedFilesAreRefusedWithThePlaceAndTheReason) {
    const std::string brackets(100000, '[');
    const struct {
        std::string m_Text, m_Place, m_Word;
    } cases[] = {{" \n\t// only this\n", "3:1", "end of input"},
                 {"{`a`: `\u00e4x\xFFy`}", "1:10", "UTF-8"},
                 {"[]", "1:1", "object"},
                 {"{`a`:" + brackets, "1:69", "64 levels"},
                 {"{`p`: `secret\ny`}", "1:14", "U+000A"},
                 {{"{} \0 x", 6}, "1:4", "null character"},
                 {"{ /* no end *", "1:14", "'*/'"}};
    for (const auto& [text, place, word] : cases) {
        EXPECT_EQ(OpenText(text), RC_SECTION_MALFORMED) << text.substr(0, 80);
        EXPECT_THAT(g_Messages, ElementsAre(AllOf(Message(place, word), testing::Not(HasSubstr("secret")))));
        EXPECT_LT(g_Messages[0].size(), 200U);
    }
    EXPECT_EQ(OpenText("{`a`:" + brackets.substr(0, 63) + std::string(63, ']') + "}"), RC_OK);
    EXPECT_EQ(OpenText(std::string((4 << 20) - 2, ' ') + "{}"), RC_OK);
    EXPECT_EQ(OpenText(std::string((4 << 20) - 1, ' ') + "{}"), RC_SECTION_MALFORMED);
}

TEST_F(Section, WhatIsThereAndCannotBeReadIsNotMissing) {
    EXPECT_EQ(EPersistentInt().Restore(m_nHandle), RC_NO_SECTION);
    std::filesystem::create_directory(m_Dir.Path("directory.cfg")); // a name with a dot is the file's own
    EXPECT_EQ(Open("directory.cfg"), RC_SECTION_UNREADABLE);
    EXPECT_THAT(g_Messages, ElementsAre(m_Dir.Path("directory.cfg: cannot be read: Not a regular file")));
}

} // namespace
