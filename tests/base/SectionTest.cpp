#include "base/EJsonText.h"
#include "base/EPersistent.h"
#include "base/EPersistentInt.h"
#include "base/EPersistentPointerList.h"
#include "base/EPersistentString.h"
#include "base/IPersistent.h"
#include "tests/TempDir.h"

#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> g_Messages;

std::string Narrow(const EString& text) {
    EByteArray bytes;
    EUtility::Utf8Encode(text, bytes);
    return {reinterpret_cast<const char*>(bytes.GetData()), static_cast<std::size_t>(bytes.GetSize())};
}

void Collect(const wchar_t* message) {
    g_Messages.push_back(Narrow(message));
}

// A stored object: a name, a number and, when it asks for them, nested objects of its own type.
class Item : public IPersistent {
public:
    explicit Item(const wchar_t* type) : m_Type(type) { ++s_nAlive; }
    virtual ~Item() { --s_nAlive; }

    EResult Save(unsigned long) override { return RC_OK; }
    EResult Restore(unsigned long section) override {
        if (m_Type == L"Thrower") {
            throw std::runtime_error("restore");
        }
        m_nVersion = EPersistent::GetRecord(section).m_nVersion;
        EResult result = m_Name.Restore(section) | m_nNumber.Restore(section);
        if (m_Type == L"Parent") {
            result |= m_Nested.Restore(section) | m_nBehind.Restore(section);
        }
        return Failed(result) ? result : m_nNumber == 13 ? RC_NOT_MADE : result;
    }
    EResult GetType(EString& type) override {
        type = m_Type;
        return m_Type == L"Nameless" ? RC_NOT_PROVIDED : RC_OK;
    }
    EResult GetNewObject(IPersistent*& object) override {
        if (m_Type == L"Barren") {
            return RC_NOT_PROVIDED;
        }
        object = new Item(m_Type);
        return RC_OK;
    }
    EResult DestroyObject() override {
        for (auto p = m_Nested.GetHeadPosition(); p != nullptr;) {
            static_cast<IPersistent*>(m_Nested.GetNext(p))->DestroyObject();
        }
        delete this;
        return RC_OK;
    }

    static inline int s_nAlive = 0;

    EString m_Type;
    EPersistentString m_Name;
    EPersistentInt m_nNumber;
    EPersistentPointerList m_Nested{10};
    EPersistentInt m_nBehind;
    int m_nVersion = 0;
};

class Section : public testing::Test {
protected:
    Section() {
        g_Messages.clear();
        EPersistent::SetDirectory(Wide(m_Dir.Path()));
        EPersistent::SetErrorHook(Collect);
        for (const wchar_t* type : {L"Item", L"Parent", L"Thrower", L"Barren"}) {
            EPersistent::AddFactory(new Item(type));
        }
    }
    ~Section() override {
        Close();
        RemoveAll(m_List);
        EPersistent::RemoveFactories();
        EPersistent::SetErrorHook(nullptr);
        EPersistent::SetDirectory(nullptr);
        EXPECT_EQ(Item::s_nAlive, 0);
    }

    EResult Open(const std::string& text) {
        Close();
        WriteWhole(m_Dir.Path("s.json"), text);
        return EPersistent::RestoreSection(L"s", m_nHandle, true);
    }
    void Close() {
        if (m_nHandle != 0) {
            EXPECT_EQ(EPersistent::CloseSection(m_nHandle), RC_OK);
            m_nHandle = 0;
        }
    }
    // The messages since the last call, without the path of the file, which each must begin with.
    std::vector<std::string> Messages() {
        const std::string file = m_Dir.Path("s.json") + ":";
        std::vector<std::string> rest;
        for (const std::string& message : g_Messages) {
            rest.push_back(message.starts_with(file) ? message.substr(file.size()) : message);
        }
        g_Messages.clear();
        return rest;
    }
    std::vector<std::string> Names(const EPersistentPointerList& list) {
        std::vector<std::string> names;
        for (auto p = list.GetHeadPosition(); p != nullptr;) {
            names.push_back(Narrow(static_cast<Item*>(static_cast<IPersistent*>(list.GetNext(p)))->m_Name));
        }
        return names;
    }
    static void RemoveAll(EPersistentPointerList& list) {
        while (!list.IsEmpty()) {
            static_cast<IPersistent*>(list.RemoveHead())->DestroyObject();
        }
    }
    int ReadInt() {
        EPersistentInt value(-77);
        EXPECT_EQ(value.Restore(m_nHandle), RC_OK);
        return value;
    }
    std::string ReadText() {
        EPersistentString value;
        EXPECT_EQ(value.Restore(m_nHandle), RC_OK);
        return Narrow(value);
    }

