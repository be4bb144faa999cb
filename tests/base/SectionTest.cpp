#include "base/EPersistent.h"
#include "base/EPersistentInt.h"
#include "base/EPersistentPointerList.h"
#include "base/EPersistentString.h"
#include "base/IPersistent.h"
#include "tests/TempDir.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

#include <unistd.h>

namespace {

// A stored object: a name and a number.
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
    // Destroys them. Gives the names and numbers of all: "a1 b2 ".
    static std::string TakeAll(EPersistentPointerList& list) {
        std::string text;
        while (!list.IsEmpty()) {
            auto* item = static_cast<Item*>(static_cast<IPersistent*>(list.RemoveHead()));
            text += Narrow(item->m_Name) + std::to_string(item->m_nNumber) + ' ';
            item->DestroyObject();
        }
        return text;
    }

    EPersistentString m_Name;
    EPersistentInt m_nNumber;
};

const std::map<EResult, std::string> RESULTS{
    {RC_OK, ""},         {RC_ITEM_MISSING, "missing"}, {RC_ITEM_TYPE, "type"},       {RC_ITEM_RANGE, "range"},
    {RC_NOT_MADE, "no"}, {RC_TYPE_UNKNOWN, "unknown"}, {RC_NO_SECTION, "no section"}};

EString g_Messages;

// The texts of a section and of messages are written with ` for ".
class Section : public testing::Test {
protected:
    Section() {
        g_Messages.Empty();
        EPersistent::SetDirectory(Wide(m_Dir.Path()));
        EPersistent::SetErrorHook([](const wchar_t* message) { g_Messages += message; });
        EPersistent::AddFactory(new Item);
    }
    ~Section() override {
        EPersistent::CloseSection(m_nHandle);
        EPersistent::RemoveFactories();
    }
    EResult Open(std::string text) {
        EPersistent::CloseSection(m_nHandle);
        std::replace(text.begin(), text.end(), '`', '"');
        WriteWhole(m_Dir.Path("s.json"), text);
        return EPersistent::RestoreSection(L"s", m_nHandle, true);
    }
    // Reads 'i'ntegers, 't'exts, 'l'ists. Gives the values, which were others before, and failures: "[3][before]type".
    std::string Read(const std::string& kinds) {
        std::string read;
        for (const char kind : kinds) {
            EPersistentInt number(-77);
            EPersistentString text(L"before");
            EPersistentPointerList list(10);
            const EResult result = kind == 'i'   ? number.Restore(m_nHandle)
                                   : kind == 't' ? text.Restore(m_nHandle)
                                                 : list.Restore(m_nHandle);
            read += '[' + (kind == 'i' ? std::to_string(number) : kind == 't' ? Narrow(text) : Item::TakeAll(list));
            read += ']' + RESULTS.at(result);
        }
        return read;
    }
    // The messages since the last call, with '>' in place of the file's path.
    std::string Messages() {
        g_Messages.Replace(Wide(m_Dir.Path("s.json:")), L">");
        g_Messages.Replace(L"\"", L"`");
        return Narrow(std::exchange(g_Messages, {}));
    }
    void ExpectItems(const std::string& text, const char* kinds, const std::string& read, const std::string& messages) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Open(text), RC_OK);
        EXPECT_EQ(Read(kinds), read);
        EXPECT_EQ(Messages(), messages);
    }

    TempDir m_Dir;
    unsigned long m_nHandle = 0;
};

TEST_F(Section, ItemsAreReadByPositionWhateverTheirNames) {
    ExpectItems("\uFEFF{ `b`: 3, // twice the same name\n `b`: -2147483648, /* between */ `a`: 2147483647,\n"
                "``: `M\\u00e4rz \\ud83d\\ude00 \u20ac\\n`, `x`: -0, `t`: ``, `extra`: [[{}]] }",
                "iiitit", "[3][-2147483648][2147483647][M\u00e4rz \U0001F600 \u20ac\n][0][]", "");
    ExpectItems("{`v`: 2, `list`: [{`type`: `Item`, `name`: `a`, `n`: 1, `unread`: 5, `more`: [1]},"
                "{`type`: `Item`, `is`: `b`, `has`: 2}], `after`: 6, `empty`: [], `z`: ``}",
                "ililt", "[2][a1 b2 ][6][][]", "");
    // A list waits for its reader, and a scalar for its own.
    ExpectItems("{`list`: [{`type`: `Item`, `name`: `a`, `n`: 1}], `n`: 9}", "itllii",
                "[-77]type[before]type[a1 ][]type[9][-77]missing",
                ">1:10: `list`: found a list, expected an integer>1:10: `list`: found a list, expected a text"
                ">1:56: `n`: found 9, expected a list>1:57: found the end of the object, expected an integer");
    ExpectItems("{\r\n `a\\``: 0/**/,`b` // :\n :`\u00e4\\\\`,\t`c`: // null\rtrue/*/ `*/}", "tii",
                "[before]type[-77]type[-77]type",
                ">2:9: `a``: found 0, expected a text>3:3: `b`: found a text, expected an integer"
                ">3:23: `c`: found true, expected an integer");
}

