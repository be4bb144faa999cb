#pragma once

#include "base/ResultCodes.h"

class EString;

// Makes names unique for an identifier and takes them apart again (interface 4136). An identifier of -1 is none. Any
// thread may call.
class INameService {
public:
    virtual EResult Reserved1() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved2() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved3() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved4() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved5() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved6() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved7() { return RC_NOT_PROVIDED; }
    // 8: rewrites the name into the form that is unique for the identifier.
    virtual EResult QualifyName(int id, EString* name) = 0;
    // 9: sets the identifier to the one that a qualified name carries, and the name to its plain form.
    virtual EResult ParseName(EString* name, int* id) = 0;
    // 10: sets the identifier that a name carries.
    virtual EResult ParseNameText(const wchar_t* name, int* id) = 0;
    // 11: the three upload parameters of the identifier; negative when there are none.
    virtual EResult GetUploadParameters(int id, EString* parameter1, EString* parameter2, EString* parameter3) = 0;
    virtual EResult Reserved12() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved13() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved14() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved15() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved16() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved17() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved18() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved19() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved20() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved21() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved22() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved23() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved24() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved25() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved26() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved27() { return RC_NOT_PROVIDED; }
    // 28: makes the directory ready for use for the identifier, and may rewrite the path; negative on failure.
    virtual EResult PreparePath(int id, EString* path) = 0;
    virtual EResult Reserved29() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved30() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved31() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved32() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved33() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved34() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved35() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved36() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved37() { return RC_NOT_PROVIDED; }
    // 38: `accepted` becomes true when requests for the identifier may be restored after a warm restart.
    virtual EResult CheckId(int id, bool* accepted) = 0;
};