    TempDir m_Dir;
    unsigned long m_nHandle = 0;
    EPersistentPointerList m_List{10};
};

TEST_F(Section, ItemsAreReadByPositionWhateverTheirNames) {
    ASSERT_EQ(Open("\xEF\xBB\xBF{ \"b\": 3, // twice the same name\n \"b\": -2147483648, /* between */ "
                   "\"a\": 2147483647,\n"
                   "\"\": \"M\\u00e4rz \\ud83d\\ude00 \xE2\x82\xAC\\n\", \"x\": -0, \"t\": \"\", \"extra\": "
                   "[[{}]] }"),
              RC_OK);
    EXPECT_EQ(ReadInt(), 3);
    EXPECT_EQ(ReadInt(), INT32_MIN);
    EXPECT_EQ(ReadInt(), INT32_MAX);
    EXPECT_EQ(ReadText(), "M\xC3\xA4rz \xF0\x9F\x98\x80 \xE2\x82\xAC\n");
    EXPECT_EQ(ReadInt(), 0);
    EXPECT_EQ(ReadText(), "");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(Section, ElementsReadTheirOwnMembersAndTheOuterOnesFollow) {
    ASSERT_EQ(Open(R"({"version": 2, "list": [
        {"type": "Item", "name": "a", "n": 1, "unread": 5, "more": [1]},
        {"type": "Parent", "name": "b", "n": 2, "nested": [{"type": "Item", "n": "c", "m": 3}], "behind": 4},
        {"type": "Item", "name": "d", "n": 5}], "after": 6, "empty": [], "last": "z"})"),
              RC_OK);
    EPersistent::GetRecord(m_nHandle).m_nVersion = ReadInt();
    ASSERT_EQ(m_List.Restore(m_nHandle), RC_OK);
    ASSERT_THAT(Names(m_List), ElementsAre("a", "b", "d"));
    auto position = m_List.GetHeadPosition()->m_pNext;
    const auto* parent = static_cast<Item*>(static_cast<IPersistent*>(m_List.GetNext(position)));
    EXPECT_THAT(Names(parent->m_Nested), ElementsAre("c"));
    EXPECT_EQ(parent->m_nBehind, 4);
    EXPECT_EQ(parent->m_nVersion, 2);
    EXPECT_EQ(ReadInt(), 6);
    EXPECT_EQ(m_List.Restore(m_nHandle), RC_OK);
    EXPECT_EQ(m_List.GetCount(), 3);
    EXPECT_EQ(ReadText(), "z");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(Section, ScalarsOfTheWrongTypeOrRange) {
    struct Case {
        const char* m_Value;
        EResult m_Int;
        const char* m_IntFound; // what the message says was found
        EResult m_Text;
    };
    const Case cases[] = {
        {"2147483648", RC_ITEM_RANGE, "2147483648", RC_ITEM_TYPE},
        {"-2147483649", RC_ITEM_RANGE, "-2147483649", RC_ITEM_TYPE},
        {"9223372036854775808", RC_ITEM_RANGE, "9223372036854775808", RC_ITEM_TYPE},
        {"-99999999999999999999", RC_ITEM_RANGE, "-99999999999999999999", RC_ITEM_TYPE},
        {"1.0", RC_ITEM_TYPE, "1.0", RC_ITEM_TYPE},
        {"1e2", RC_ITEM_TYPE, "1e2", RC_ITEM_TYPE},
        {"null", RC_ITEM_TYPE, "null", RC_ITEM_TYPE},
        {"true", RC_ITEM_TYPE, "true", RC_ITEM_TYPE},
        {"{\"a\": 1}", RC_ITEM_TYPE, "an object", RC_ITEM_TYPE},
        {"\"a\\u0000b\"", RC_ITEM_TYPE, "a text", RC_ITEM_RANGE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.m_Value);
        ASSERT_EQ(Open(std::string("{\n \"item\": ") + c.m_Value + ", \"next\": " + c.m_Value + ", \"end\": 7}"),
                  RC_OK);
        EPersistentInt number(5);
        EPersistentString text(L"before");
        EXPECT_EQ(number.Restore(m_nHandle), c.m_Int);
        EXPECT_EQ(text.Restore(m_nHandle), c.m_Text);
        EXPECT_EQ(number, 5);
        EXPECT_TRUE(text == L"before");
        EXPECT_EQ(ReadInt(), 7);
        const std::vector<std::string> messages = Messages();
        ASSERT_EQ(messages.size(), 2U);
        const char* expected = c.m_Int == RC_ITEM_RANGE ? "an integer from -2147483648 to 2147483647" : "an integer";
        EXPECT_EQ(messages[0], std::string("2:10: \"item\": found ") + c.m_IntFound + ", expected " + expected);
    }
}

