#include "base/EPersistent.h"
#include "base/EPersistentInt.h"
#include "base/EPersistentPointerList.h"
#include "base/EPersistentString.h"
#include "base/IPersistent.h"
#include "tests/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

#include <unistd.h>

namespace {

using Texts = std::vector<std::string>;

// An element of a list: a name and a number, of which 13 is refused.
struct Item : IPersistent {
    virtual ~Item() = default;
    EResult Save(unsigned long) override { return RC_OK; }
    EResult Restore(unsigned long section) override {
        EResult result = m_Name.Restore(section);
        result |= m_nNumber.Restore(section);
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

    EPersistentString m_Name;
    EPersistentInt m_nNumber;
};

std::vector<std::string> g_Messages;

// A section in a file, whose items are read one by one. Sections and messages are written with ` for ".
class Section : public testing::Test {
protected:
    Section() {
        g_Messages.clear();
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
    EResult Open(std::string text) {
        EPersistent::CloseSection(m_nHandle);
        std::ranges::replace(text, '`', '"');
        WriteWhole(m_Dir.Path("s.json"), text);
        return EPersistent::RestoreSection(L"s", m_nHandle, true);
    }

    // The next item's value, or why there is none. The variable keeps its value then.
    std::string Int() {
        EPersistentInt number(-77);
        const EResult result = number.Restore(m_nHandle);
        EXPECT_TRUE(result == RC_OK || number == -77);
        return result == RC_OK ? std::to_string(number) : Reason(result);
    }
    std::string Text() {
        EPersistentString text(L"before");
        const EResult result = text.Restore(m_nHandle);
        EXPECT_TRUE(result == RC_OK || text == L"before");
        return result == RC_OK ? Narrow(text) : Reason(result);
    }
    // "a1 b2 " and the failure of the last element that was left out.
    std::string List() {
        EPersistentPointerList list(10);
        const EResult result = list.Restore(m_nHandle);
        std::string items;
        while (!list.IsEmpty()) {
            auto* item = static_cast<Item*>(static_cast<IPersistent*>(list.RemoveHead()));
            items += Narrow(item->m_Name) + std::to_string(item->m_nNumber) + ' ';
            item->DestroyObject();
        }
        return result == RC_OK ? items : items + Reason(result);
    }
    static std::string Reason(EResult result) {
        static const std::map<EResult, std::string> reasons{
            {RC_ITEM_MISSING, "missing"}, {RC_ITEM_TYPE, "type"},       {RC_ITEM_RANGE, "range"},
            {RC_NOT_MADE, "refused"},     {RC_TYPE_UNKNOWN, "unknown"}, {RC_NO_SECTION, "no section"}};
        return reasons.at(result);
    }

    // Each of the messages since the last call names the file and this place in it, and has these words.
    void ExpectMessages(const std::vector<std::pair<std::string, std::string>>& expected) {
        ASSERT_EQ(g_Messages.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const auto& [place, words] = expected[i];
            EXPECT_TRUE(g_Messages[i].starts_with(m_Dir.Path("s.json:" + place + ": "))) << g_Messages[i];
            EXPECT_TRUE(g_Messages[i].find(words) != std::string::npos) << g_Messages[i];
        }
        g_Messages.clear();
    }

    TempDir m_Dir;
    unsigned long m_nHandle = 0;
};

TEST_F(Section, ItemsAreReadByPositionWhateverTheirNames) {
    ASSERT_EQ(Open("\uFEFF{ `b`: 3, // twice the same name\n `b`: -2147483648, /* between */ `a`: 2147483647,\n"
                   "``: `M\\u00e4rz \\ud83d\\ude00 \u20ac\\n`, `t`: ``,"
                   "`list`: [{`type`: `Item`, `name`: `a`, `n`: 1, `unread`: 5, `more`: [1]},"
                   "{`type`: `Item`, `is`: `b`, `has`: 2}], `after`: 6, `empty`: [], `extra`: [[{}]] }"),
              RC_OK);
    EXPECT_EQ((Texts{Int(), Int(), Int()}), (Texts{"3", "-2147483648", "2147483647"}));
    EXPECT_EQ((Texts{Text(), Text()}), (Texts{"M\u00e4rz \U0001F600 \u20ac\n", ""}));
    EXPECT_EQ((Texts{List(), Int(), List()}), (Texts{"a1 b2 ", "6", ""}));
    ExpectMessages({});
}

TEST_F(Section, WhatIsOfTheWrongTypeOrRangeIsSkippedButForListsWhichWaitForTheirReader) {
    for (const std::string item : {"2147483648", "-99999999999999999999", "1.0", "1e2", "null", "`7`"}) {
        const bool range = item.size() > 9;
        Open("{`n`: " + item + ", `e`: 7}");
        EXPECT_EQ((Texts{Int(), Int()}), (Texts{range ? "range" : "type", "7"})) << item;
        ExpectMessages({{"1:7", range ? "expected an integer from -2147483648 to 2147483647" : "an integer"}});
    }
    Open("{`list`: [{`type`: `Item`, `name`: `a`, `n`: 1}],\r\n `n`: 9, `o`: {`a`: 1}, `e`: `a\\u0000b`, /* `*/ `f`: "
         "5}");
    EXPECT_EQ((Texts{Int(), Text(), List(), List(), Int(), Text(), Text(), Int(), Int()}),
              (Texts{"type", "type", "a1 ", "type", "9", "type", "range", "5", "missing"}));
    ExpectMessages({{"1:10", "`list`: found a list, expected an integer"},
                    {"1:10", "expected a text"},
                    {"2:7", "`n`: found 9, expected a list"},
                    {"2:15", "an object"},
                    {"2:30", "null characters"},
                    {"2:55", "found the end of the object"}});
}

TEST_F(Section, BrokenElementsAreLeftOutAndTheOthersKept) {
    const struct {
        std::string m_Element, m_Reason, m_Place, m_Words;
    } cases[] = {{"7", "type", "2:1", "found 7, expected an object"},
                 {"{}", "type", "2:2", "found the end of the object"},
                 {"{`type`: 1}", "type", "2:10", "`type`: found 1"},
                 {"{`type`: `item`}", "unknown", "2:10", "found `item`"},
                 {"{`type`: `Item\\u0000`}", "unknown", "2:10", "found `Item?`"},
                 {"{`type`: `Item`, `a`: `x`, `n`: 13}", "refused", "2:1", "0xC0000004"},
                 {"{`type`: `Item`, `a`: false, `n`: 1}", "type", "2:23", "`a`: found false"}};
    for (const auto& [element, reason, place, words] : cases) {
        SCOPED_TRACE(element);
        Open("{`list`: [{`type`: `Item`, `name`: `a`, `n`: 1},\n" + element +
             ",{`type`: `Item`, `name`: `z`, `n`: 2}], `next`: 3}");
        EXPECT_EQ((Texts{List(), Int()}), (Texts{"a1 z2 " + reason, "3"}));
        ExpectMessages({{place, words}});
    }
}

TEST_F(Section, MalformedFilesAreRefusedWithThePlaceAndTheReason) {
    const std::string brackets(100000, '[');
    const struct {
        std::string m_Text, m_Place, m_Words;
    } cases[] = {{" \n\t// only this\n", "3:1", "end of input"},
                 {"{`a`: `\u00e4x\xFFy`}", "1:10", "UTF-8"},
                 {"[]", "1:1", "expected an object"},
                 {"{`a`:" + brackets, "1:69", "more than 64 levels"},
                 {"{`p`: `secret\ny`}", "1:14", "U+000A"},
                 {"{`p`: `secret\\udE00`}", "1:19", "surrogate"},
                 {"{``: 1\n // lost: a comma\n `name`: 2}", "3:2", "unexpected string"},
                 {"{`a`: 1e" + std::string(1000, '9') + '}', "1:7", "overflow"},
                 {"{}\n{}", "2:1", "end of input"},
                 {{"{} \0 x", 6}, "1:4", "null character"},
                 {"{ /* no end *", "1:14", "'*/'"}};
    for (const auto& [text, place, words] : cases) {
        SCOPED_TRACE(text.substr(0, 80));
        EXPECT_EQ(Open(text), RC_SECTION_MALFORMED);
        EXPECT_EQ(m_nHandle, 0U);
        ASSERT_EQ(g_Messages.size(), 1U);
        EXPECT_TRUE(g_Messages[0].find("secret") == std::string::npos && g_Messages[0].size() < 200) << g_Messages[0];
        ExpectMessages({{place, words}});
    }
    EXPECT_EQ(Open("{`a`:" + brackets.substr(0, 63) + std::string(63, ']') + "}"), RC_OK);
    EXPECT_EQ(Open(std::string((4 << 20) - 2, ' ') + "{}"), RC_OK);
    EXPECT_EQ(Open(std::string((4 << 20) - 1, ' ') + "{}"), RC_SECTION_MALFORMED);
}

// Only what is not there may be left out.
TEST_F(Section, WhatIsThereAndCannotBeReadIsNotMissing) {
    const auto open = [this](const std::string& name) {
        return EPersistent::RestoreSection(Wide(name), m_nHandle, true);
    };
    WriteWhole(m_Dir.Path("there.cfg"), "{}");
    EXPECT_EQ(open("there.cfg"), RC_OK) << "a name with a dot is the file's own";
    EPersistent::CloseSection(m_nHandle);
    EXPECT_EQ(open("missing"), RC_SECTION_NOT_FOUND);
    EXPECT_EQ(open("there.cfg/s.json"), RC_SECTION_NOT_FOUND);
    EXPECT_EQ((Texts{Int(), Text(), List()}), Texts(3, "no section"));
    ExpectMessages({});
    std::filesystem::create_directory(m_Dir.Path("directory.json"));
    std::filesystem::create_symlink("nowhere", m_Dir.Path("dangling.json"));
    WriteWhole(m_Dir.Path("closed.json"), "{}");
    std::filesystem::permissions(m_Dir.Path("closed.json"), std::filesystem::perms::none);
    std::filesystem::create_directory(m_Dir.Path("closed"));
    std::filesystem::permissions(m_Dir.Path("closed"), std::filesystem::perms::none);
    std::filesystem::permissions(m_Dir.Path(), std::filesystem::perms(0755));
    const uid_t user = geteuid();
    if (user == 0) {
        ASSERT_EQ(seteuid(65534), 0); // root may read everything
    }
    Texts expected;
    for (const auto& [name, reason] : {std::pair{"directory", "Not a regular file"},
                                       {"dangling", "No such file or directory"},
                                       {"closed", "Permission denied"},
                                       {"closed/s.json", "Permission denied"}}) {
        EXPECT_EQ(open(name), RC_SECTION_UNREADABLE) << name;
        const std::string file = std::string(name).ends_with("json") ? name : name + std::string(".json");
        expected.push_back(m_Dir.Path(file) + ": cannot be read: " + reason);
    }
    EXPECT_EQ(g_Messages, expected);
    EXPECT_EQ(seteuid(user), 0);
}

} // namespace
