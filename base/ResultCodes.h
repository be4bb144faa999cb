#pragma once

#include <cstdint>

// Result of a kernel, persistence or service operation: 0 is success; a failure has the two top bits set, a facility
// number in bits 16 to 29 and a code in bits 0 to 15. (Input and output operations of the base library answer non-zero
// for success instead; each header says which.)
using EResult = std::uint32_t;

constexpr EResult RC_OK = 0;
constexpr EResult RC_INTERFACE_ANSWERED = 1; // GetInterface: the service answered the identifier itself

constexpr EResult RC_MISSING = 0xC0000002;      // a required interface, handle or directory is missing
constexpr EResult RC_ARGUMENT = 0xC0000003;     // a required argument is missing (warm restart)
constexpr EResult RC_NOT_MADE = 0xC0000004;     // an object could not be made
constexpr EResult RC_NOT_FOUND = 0xC0000005;    // section, file or kernel log not found or not open
constexpr EResult RC_READ = 0xC0000006;         // a read failed or gave malformed data (pending entries)
constexpr EResult RC_WRITE = 0xC0000007;        // a write failed (pending entries)
constexpr EResult RC_NOT_PROVIDED = 0xC0000009; // the operation is not provided
constexpr EResult RC_NO_FILE_SPEC = 0xC0000026; // a request without a file specification (pending entries)
constexpr EResult RC_NO_SECTION = 0xC1150002;   // no configuration section handle given
constexpr EResult RC_NO_RECORD = 0xC1150003;    // a null record or out-pointer, or a record count of 0
constexpr EResult RC_NO_LOG_FILE = 0xC1150026;  // no log file of the given name
constexpr EResult RC_NO_ACTION = 0xC1150027;    // unknown action name, or delivery of a log file that does not deliver

// Facility 0x039, the persistence of configuration sections.
constexpr EResult RC_SECTION_NOT_FOUND = 0xC0390005;  // masked with RC_FACILITY_MASK this equals RC_NOT_FOUND
constexpr EResult RC_SECTION_MALFORMED = 0xC0390006;  // not a JSON object, or nested too deeply
constexpr EResult RC_SECTION_UNREADABLE = 0xC0390007; // the file exists and cannot be read
constexpr EResult RC_ITEM_MISSING = 0xC0390008;       // the section or element has no further item
constexpr EResult RC_ITEM_TYPE = 0xC0390009;          // the next item is of another type
constexpr EResult RC_ITEM_RANGE = 0xC039000A;   // an integer that does not fit 32 bits, a text with a null character
constexpr EResult RC_TYPE_UNKNOWN = 0xC039000B; // no factory for the type of a list element

// Masks out the facility, to compare two codes.
constexpr EResult RC_FACILITY_MASK = 0xC000FFFF;

// Failures are the codes that are negative as signed 32-bit numbers.
constexpr bool Failed(EResult result) {
    return (result & 0x80000000U) != 0;
}