TEST_F(Section, AListWaitsForItsReaderAndAScalarForItsOwn) {
    ASSERT_EQ(Open(R"({"list": [{"type": "Item", "name": "a", "n": 1}], "n": 9})"), RC_OK);
    EPersistentInt number(5);
    EPersistentString text;
    EXPECT_EQ(number.Restore(m_nHandle), RC_ITEM_TYPE);
    EXPECT_EQ(text.Restore(m_nHandle), RC_ITEM_TYPE);
    EXPECT_EQ(m_List.Restore(m_nHandle), RC_OK);
    EXPECT_THAT(Names(m_List), ElementsAre("a"));
    EXPECT_EQ(m_List.Restore(m_nHandle), RC_ITEM_TYPE);
    EXPECT_EQ(ReadInt(), 9);
    EXPECT_EQ(number.Restore(m_nHandle), RC_ITEM_MISSING);
    EXPECT_EQ(text.Restore(m_nHandle), RC_ITEM_MISSING);
    EXPECT_EQ(m_List.Restore(m_nHandle), RC_ITEM_MISSING);
    EXPECT_THAT(Messages(),
                ElementsAre("1:10: \"list\": found a list, expected an integer",
                            "1:10: \"list\": found a list, expected a text", "1:56: \"n\": found 9, expected a list",
                            "1:57: found the end of the object, expected an integer",
                            "1:57: found the end of the object, expected a text",
                            "1:57: found the end of the object, expected a list"));
    EXPECT_EQ(number, 5);
}

TEST_F(Section, BrokenElementsAreLeftOutAndTheOthersKept) {
    struct Case {
        const char* m_Element; // stands at line 2, column 1
        EResult m_Result;
        const char* m_Message;
    };
    const Case cases[] = {
        {"7", RC_ITEM_TYPE, "2:1: found 7, expected an object that begins with \"type\""},
        {"[]", RC_ITEM_TYPE, "2:1: found a list, expected an object that begins with \"type\""},
        {"{}", RC_ITEM_TYPE, "2:2: found the end of the object, expected \"type\""},
        {R"({"name": "x", "type": "Item"})", RC_ITEM_TYPE, "2:2: found \"name\", expected \"type\""},
        {R"({"a\nb": 1})", RC_ITEM_TYPE, "2:2: found \"a?b\", expected \"type\""},
        {R"({"type": 1})", RC_ITEM_TYPE, "2:10: \"type\": found 1, expected a text"},
        {R"({"type": "item"})", RC_TYPE_UNKNOWN, "2:10: \"type\": found \"item\", expected a known type"},
        {R"({"type": "Item\u0000"})", RC_TYPE_UNKNOWN, "2:10: \"type\": found \"Item?\", expected a known type"},
        {R"({"type": "Barren"})", RC_NOT_PROVIDED,
         "2:1: found a refused \"Barren\" (0xC0000009), expected a valid one"},
        {R"({"type": "Thrower"})", RC_NOT_MADE, "2:1: found a refused \"Thrower\" (0xC0000004), expected a valid one"},
        {R"({"type": "Item", "name": "x", "n": 13})", RC_NOT_MADE,
         "2:1: found a refused \"Item\" (0xC0000004), expected a valid one"},
        {R"({"type": "Item", "name": "x"})", RC_ITEM_MISSING, "2:29: found the end of the object, expected an integer"},
        {R"({"type": "Item", "name": false, "n": 1})", RC_ITEM_TYPE, "2:26: \"name\": found false, expected a text"},
        {R"({"type": "Parent", "name": "x", "n": 1, "nested": [{"type": "Item", "n": "y", "m": 1}, 0], "b": 1})",
         RC_ITEM_TYPE, "2:88: found 0, expected an object that begins with \"type\""},
    };
    const std::string before = R"({"list": [{"type": "Item", "name": "a", "n": 1},)";
    const std::string after = R"(, {"type": "Item", "name": "z", "n": 2}], "next": 3})";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.m_Element);
        ASSERT_EQ(Open(before + "\n" + c.m_Element + after), RC_OK);
        EXPECT_EQ(m_List.Restore(m_nHandle), c.m_Result);
        EXPECT_THAT(Names(m_List), ElementsAre("a", "z"));
        EXPECT_EQ(ReadInt(), 3);
        EXPECT_THAT(Messages(), ElementsAre(c.m_Message));
        RemoveAll(m_List);
        EXPECT_EQ(Item::s_nAlive, 4); // the prototypes
    }
    ASSERT_EQ(Open(R"({"list": [{"type": "no"}, 1]})"), RC_OK);
    EXPECT_EQ(m_List.Restore(m_nHandle), RC_TYPE_UNKNOWN | RC_ITEM_TYPE);
}

