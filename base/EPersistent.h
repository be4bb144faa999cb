#pragma once

#include "base/EString.h"
#include "base/ResultCodes.h"

#include <cstdint>

class IPersistent;

// The public part of what a section handle points to.
struct ESectionRecord {
    std::int32_t m_nVersion = 0; // the layout version: set by the section's reader, used by those of its elements
};

// The configuration sections of the process. A section "name" is the file name.json of the configuration directory: a
// JSON object (RFC 8259, with // and /* */ comments) whose members are read in the order of the file, whatever their
// names. A name that contains a dot is the file name itself.
//
// Set the directory and the hook while no section is open and no other thread uses these operations. Sections may be
// read from any thread, each by one thread at a time. Only SetDirectory throws (std::bad_alloc); the others return
// RC_NOT_MADE when memory runs out.
class KVBASE_API EPersistent {
public:
    // Gets a message for every section that cannot be opened and every item that cannot be read:
    // "FILE:LINE:COLUMN: what was found and what was expected"; without the place when the file cannot be read or is
    // larger than 4 MiB.
    using ErrorHook = void (*)(const wchar_t* message);

    static void SetDirectory(const wchar_t* directory); // the default is the working directory
    static void SetErrorHook(ErrorHook hook);           // null, the default: nobody listens

    // Makes the prototype the factory of the type that its GetType gives; an earlier one of that type is destroyed.
    // Takes ownership of the prototype, also on failure. GetNewObject is called by one thread at a time, and must not
    // call these operations.
    static EResult AddFactory(IPersistent* prototype);
    // Destroys all prototypes. A kernel calls this before it unloads a module that has added any.
    static void RemoveFactories();

    // Opens the section for reading. On failure `section` is 0 and the result is RC_SECTION_NOT_FOUND (without a
    // message: a section may be left out), RC_SECTION_UNREADABLE or RC_SECTION_MALFORMED. The flag is ignored.
    static EResult RestoreSection(const wchar_t* name, unsigned long& section, bool reserved);
    // RC_NO_SECTION for a handle of 0; the handle is invalid afterwards.
    static EResult CloseSection(unsigned long section);
    static ESectionRecord& GetRecord(unsigned long section); // of an open section

    // The path of the section's file; `exists` becomes 1 when there is such a file, otherwise 0.
    // RC_ARGUMENT for a name that is null or empty.
    static EResult GetSectionFilename(const wchar_t* name, EString& fileName, unsigned long& exists);
};