TEST_F(Section, ScalarsOfTheWrongTypeOrRangeAreSkipped) {
    const std::string begin = ">1:7: `n`: found ", integer = ", expected an integer";
    for (const std::string item : {"2147483648", "-2147483649", "-99999999999999999999", "1.0", "1e2", "null"}) {
        const bool range = item.size() > 9;
        ExpectItems("{`n`: " + item + ", `e`: 7}", "ii", range ? "[-77]range[7]" : "[-77]type[7]",
                    begin + item + integer + (range ? " from -2147483648 to 2147483647" : ""));
    }
    ExpectItems("{`n`: {`a`: 1}, `e`: 7}", "ti", "[before]type[7]", begin + "an object, expected a text");
    ExpectItems("{`n`: `a\\u0000b`, `e`: 7}", "ti", "[before]range[7]",
                begin + "a text, expected one without null characters (\\u0000)");
}

TEST_F(Section, BrokenElementsAreLeftOutAndTheOthersKept) {
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"7", "type", "1: found 7, expected an object that begins with `type`"},
        {"{}", "type", "2: found the end of the object, expected `type`"},
        {"{`type`: 1}", "type", "10: `type`: found 1, expected a text"},
        {"{`type`: `item`}", "unknown", "10: `type`: found `item`, expected a known type"},
        {"{`type`: `Item\\u0000`}", "unknown", "10: `type`: found `Item?`, expected a known type"},
        {"{`type`: `Item`, `a`: `x`, `n`: 13}", "no", "1: found a refused `Item` (0xC0000004), expected a valid one"},
        {"{`type`: `Item`, `a`: false, `n`: 1}", "type", "23: `a`: found false, expected a text"}};
    for (const auto& [element, result, message] : cases) {
        ExpectItems("{`list`: [{`type`: `Item`, `name`: `a`, `n`: 1},\n" + element +
                        ",{`type`: `Item`, `name`: `z`, `n`: 2}], `next`: 3}",
                    "li", "[a1 z2 ]" + result + "[3]", ">2:" + message);
    }
}

TEST_F(Section, MalformedFilesAreRefusedWithThePlaceAndTheReason) {
    const std::string end = "the end of the file", escapes = R"(one of \` \\ \/ \b \f \n \r \t \uXXXX)";
    const std::string half = "half of a surrogate pair", pair = "\\uD800 to \\uDBFF followed by \\uDC00 to \\uDFFF";
    const std::string brackets(100000, '[');
    // clang-format off
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {" \n\t// only this\n", "3:1", end, "an object"}, {"{`a`: `\u00e4x\xFFy`}", "1:10", "the byte 0xFF", "UTF-8"},
        {"[]", "1:1", "'['", "an object"}, {"{`a`:" + brackets, "1:69", "more than 64 levels of nesting", "at most 64"},
        {"{`a", "1:4", end, "'`'"}, {"{`a`: `x\ny`}", "1:9", "the end of the line", "'`' or an escape"},
        {"{`a`: [1 2]}", "1:10", "'2'", "',' or ']'"}, {"{`a`: [", "1:8", end, "a value or ']'"},
        {"{``:[1,]}", "1:8", "']'", "a value"}, {"{``:01}", "1:6", "'1'", "',' or '}'"}, {"{`a`1", "1:5", "'1'", "':'"},
        {"{`a`: 1e999}", "1:7", "1e999", "a smaller number"}, {"{`a`: `\\u12g4`}", "1:8", "an unknown escape", escapes},
        {"{}\n{}", "2:1", "'{'", "the end of the file"}, {{"{} \0 x", 6}, "1:4", "the byte 0x00", "text"},
        {"{`a`: `\\u00e4\\udE00\\ud83d`}", "1:14", half, pair}, {"{`a`: `\\ud83d\\ude00\\ud83d`}", "1:20", half, pair},
        {"{ /* no end *", "1:3", "a comment that does not end", "a member name or '}'"}};
    // clang-format on
    for (const auto& [text, place, found, expected] : cases) {
        SCOPED_TRACE(text.substr(0, 80));
        EXPECT_EQ(Open(text), RC_SECTION_MALFORMED);
        EXPECT_EQ(m_nHandle, 0U);
        EXPECT_EQ(Messages(), '>' + place + ": found " + found + ", expected " + expected);
    }
    EXPECT_EQ(Open("{`a`:" + brackets.substr(0, 63) + std::string(63, ']') + "}"), RC_OK);
    EXPECT_EQ(Open(std::string((4 << 20) - 2, ' ') + "{}"), RC_OK);
    EXPECT_EQ(Open(std::string((4 << 20) - 1, ' ') + "{}"), RC_SECTION_MALFORMED);
}