std::string Repeat(const std::string& text, int count) {
    std::string repeated;
    for (int i = 0; i < count; ++i) {
        repeated += text;
    }
    return repeated;
}

TEST_F(Section, MalformedFilesAreRefusedWithThePlaceAndTheReason) {
    struct Case {
        std::string m_Text;
        std::string m_Message;
    };
    const std::string escape = R"(found an unknown escape, expected one of \" \\ \/ \b \f \n \r \t \uXXXX)";
    const std::string half =
        R"(found half of a surrogate pair, expected \uD800 to \uDBFF followed by \uDC00 to \uDFFF)";
    const Case cases[] = {
        {"", "1:1: found the end of the file, expected an object"},
        {" \n\t// only this\n", "3:1: found the end of the file, expected an object"},
        {"[]", "1:1: found '[', expected an object"},
        {"\n \"a\"", "2:2: found a text, expected an object"},
        {"12", "1:1: found '12', expected an object"},
        {"nul", "1:1: found 'nul', expected an object"},
        {"{", "1:2: found the end of the file, expected a member name or '}'"},
        {"{\"a", "1:4: found the end of the file, expected '\"'"},
        {"{\"a\"", "1:5: found the end of the file, expected ':'"},
        {"{\"a\":", "1:6: found the end of the file, expected a value"},
        {"{\"a\": tru", "1:7: found 'tru', expected a value"},
        {"{\"a\": 1", "1:8: found the end of the file, expected ',' or '}'"},
        {"{\"a\": 1,\n", "2:1: found the end of the file, expected a member name"},
        {"{\"a\": [", "1:8: found the end of the file, expected a value or ']'"},
        {"{\"a\": 1} x", "1:10: found 'x', expected the end of the file"},
        {"{}\n{}", "2:1: found '{', expected the end of the file"},
        {"{\"a\": 1,}", "1:9: found '}', expected a member name"},
        {"{\"a\": [1 , /* ] */ ]}", "1:20: found ']', expected a value"},
        {"{\"a\": [1 2]}", "1:10: found '2', expected ',' or ']'"},
        {"{\"a\": [1,,2]}", "1:10: found ',', expected a value"},
        {"{\"a\" 1}", "1:6: found '1', expected ':'"},
        {"{a: 1}", "1:2: found 'a', expected a member name or '}'"},
        {"{\"a\": 01}", "1:8: found '1', expected ',' or '}'"},
        {"{\"a\": -}", "1:7: found '-', expected a value"},
        {"{\"a\": 1.}", "1:7: found '1.', expected a value"},
        {"{\"a\": 1e999}", "1:7: found 1e999, expected a smaller number"},
        {"{\"a\": \xC3\xA4}", "1:7: found the byte 0xC3, expected a value"},
        {"{\"a\": 1 / 2}", "1:9: found '/', expected ',' or '}'"},
        {"{ /* no end *", "1:3: found a comment that does not end, expected a member name or '}'"},
        {"{ # \n}", "1:3: found '#', expected a member name or '}'"},
        {"{\"\xC3\xA4\": \"\xE2\x82\xAC\" 5}", "1:11: found '5', expected ',' or '}'"},
        {"{\"a\": \"x\xFFy\"}", "1:9: found the byte 0xFF, expected UTF-8"},
        {"{\"a\": \"\xC3\"}", "1:8: found the byte 0xC3, expected UTF-8"},
        {"{\"a\": \"\xED\xA0\x80\"}", "1:8: found the byte 0xED, expected UTF-8"},
        {"{\"a\": \"\xC0\x80\"}", "1:8: found the byte 0xC0, expected UTF-8"},
        {"{\"a\": \"x\ny\"}", "1:9: found the end of the line, expected '\"' or an escape"},
        {"{\"a\": \"x\x01\"}", "1:9: found the byte 0x01, expected '\"' or an escape"},
        {"{\"a\": \"\xC3\xA4\\ud83d\"}", "1:9: " + half},
        {"{\"a\": \"\\udE00\\ud83d\"}", "1:8: " + half},
        {"{\"a\\q\": 1}", "1:4: " + escape},
        {"{\"a\": \"\\u12g4\"}", "1:8: " + escape},
        {std::string("{} \0 x", 6), "1:4: found the byte 0x00, expected text"},
        {std::string("{// \0\n}", 7), "1:5: found the byte 0x00, expected text"},
        {"{\"a\":" + Repeat("[", 100000), "1:69: found more than 64 levels of nesting, expected at most 64"},
        {Repeat("{\"a\":", 100000), "1:321: found more than 64 levels of nesting, expected at most 64"},
        {"{\"a\":" + Repeat("[", 64) + Repeat("]", 64) + "}",
         "1:69: found more than 64 levels of nesting, expected at most 64"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.m_Text.substr(0, 80));
        EXPECT_EQ(Open(c.m_Text), RC_SECTION_MALFORMED);
        EXPECT_EQ(m_nHandle, 0U);
        EXPECT_THAT(Messages(), ElementsAre(c.m_Message));
    }
    EXPECT_EQ(Open("{\"a\":" + Repeat("[", 63) + Repeat("]", 63) + "}"), RC_OK);
    EXPECT_EQ(Open(std::string(EJsonText::MAX_SIZE - 2, ' ') + "{}"), RC_OK);
    EXPECT_EQ(Open(std::string(EJsonText::MAX_SIZE - 1, ' ') + "{}"), RC_SECTION_MALFORMED);
}

