#pragma once

#include "base/EString.h"
#include "base/ResultCodes.h"

#include <cstdint>

class IPersistent;

// What the handle of an open section designates, as far as everybody may use it.
struct ESectionRecord {
    std::int32_t m_nVersion = 0; // the layout version, written by the section's first reader for the nested ones
};

// The configuration sections of the process. A section "name" is the file name.json of the configuration directory: a
// JSON object (RFC 8259, with // and /* */ comments) whose members are read in the order in which they stand, whatever
// their names. A name with a dot stands for the file of just that name.
//
// The directory and the hook are set before the first section is opened, and may be changed while no other thread is at
// any of these operations and no section is open; sections may be read from any thread, each by one thread at a time.
// Only SetDirectory throws (std::bad_alloc); elsewhere a lack of memory is RC_NOT_MADE.
class KVBASE_API EPersistent {
public:
    // Gets a message for every section that cannot be opened and every item that cannot be read:
    // "FILE:LINE:COLUMN: what was found and what was expected"; without the place when the file cannot be read or is
    // larger than 4 MiB.
    using ErrorHook = void (*)(const wchar_t* message);

    static void SetDirectory(const wchar_t* directory); // the default is the working directory
    static void SetErrorHook(ErrorHook hook);           // null, the default: nobody listens

    // Makes the prototype the factory of the type that its GetType gives, in place of an earlier one of that type,
    // which is destroyed. The prototype belongs to the base library from here on, which destroys it when it cannot be
    // added. Its GetNewObject is called by one thread at a time, and must not come back to these operations.
    static EResult AddFactory(IPersistent* prototype);
    // Destroys all prototypes. A kernel calls this before it unloads a module that has added any.
    static void RemoveFactories();

    // Opens the section for reading. RC_SECTION_NOT_FOUND when there is no such file (without a message: a section may
    // be left out), RC_SECTION_UNREADABLE or RC_SECTION_MALFORMED; `section` is 0 then. The flag is reserved, and true.
    static EResult RestoreSection(const wchar_t* name, unsigned long& section, bool reserved);
    // RC_NO_SECTION for a handle of 0; the handle is void afterwards.
    static EResult CloseSection(unsigned long section);
    static ESectionRecord& GetRecord(unsigned long section); // of an open section

    // The path of the file that holds or would hold the section; `exists` is 1 when there is such a file, otherwise 0.
    // RC_ARGUMENT for a name that is null or empty.
    static EResult GetSectionFilename(const wchar_t* name, EString& fileName, unsigned long& exists);
};
