// The configuration sections, EPersistent, and what is read from them: EPersistentInt, EPersistentString and
// EPersistentPointerList.

#include "base/EPersistent.h"

#include "base/EFileIO.h"
#include "base/EJsonText.h"
#include "base/EPersistentInt.h"
#include "base/EPersistentPointerList.h"
#include "base/EPersistentString.h"
#include "base/EUtility.h"
#include "base/Guarded.h"
#include "base/IPersistent.h"

#include <atomic>
#include <cstdio>
#include <cwchar>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <sys/stat.h>

namespace {

using Kind = EJsonValue::Kind;

struct Registry {
    std::mutex m_Mutex;
    EString m_Directory;
    std::map<std::wstring, IPersistent*> m_Factories;
};

// Never destroyed: at the end of the process the prototypes' modules may be unloaded.
Registry& GetRegistry() {
    static Registry& registry = *new Registry;
    return registry;
}

std::atomic<EPersistent::ErrorHook> g_Hook = nullptr;

void Send(const EString& message) {
    if (const EPersistent::ErrorHook hook = g_Hook) {
        hook(message);
    }
}

struct Destroyer {
    void operator()(IPersistent* object) const { object->DestroyObject(); }
};
using ObjectPtr = std::unique_ptr<IPersistent, Destroyer>;

// What a handle points to.
struct Section : ESectionRecord {
    EString m_FileName;
    EJsonValue m_Root;
    // The object whose members are being read, and the next one of them.
    const EJsonValue* m_pObject = &m_Root;
    std::size_t m_nNext = 0;
    unsigned m_nMessages = 0; // sent so far

    bool AtEnd() const { return m_nNext >= m_pObject->m_Items.size(); }
    const EJsonValue& Next() const { return m_pObject->m_Items[m_nNext]; }