TEST_F(Section, AFileCutAtAnyByteIsRefusedWithOneMessage) {
    const std::string whole =
        "{\"v\": -1.5e3, // c\n\"list\": [{\"type\": \"Item\", \"n\": \"\xC3\xA4\\ud83d\\ude00\\n\", "
        "\"m\": 1}, null, [true, false]], /* d */ \"e\": {}}";
    ASSERT_EQ(Open(whole), RC_OK);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        EXPECT_EQ(Open(whole.substr(0, length)), RC_SECTION_MALFORMED);
        EXPECT_EQ(Messages().size(), 1U);
    }
}

TEST_F(Section, EveryValueAndNameKnowsItsPlace) {
    EJsonValue root;
    EJsonFault fault;
    ASSERT_TRUE(EJsonText::Parse("\xEF\xBB\xBF{\r\n  \"a\\\"\": 0/**/,\"b\" // :\n : [1.5,-2,\"\xC3\xA4\\\\\",\ttrue "
                                 "],\n \"c\":// null\rnull/*/ \"*/}",
                                 root, fault));
    std::vector<std::string> places;
    const auto note = [&](const EJsonPlace& place, const std::string& what) {
        places.push_back(std::to_string(place.m_nLine) + ":" + std::to_string(place.m_nColumn) + " " + what);
    };
    for (const EJsonValue& member : root.m_Items) {
        note(member.m_NamePlace, member.m_Name);
        note(member.m_Begin, member.Describe());
        for (const EJsonValue& element : member.m_Items) {
            note(element.m_Begin, element.Describe());
        }
    }
    note(root.m_Items[1].m_End, "]");
    note(root.m_End, "}");
    EXPECT_THAT(places, ElementsAre("2:3 a\"", "2:10 0", "2:16 b", "3:4 a list", "3:5 1.5", "3:9 -2", "3:12 a text",
                                    "3:19 true", "4:2 c", "4:14 null", "3:24 ]", "4:25 }"));
}