TEST_F(Section, NamesStandForFilesOfTheDirectory) {
    WriteWhole(m_Dir.Path("there.cfg"), "{\"a\": 2}");
    std::filesystem::create_directory(m_Dir.Path("dir.json"));
    EPersistent::SetDirectory(Wide(m_Dir.Path("")));
    for (const auto& [name, path, result] : {std::tuple{L"missing", "missing.json", RC_SECTION_NOT_FOUND},
                                             {L"there.cfg", "there.cfg", RC_OK},
                                             {L"dir", "dir.json", RC_SECTION_UNREADABLE}}) {
        EString file;
        unsigned long exists = 7;
        EXPECT_EQ(EPersistent::GetSectionFilename(name, file, exists), RC_OK);
        EXPECT_EQ(Narrow(file) + std::to_string(exists), m_Dir.Path(path) + (result == RC_OK ? '1' : '0'));
        EXPECT_EQ(EPersistent::RestoreSection(name, m_nHandle, true), result) << path;
        EPersistent::CloseSection(m_nHandle);
    }
    EXPECT_EQ(Read("itl"), "[-77]no section[before]no section[]no section");
    EXPECT_EQ(Messages(), m_Dir.Path("dir.json: cannot be read: Not a regular file"));
}

// Only what is not there may be left out.
TEST_F(Section, WhatIsThereAndCannotBeReadIsNotMissing) {
    std::filesystem::create_symlink("nowhere", m_Dir.Path("dangling.json"));
    std::filesystem::create_symlink("loop.json", m_Dir.Path("loop.json"));
    WriteWhole(m_Dir.Path("file"), "");
    WriteWhole(m_Dir.Path("closed.json"), "{}");
    std::filesystem::permissions(m_Dir.Path("closed.json"), std::filesystem::perms::none);
    std::filesystem::create_directory(m_Dir.Path("closed"));
    std::filesystem::permissions(m_Dir.Path("closed"), std::filesystem::perms::none);
    std::filesystem::permissions(m_Dir.Path(), std::filesystem::perms(0755));
    const uid_t user = geteuid();
    if (user == 0) {
        ASSERT_EQ(seteuid(65534), 0); // root may read everything
    }
    for (const auto& [name, reason] : {std::pair{L"dangling.json", "No such file or directory"},
                                       {L"loop.json", "Too many levels of symbolic links"},
                                       {L"closed.json", "Permission denied"},
                                       {L"closed/s.json", "Permission denied"}}) {
        EXPECT_EQ(EPersistent::RestoreSection(name, m_nHandle, true), RC_SECTION_UNREADABLE) << reason;
        EXPECT_EQ(Messages(), m_Dir.Path(Narrow(name)) + ": cannot be read: " + reason);
    }
    EXPECT_EQ(EPersistent::RestoreSection(L"file/s.json", m_nHandle, true), RC_SECTION_NOT_FOUND);
    EXPECT_EQ(Messages(), "");
    EXPECT_EQ(seteuid(user), 0);
}

} // namespace