    EResult Fail(EResult result, const EJsonPlace& place, const std::string& text) {
        ++m_nMessages;
        Send(EJsonText::Locate(m_FileName, place, text));
        return result;
    }
    EResult FailItem(EResult result, const EJsonValue& item, const std::string& expected) {
        const std::string name = item.m_Name.empty() ? "" : EJsonText::Quote(item.m_Name) + ": ";
        return Fail(result, item.m_Begin, name + "found " + item.Describe() + ", expected " + expected);
    }
    EResult FailEnd(const std::string& expected) {
        return Fail(RC_ITEM_MISSING, m_pObject->m_End, "found the end of the object, expected " + expected);
    }
};

Section& GetSection(unsigned long handle) {
    return *static_cast<Section*>(reinterpret_cast<ESectionRecord*>(handle));
}

// Runs the work on the open section.
template <class Work>
EResult Read(unsigned long section, Work work) {
    return section == 0 ? RC_NO_SECTION : Guarded([&] { return work(GetSection(section)); });
}

EString MakePath(const wchar_t* name) {
    Registry& registry = GetRegistry();
    EString path;
    {
        const std::lock_guard<std::mutex> lock(registry.m_Mutex);
        path = registry.m_Directory;
    }
    const int length = path.GetLength();
    if (length > 0 && path[length - 1] != L'/') {
        path += L'/';
    }
    path += name;
    if (std::wcschr(name, L'.') == nullptr) {
        path += L".json";
    }
    return path;
}

bool IsEmpty(const wchar_t* text) {
    return text == nullptr || *text == L'\0';
}

// Gives the next item, which counts as read, to `take` if it is of the kind. A list is left for the reader of lists.
// `take` returns null, or what was expected when the item is out of range.
template <class Take>
EResult ReadScalar(unsigned long handle, Kind kind, const char* expected, Take take) {
    return Read(handle, [&](Section& section) {
        if (section.AtEnd()) {
            return section.FailEnd(expected);
        }
        const EJsonValue& item = section.Next();
        if (item.m_Kind != Kind::Array) {
            ++section.m_nNext;
        }
        if (item.m_Kind != kind && !(kind == Kind::Integer && item.m_Kind == Kind::LargeInteger)) {
            return section.FailItem(RC_ITEM_TYPE, item, expected);
        }
        const char* const range = take(item);
        return range == nullptr ? RC_OK : section.FailItem(RC_ITEM_RANGE, item, range);
    });
}

// A new object of the type that the element names, with its defaults.
EResult MakeObject(Section& section, const EJsonValue& element, ObjectPtr& object) {
    if (element.m_Kind != Kind::Object) {
        return section.FailItem(RC_ITEM_TYPE, element, "an object that begins with \"type\"");
    }
    if (element.m_Items.empty()) {
        return section.Fail(RC_ITEM_TYPE, element.m_End, "found the end of the object, expected \"type\"");
    }
    const EJsonValue& type = element.m_Items.front();
    if (type.m_Name != "type") {
        return section.Fail(RC_ITEM_TYPE, type.m_NamePlace,
                            "found " + EJsonText::Quote(type.m_Name) + ", expected \"type\"");
    }
    if (type.m_Kind != Kind::Text) {
        return section.FailItem(RC_ITEM_TYPE, type, "a text");
    }
    const EString name = Widen(type.m_Text);

    Registry& registry = GetRegistry();
    IPersistent* made = nullptr;
    EResult result = RC_TYPE_UNKNOWN;
    {
        // The lock keeps the factory from being destroyed while it makes the object.
        const std::lock_guard<std::mutex> lock(registry.m_Mutex);
        const auto factory = registry.m_Factories.find(std::wstring(name, static_cast<std::size_t>(name.GetLength())));
        if (factory != registry.m_Factories.end()) {
            result = factory->second->GetNewObject(made);
        }
    }
    object.reset(made);
    if (result == RC_TYPE_UNKNOWN) {
        const std::string found = EJsonText::Quote(type.m_Text);
        return section.Fail(result, type.m_Begin, "\"type\": found " + found + ", expected a known type");
    }
    return Failed(result) || made != nullptr ? result : RC_NOT_MADE;
}

// Makes and restores an object, which reads the element's members.
EResult RestoreObject(unsigned long handle, const EJsonValue& element, ObjectPtr& object) {
    Section& section = GetSection(handle);
    const EResult result = MakeObject(section, element, object);
    if (Failed(result)) {
        return result;
    }
    const EJsonValue* const outer = section.m_pObject;
    const std::size_t outerNext = section.m_nNext;
    section.m_pObject = &element;
    section.m_nNext = 1; // behind "type"
    const EResult restored = Guarded([&] { return object->Restore(handle); });
    section.m_pObject = outer;
    section.m_nNext = outerNext;
    return restored;
}

EResult RestoreElement(unsigned long handle, const EJsonValue& element, EPtrList& list) {
    Section& section = GetSection(handle);
    const unsigned messages = section.m_nMessages;
    ObjectPtr object;
    const EResult result = RestoreObject(handle, element, object);
    if (!Failed(result)) {
        list.AddTail(object.get());
        static_cast<void>(object.release()); // the list has it
        return RC_OK;
    }
    if (section.m_nMessages == messages) {
        // Every item could be read, but the object refused them or could not be made.
        char code[16];
        std::snprintf(code, sizeof(code), "0x%08X", static_cast<unsigned>(result));
        const std::string type = EJsonText::Quote(element.m_Items.front().m_Text);
        return section.Fail(result, element.m_Begin,
                            "found a refused " + type + " (" + code + "), expected a valid one");
    }
    return result;
}

} // namespace

void EPersistent::SetDirectory(const wchar_t* directory) {
    Registry& registry = GetRegistry();
    const std::lock_guard<std::mutex> lock(registry.m_Mutex);
    registry.m_Directory = directory;
}

void EPersistent::SetErrorHook(ErrorHook hook) {
    g_Hook = hook;
}