TEST_F(Section, NamesStandForFilesOfTheDirectory) {
    EString file;
    unsigned long exists = 7;
    WriteWhole(m_Dir.Path("there.json"), "{\"a\": 1}");
    WriteWhole(m_Dir.Path("there.cfg"), "{\"a\": 2}");
    std::filesystem::create_directory(m_Dir.Path("dir.json"));
    struct Case {
        const wchar_t* m_Name;
        const char* m_File;
        EResult m_Result;
        int m_Value;
    };
    const Case cases[] = {{L"there", "there.json", RC_OK, 1},
                          {L"there.cfg", "there.cfg", RC_OK, 2},
                          {L"missing", "missing.json", RC_SECTION_NOT_FOUND, 0},
                          {L"no/such", "no/such.json", RC_SECTION_NOT_FOUND, 0},
                          {L"dir", "dir.json", RC_SECTION_UNREADABLE, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.m_File);
        Close();
        EXPECT_EQ(EPersistent::GetSectionFilename(c.m_Name, file, exists), RC_OK);
        EXPECT_EQ(Narrow(file), m_Dir.Path(c.m_File));
        EXPECT_EQ(exists, c.m_Result == RC_OK ? 1U : 0U);
        m_nHandle = 99;
        EXPECT_EQ(EPersistent::RestoreSection(c.m_Name, m_nHandle, true), c.m_Result);
        EXPECT_EQ(m_nHandle != 0, c.m_Result == RC_OK);
        EXPECT_EQ(m_nHandle != 0 ? ReadInt() : 0, c.m_Value);
    }
    EXPECT_THAT(Messages(), ElementsAre(m_Dir.Path("dir.json") + ": not a file that can be read"));
    EPersistent::SetDirectory(Wide(m_Dir.Path() + "/"));
    EPersistent::GetSectionFilename(L"there", file, exists);
    EXPECT_EQ(Narrow(file), m_Dir.Path("there.json"));
    EPersistent::SetDirectory(L"");
    EPersistent::GetSectionFilename(L"there", file, exists);
    EXPECT_EQ(Narrow(file), "there.json");
}

TEST_F(Section, WhatIsNotThereIsRefusedQuietly) {
    EPersistentInt number;
    EPersistentString text;
    EString file;
    EXPECT_EQ(number.Restore(0), RC_NO_SECTION);
    EXPECT_EQ(text.Restore(0), RC_NO_SECTION);
    EXPECT_EQ(m_List.Restore(0), RC_NO_SECTION);
    EXPECT_EQ(EPersistent::CloseSection(0), RC_NO_SECTION);
    EXPECT_EQ(EPersistent::AddFactory(nullptr), RC_ARGUMENT);
    EXPECT_EQ(EPersistent::RestoreSection(nullptr, m_nHandle, true), RC_ARGUMENT);
    EPersistent::SetErrorHook(nullptr);
    EXPECT_EQ(Open("{]"), RC_SECTION_MALFORMED);
    ASSERT_EQ(Open("{\"a\": null}"), RC_OK);
    EXPECT_EQ(number.Restore(m_nHandle), RC_ITEM_TYPE);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(Section, PrototypesBelongToTheLibrary) {
    ASSERT_EQ(Item::s_nAlive, 4);
    auto* prototype = new Item(L"Other");
    EXPECT_EQ(EPersistent::AddFactory(prototype), RC_OK);
    EXPECT_EQ(EPersistent::AddFactory(prototype), RC_OK);
    EXPECT_EQ(Item::s_nAlive, 5);
    EXPECT_EQ(EPersistent::AddFactory(new Item(L"Other")), RC_OK); // the first one is gone
    EXPECT_EQ(Item::s_nAlive, 5);
    EXPECT_EQ(EPersistent::AddFactory(new Item(L"Nameless")), RC_NOT_PROVIDED);
    EXPECT_EQ(Item::s_nAlive, 5);
    EPersistent::RemoveFactories();
    EXPECT_EQ(Item::s_nAlive, 0);
    ASSERT_EQ(Open(R"({"list": [{"type": "Item", "name": "a", "n": 1}]})"), RC_OK);
    EXPECT_EQ(m_List.Restore(m_nHandle), RC_TYPE_UNKNOWN);
    EXPECT_EQ(m_List.GetCount(), 0);
}

} // namespace