EResult EPersistent::AddFactory(IPersistent* prototype) {
    if (prototype == nullptr) {
        return RC_ARGUMENT;
    }
    ObjectPtr owned(prototype);
    return Guarded([&] {
        EString type;
        const EResult result = prototype->GetType(type);
        if (Failed(result)) {
            return result;
        }
        Registry& registry = GetRegistry();
        const std::lock_guard<std::mutex> lock(registry.m_Mutex);
        IPersistent*& factory = registry.m_Factories[static_cast<const wchar_t*>(type)];
        static_cast<void>(owned.release());
        if (factory != prototype) {
            owned.reset(factory); // destroyed after the lock is released
        }
        factory = prototype;
        return RC_OK;
    });
}

void EPersistent::RemoveFactories() {
    Registry& registry = GetRegistry();
    std::map<std::wstring, IPersistent*> factories;
    {
        const std::lock_guard<std::mutex> lock(registry.m_Mutex);
        factories.swap(registry.m_Factories);
    }
    for (const auto& [type, prototype] : factories) {
        prototype->DestroyObject();
    }
}

EResult EPersistent::RestoreSection(const wchar_t* name, unsigned long& section, bool /*reserved*/) {
    section = 0;
    if (IsEmpty(name)) {
        return RC_ARGUMENT;
    }
    return Guarded([&] {
        auto opened = std::make_unique<Section>();
        opened->m_FileName = MakePath(name);
        EString message;
        const EResult result = EJsonText::Load(opened->m_FileName, opened->m_Root, message);
        if (!Failed(result)) {
            section = reinterpret_cast<unsigned long>(static_cast<ESectionRecord*>(opened.release()));
        } else if (result != RC_SECTION_NOT_FOUND) {
            Send(message);
        }
        return result;
    });
}

EResult EPersistent::CloseSection(unsigned long section) {
    if (section == 0) {
        return RC_NO_SECTION;
    }
    delete &GetSection(section);
    return RC_OK;
}

ESectionRecord& EPersistent::GetRecord(unsigned long section) {
    return GetSection(section);
}

EResult EPersistent::GetSectionFilename(const wchar_t* name, EString& fileName, unsigned long& exists) {
    exists = 0;
    if (IsEmpty(name)) {
        return RC_ARGUMENT;
    }
    return Guarded([&] {
        fileName = MakePath(name);
        unsigned long mode = 0;
        exists = EFileIO::Exists(fileName, &mode) != 0 && S_ISREG(mode) ? 1 : 0;
        return RC_OK;
    });
}

EResult EPersistentInt::Restore(unsigned long section) {
    return ReadScalar(section, Kind::Integer, "an integer", [this](const EJsonValue& item) -> const char* {
        const std::int64_t value = item.m_nInteger;
        if (item.m_Kind == Kind::LargeInteger || value < INT32_MIN || value > INT32_MAX) {
            return "an integer from -2147483648 to 2147483647";
        }
        m_nValue = static_cast<int>(value);
        return nullptr;
    });
}

EResult EPersistentString::Restore(unsigned long section) {
    return ReadScalar(section, Kind::Text, "a text", [this](const EJsonValue& item) -> const char* {
        if (item.m_Text.find('\0') != std::string::npos) {
            return "one without null characters (\\u0000)";
        }
        *this = Widen(item.m_Text);
        return nullptr;
    });
}

EResult EPersistentPointerList::Restore(unsigned long section) {
    return Read(section, [&](Section& open) {
        if (open.AtEnd()) {
            return open.FailEnd("a list");
        }
        const EJsonValue& list = open.Next();
        if (list.m_Kind != Kind::Array) {
            return open.FailItem(RC_ITEM_TYPE, list, "a list");
        }
        ++open.m_nNext;
        EResult result = RC_OK;
        for (const EJsonValue& element : list.m_Items) {
            result |= Guarded([&] { return RestoreElement(section, element, *this); });
        }
        return result;
    });
}
